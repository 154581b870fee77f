#pragma once

#include <memory>
#include <string>

namespace KYRRmt {

/// Identifies a client to the UART service.
struct UartClientInfo {
    int nType = 0;
    int nClientId = 0;
    std::string strName;
    std::string strDevice;
};

}  // namespace KYRRmt

/// Holds one outgoing frame as up to 255 raw wire bytes.
class KYRRmtParameter
{
public:
    virtual ~KYRRmtParameter() = default;

    unsigned char m_ucLength = 0;  // bytes used in m_ucData
    unsigned char m_ucData[256] = {};
};

/// Receives the bytes that the UART client reads.
class KYRRmtSkeleton
{
public:
    virtual ~KYRRmtSkeleton() = default;

    virtual void MsgDecode(unsigned char* pData) { static_cast<void>(pData); }

    /// A chunk of received bytes, of any length, cut anywhere. The bytes belong to the caller and are invalid after the
    /// call. One thread per adapter delivers, one chunk at a time; the next chunk waits until this call returns.
    virtual void MsgDecode(unsigned char* pData, int nLength)
    {
        static_cast<void>(pData);
        static_cast<void>(nLength);
    }
};

/// Client of the platform's UART service: the head unit's test UART.
class KYRUartAdapter
{
public:
    KYRUartAdapter();

    /// Stops the delivery. Waits for a chunk that another thread is delivering.
    ~KYRUartAdapter();
    KYRUartAdapter(const KYRUartAdapter&) = delete;
    KYRUartAdapter& operator=(const KYRUartAdapter&) = delete;

    /// Connects to the UART service. Bytes that arrive before the first skeleton wait for it.
    /// @returns 1, or 0 if there is no UART.
    int Init(const KYRRmt::UartClientInfo& info);

    /// Disconnects. The adapter delivers and sends nothing afterwards.
    /// @returns 1.
    int Exit();

    /// Adds a receiver to the adapter's list, under the list's mutex. The caller keeps ownership; the receiver must
    /// outlive the adapter. Delivery begins with the first receiver, possibly before this call returns.
    void RegisterSkeleton(KYRRmtSkeleton* pSkeleton);

    /// Sends one whole frame: frames of several threads never interleave. Any thread. If the station does not read,
    /// waits a bounded time, then drops the frame.
    /// @returns 1 if the frame was accepted, 0 if it was dropped.
    int SendAutoTestCommand(KYRRmtParameter* pParameter);

private:
    struct Impl;
    std::unique_ptr<Impl> m_pImpl;
};
