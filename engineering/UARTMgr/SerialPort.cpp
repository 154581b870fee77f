// The direct serial port, for a unit without the platform's UART client.

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <iostream>

#include "engineering/UARTMgr/KYRUARTManage.h"
#include "engineering/base/Log.h"

namespace {

constexpr int kWaitSeconds = 10;

/// The speeds that the port knows; 600 and 1800 are absent on purpose.
constexpr struct {
    int nSpeed;
    speed_t eSpeed;
} kSpeeds[] = {
    {460800, B460800}, {230400, B230400}, {115200, B115200}, {57600, B57600}, {38400, B38400}, {19200, B19200},
    {9600, B9600},     {4800, B4800},     {2400, B2400},     {1200, B1200},   {300, B300},
};

void SetSpeed(termios& options, int nSpeed)
{
    for (const auto& known : kSpeeds) {
        if (known.nSpeed != nSpeed)
            continue;
        cfsetspeed(&options, known.eSpeed);
    }
}

// Each of these returns whether the value is supported.

bool SetDataBits(termios& options, int nDataBits)
{
    options.c_cflag &= ~static_cast<tcflag_t>(CSIZE);
    switch (nDataBits) {
        case 7:
            options.c_cflag |= CS7;
            return true;
        case 8:
            options.c_cflag |= CS8;
            return true;
        default:
            perror("Unsupported data bit size");
            return false;
    }
}

bool SetParity(termios& options, char cParity)
{
    switch (cParity) {
        case 'n':
        case 'N':
            options.c_cflag &= ~static_cast<tcflag_t>(PARENB);
            options.c_iflag &= ~static_cast<tcflag_t>(INPCK);
            return true;
        case 'o':
        case 'O':
            options.c_cflag |= PARODD | PARENB;
            options.c_iflag |= INPCK;
            return true;
        case 'e':
        case 'E':
            options.c_cflag |= PARENB;
            options.c_cflag &= ~static_cast<tcflag_t>(PARODD);
            options.c_iflag |= INPCK;
            return true;
        case 's':
        case 'S':
            options.c_cflag &= ~static_cast<tcflag_t>(PARENB | CSTOPB);
            return true;
        default:
            perror("Unsupported parity");
            return false;
    }
}

bool SetStopBits(termios& options, int nStopBits)
{
    switch (nStopBits) {
        case 1:
            options.c_cflag &= ~static_cast<tcflag_t>(CSTOPB);
            return true;
        case 2:
            options.c_cflag |= CSTOPB;
            return true;
        default:
            perror("Unsupported stop bit");
            return false;
    }
}

// Comes after the parity: its INPCK is cleared here again, so that input parity is never checked.
void SetRaw(termios& options)
{
    options.c_oflag &= ~static_cast<tcflag_t>(OPOST | ONLCR | OCRNL);
    options.c_iflag &= ~static_cast<tcflag_t>(BRKINT | INPCK | ISTRIP | INLCR | ICRNL | IXON | IXANY | IXOFF);
    options.c_lflag &= ~static_cast<tcflag_t>(ISIG | ICANON | ECHO | ECHOE);
}

}  // namespace

int KYRUARTManage::PortInit(const char* path, unsigned int baudrate)
{
    KYR_LOG_INFO("[rkb] UARTManage::PortInit() baudrate = %d", static_cast<int>(baudrate));
    m_nPortFd = open(path, O_RDWR | O_NOCTTY | O_NONBLOCK);
    if (m_nPortFd == -1) {
        const int nError = errno;
        KYR_LOG_INFO("[rkb] PortInit(), UART Open failed!");
        errno = nError;  // logging may have changed it
        perror("[rkb]open");
        return -1;
    }
    SetupSerial(static_cast<int>(baudrate), 8, 1, 'n');
    return m_nPortFd;
}

int KYRUARTManage::SetupSerial(int nSpeed, int nDataBits, int nStopBits, char cParity)
{
    termios options{};
    if (tcgetattr(m_nPortFd, &options) != 0) {
        perror("tcgetattr");
        return 0;
    }
    options.c_cflag |= CLOCAL | CREAD;
    SetSpeed(options, nSpeed);
    if (!SetDataBits(options, nDataBits) || !SetParity(options, cParity) || !SetStopBits(options, nStopBits))
        return 0;
    SetRaw(options);

    tcflush(m_nPortFd, TCIOFLUSH);
    options.c_cc[VTIME] = 0;
    options.c_cc[VMIN] = 0;
    if (tcsetattr(m_nPortFd, TCSANOW, &options) != 0) {
        perror("UART set attribute error");
        return 0;
    }
    KYR_LOG_INFO("[rkb] SetupSerial(), UART port init finished!");
    return 1;
}

int KYRUARTManage::WaitEvent(fd_set* pSet, unsigned int nDirection)
{
    if (pSet == nullptr) {
        perror("[rkb]WaitEvent: pset is NULL");
        return 0;
    }
    // select() cannot wait for a descriptor of FD_SETSIZE or above.
    if (m_nPortFd == -1 || m_nPortFd >= FD_SETSIZE) {
        perror("[rkb]WaitEvent: fd == -1");
        return 0;
    }
    timeval timeout{kWaitSeconds, 0};
    FD_ZERO(pSet);
    FD_SET(m_nPortFd, pSet);
    int nReady = 0;
    switch (nDirection) {
        case 0:
            nReady = select(FD_SETSIZE, pSet, nullptr, nullptr, &timeout);
            break;
        case 1:
            nReady = select(FD_SETSIZE, nullptr, pSet, nullptr, &timeout);
            break;
        default:
            KYR_LOG_DEBUG("[rkb] WaitEvent(), select direction is no right");
            return 0;
    }
    return nReady > 0 ? 1 : 0;
}

int KYRUARTManage::UARTReadData(int fd, unsigned char* pBuffer, int nLength)
{
    if (fd == -1)
        return -1;
    fd_set set;
    if (WaitEvent(&set, 0) == 0)
        return -1;
    return static_cast<int>(read(fd, pBuffer, static_cast<std::size_t>(nLength)));
}

int KYRUARTManage::UARTWriteData(int fd, unsigned char* pBuffer, int nLength)
{
    if (fd == -1) {
        std::cout << "UARTWriteData fd == -1" << std::endl;
        return -1;
    }
    fd_set set;
    if (WaitEvent(&set, 1) == 0) {
        KYR_LOG_INFO("[rkb] UARTWriteData(), WaitEvent fail");
        return -1;
    }
    return static_cast<int>(write(fd, pBuffer, static_cast<std::size_t>(nLength)));
}

int KYRUARTManage::UARTClose(int fd)
{
    return close(fd);
}
