#include "platform/linux/Radio.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>

namespace unit {
namespace {

/// The unit of V4L2's frequencies in half hertz: 62.5 Hz, or 62.5 kHz.
constexpr std::uint64_t halfHertzPerUnit(bool isFine)
{
    return isFine ? 125 : 125'000;
}

std::uint32_t inHertz(std::uint32_t units, bool isFine)
{
    return static_cast<std::uint32_t>((units * halfHertzPerUnit(isFine) + 1) / 2);
}

[[noreturn]] void throwError()
{
    throw std::system_error(errno, std::generic_category());
}

}  // namespace

int RadioDevice::open(const std::string& path)
{
    file_.reset(::open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
    return file_.get();
}

int RadioDevice::control(unsigned long request, void* argument)
{
    return ioctl(file_.get(), request, argument);
}

ssize_t RadioDevice::read(void* to, std::size_t size)
{
    return ::read(file_.get(), to, size);
}

Radio::Radio(RadioDevice& device, const std::string& path) : device_(device)
{
    if (device_.open(path) < 0) {
        throwError();
    }
    try {
        const v4l2_tuner is = tuner();
        isFine_ = (is.capability & V4L2_TUNER_CAP_LOW) != 0;
        hasRds_ = (is.capability & V4L2_TUNER_CAP_RDS_BLOCK_IO) != 0;
        v4l2_frequency_band band{};
        band.type = V4L2_TUNER_RADIO;
        for (; device_.control(VIDIOC_ENUM_FREQ_BANDS, &band) == 0; ++band.index) {
            const bool isFineHere = (band.capability & V4L2_TUNER_CAP_LOW) != 0;
            auto& kind = (band.modulation & V4L2_BAND_MODULATION_AM) != 0 ? am_ : fm_;
            if (!kind) {
                kind = Band{inHertz(band.rangelow, isFineHere), inHertz(band.rangehigh, isFineHere)};
            }
        }
        if (!fm_ && !am_) {
            fm_ = Band{toHertz(is.rangelow), toHertz(is.rangehigh)};
        }
    } catch (...) {
        device_.close();
        throw;
    }
}

void Radio::control(unsigned long request, void* argument)
{
    if (device_.control(request, argument) < 0) {
        throwError();
    }
}

v4l2_tuner Radio::tuner()
{
    v4l2_tuner tuner{};
    control(VIDIOC_G_TUNER, &tuner);
    if (tuner.type != V4L2_TUNER_RADIO) {
        throw std::system_error(ENODEV, std::generic_category(), "expected a radio, got another tuner");
    }
    return tuner;
}

std::uint32_t Radio::toHertz(std::uint32_t units) const
{
    return inHertz(units, isFine_);
}

std::string Radio::description() const
{
    std::string text;
    if (fm_) {
        text += fmt::format("FM {} to {} MHz, ", fm_->low / 1e6, fm_->high / 1e6);
    }
    if (am_) {
        text += fmt::format("AM {} to {} kHz, ", am_->low / 1e3, am_->high / 1e3);
    }
    return text + (isFine_ ? "steps of 62.5 Hz" : "steps of 62.5 kHz") + (hasRds_ ? ", RDS" : ", no blocks of RDS");
}

std::uint32_t Radio::frequency()
{
    v4l2_frequency frequency{};
    frequency.type = V4L2_TUNER_RADIO;
    control(VIDIOC_G_FREQUENCY, &frequency);
    return toHertz(frequency.frequency);
}

std::uint32_t Radio::tune(std::uint32_t hertz)
{
    const std::uint64_t unit = halfHertzPerUnit(isFine_);
    v4l2_frequency frequency{};
    frequency.type = V4L2_TUNER_RADIO;
    frequency.frequency = static_cast<std::uint32_t>((std::uint64_t{hertz} * 2 + unit / 2) / unit);
    control(VIDIOC_S_FREQUENCY, &frequency);
    const std::uint32_t now = this->frequency();
    return now == toHertz(frequency.frequency) ? hertz : now;
}

int Radio::signal()
{
    return std::clamp<int>(tuner().signal, 0, kFullSignal);
}

void Radio::unmute()
{
    v4l2_control mute{V4L2_CID_AUDIO_MUTE, 0};
    device_.control(VIDIOC_S_CTRL, &mute);
}

std::optional<bool> Radio::trafficAnnouncement()
{
    constexpr unsigned kGroup0 = 0;
    constexpr unsigned kTrafficProgramme = 1U << 10;
    constexpr unsigned kTrafficAnnouncement = 1U << 4;

    std::optional<bool> isOn;
    std::array<v4l2_rds_data, 256> blocks{};
    const ssize_t size = hasRds_ ? device_.read(blocks.data(), sizeof blocks) : 0;
    for (ssize_t i = 0; (i + 1) * static_cast<ssize_t>(sizeof blocks[0]) <= size; ++i) {
        const v4l2_rds_data& block = blocks[static_cast<std::size_t>(i)];
        const unsigned bits = static_cast<unsigned>(block.msb) << 8 | block.lsb;
        if ((block.block & V4L2_RDS_BLOCK_MSK) == V4L2_RDS_BLOCK_B && (block.block & V4L2_RDS_BLOCK_ERROR) == 0 &&
            bits >> 12 == kGroup0) {
            // Without the programme flag, the announcement is on another station.
            isOn = (bits & kTrafficProgramme) != 0 && (bits & kTrafficAnnouncement) != 0;
        }
    }
    return isOn;
}

}  // namespace unit
