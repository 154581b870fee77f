#pragma once

#include <sys/select.h>

#include <atomic>
#include <vector>

#include "KYRHmi.h"
#include "KYRKey.h"
#include "KYRQLXTimer.h"
#include "KYRUart.h"
#include "protocol/FrameAssembler.h"

/// A receiver attached to the platform's UART client, which it owns.
class KYRAutoTestSkeletonBase : public KYRRmtSkeleton
{
public:
    using KYRRmtSkeleton::MsgDecode;

    /// Takes a chunk from the station, on the adapter's delivery thread, and hands it to RouteAutoTestMsg().
    void MsgDecode(unsigned char* pData, int nLength) override;

    virtual void RouteAutoTestMsg(unsigned char* pData, int nLength)
    {
        static_cast<void>(pData);
        static_cast<void>(nLength);
    }

    /// Connects to the UART client and begins to receive, possibly before this call returns.
    void Init();

    /// Disconnects.
    void Exit();

protected:
    KYRUartAdapter m_UartAdapter;
};

/// Whether CarPlay tests are allowed: "/system/enable_cp_test" as it stood when the link manager was made. For other
/// modules; nothing here reads it.
extern std::atomic<int> m_bIsCPTest;

/// 0xFF once the CAN box has acknowledged the connect request. Written by other modules.
extern std::atomic<unsigned char> m_iACKStatus;

/// The link manager: receives the station's bytes, assembles frames and hands each good one to the engine; sends
/// frames to the station. One per process, KYRSingleton<KYRUARTManage>.
class KYRUARTManage : public KYRQLXTimer, public KYRAutoTestSkeletonBase
{
public:
    /// Attaches to the UART client and makes sure that the engine exists. Frames may arrive before it returns.
    KYRUARTManage();

    /// Call it after the platform has stopped delivering.
    ~KYRUARTManage() override;

    // ---- station to unit; the adapter's delivery thread ----

    /// Takes a chunk (nothing when `nLength` is 0 or less), then handles every complete frame.
    void RouteAutoTestMsg(unsigned char* pData, int nLength) override;

    /// Handles every complete frame in the receive buffer.
    void ParseData();

    /// Hands one good frame to the engine.
    void HandleCommands(unsigned char cmd_one, unsigned char cmd_two, unsigned char* param, int param_len);

    // ---- unit to station; any thread, at any time ----

    /// Sends one whole frame. Drops, without telling the caller, a frame that does not fit the platform's carrier (more
    /// than 246 parameters) and one that the station does not read.
    void SendData(unsigned char cmd_one, unsigned char cmd_two, std::vector<unsigned char> param);

    /// Tells the station which track plays, for the media types 1, 2 and 3 only.
    void AutoTestSetTrackIndex(MEDIA_TYPE type, unsigned char track_index);

    /// Reports a key to the station, if it has switched key reports on.
    void AutoTestFeedbackKeyEvent(E_KeyVKey key, E_KeyStatus status);

    /// Prints up to 170 bytes in hexadecimal on standard output; prints nothing for more.
    void PrintData(const char* tag, unsigned char* data, int len);

    // ---- the CAN box: idle, nothing in the service starts it ----

    /// Timer 101 is the poll tick, timer 100 the watch for the acknowledgement. Timer thread.
    void OnTimerHandleFunc(int id) override;

    void RequestConnected();
    void RequestSpeed();
    void RequestParking();

    /// Sends nothing: this unit has no transport to the CAN box.
    void SendCANCommands(unsigned char cmd, std::vector<unsigned char> params);

    /// Publishes and consumes the first complete CAN-box frame of the CAN receive buffer, if there is one.
    void ParseCANData();

    // ---- direct serial port: for a unit without the UART client, nothing in the service calls it ----

    /// Opens the device, non-blocking, 8 data bits, no parity, 1 stop bit.
    /// @param baudrate bits per second
    /// @returns the descriptor, which the manager keeps, or -1.
    int PortInit(const char* path, unsigned int baudrate);

    /// Configures the open port, raw.
    /// @param nSpeed bits per second; an unsupported one leaves the speed unchanged
    /// @param nDataBits 7 or 8
    /// @param nStopBits 1 or 2
    /// @param cParity 'n', 'o', 'e' or 's' (space), either case
    /// @returns 1, or 0 on failure, when the port keeps its settings.
    int SetupSerial(int nSpeed, int nDataBits, int nStopBits, char cParity);

    /// Waits up to 10 s until the manager's port can be read (direction 0) or written (1).
    /// @param pSet used for the wait
    /// @returns 1 when it can, else 0.
    int WaitEvent(fd_set* pSet, unsigned int nDirection);

    /// One read or write, after WaitEvent().
    /// @returns the number of bytes, possibly fewer than `nLength`, or -1.
    int UARTReadData(int fd, unsigned char* pBuffer, int nLength);
    int UARTWriteData(int fd, unsigned char* pBuffer, int nLength);

    /// @returns the result of close(). The manager keeps the number of the descriptor.
    int UARTClose(int fd);

private:
    friend class UartManageProbe;  // tests of the idle parts

    void HandleFrame(protocol::ReceivedFrame& frame);

    // The receive buffer, touched by the delivery thread only.
    protocol::FrameAssembler m_vRecvBuf;
    int m_nPortFd = -1;
    std::vector<unsigned char> m_vCANRecvBuf;
    unsigned char m_ucCANLinkState = 0;  // 0 not connected, 1 connected
    unsigned char m_ucCANRetryCount = 0;
};
