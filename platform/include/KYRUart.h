#pragma once

#include <memory>
#include <string>

namespace KYRRmt {

/// With what a client registers at the UART service.
struct UartClientInfo {
    int nType = 0;
    int nClientId = 0;
    std::string strName;
    std::string strDevice;
};

}  // namespace KYRRmt

/// Carries one outgoing frame, wire bytes as they are: up to 255 of them.
class KYRRmtParameter
{
public:
    virtual ~KYRRmtParameter() = default;

    unsigned char m_ucLength = 0;  // bytes used in m_ucData
    unsigned char m_ucData[256] = {};
};

/// Receives what the UART client reads.
class KYRRmtSkeleton
{
public:
    virtual ~KYRRmtSkeleton() = default;

    virtual void MsgDecode(unsigned char* pData) { static_cast<void>(pData); }

    /// A chunk of received bytes, of any length, cut anywhere. The bytes belong to the caller and are gone after the
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

    /// Ends the delivery; waits for a chunk that is being delivered on another thread.
    ~KYRUartAdapter();
    KYRUartAdapter(const KYRUartAdapter&) = delete;
    KYRUartAdapter& operator=(const KYRUartAdapter&) = delete;

    /// Connects to the UART service. Bytes that have arrived before are kept for the first skeleton.
    /// @returns 1, or 0 when there is no UART.
    int Init(const KYRRmt::UartClientInfo& info);

    /// Disconnects; nothing is delivered or sent afterwards.
    /// @returns 1.
    int Exit();

    /// Adds a receiver to the adapter's list, under the list's mutex; not owned, and it must outlive the adapter.
    /// Delivery begins with the first one, possibly before this call returns.
    void RegisterSkeleton(KYRRmtSkeleton* pSkeleton);

    /// Puts one frame on the wire, whole: frames of several threads never interleave. Any thread. Waits a bounded time
    /// for a station that does not read, then drops the frame.
    /// @returns 1 when the frame was taken, 0 when it was dropped.
    int SendAutoTestCommand(KYRRmtParameter* pParameter);

private:
    struct Impl;
    std::unique_ptr<Impl> m_pImpl;
};
