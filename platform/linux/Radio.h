#pragma once

#include <linux/videodev2.h>

#include <cstdint>
#include <optional>
#include <string>

#include "host/Descriptor.h"

namespace unit {

/// The device file of a radio. Its calls may sleep. Tests replace them.
class RadioDevice
{
public:
    virtual ~RadioDevice() = default;

    // As open(), ioctl() and read() of the system: -1 with errno for a failure. Reading does not wait.
    virtual int open(const std::string& path);
    virtual int control(unsigned long request, void* argument);
    virtual ssize_t read(void* to, std::size_t size);
    virtual void close() { file_.reset(); }

private:
    host::Descriptor file_;
};

/// An open radio over V4L2. Frequencies are in hertz. Throws std::system_error if the device fails. One thread.
class Radio
{
public:
    struct Band {
        std::uint32_t low = 0;
        std::uint32_t high = 0;
    };

    static constexpr int kFullSignal = 65535;

    /// Opens the radio and does not tune it.
    /// @param device not owned
    Radio(RadioDevice& device, const std::string& path);
    ~Radio() { device_.close(); }
    Radio(const Radio&) = delete;
    Radio& operator=(const Radio&) = delete;

    /// The first band of each kind that the radio names.
    const std::optional<Band>& fm() const { return fm_; }
    const std::optional<Band>& am() const { return am_; }

    /// The bands, the steps and RDS, for people.
    std::string description() const;

    std::uint32_t frequency();

    /// Tunes to the multiple of the radio's step that is nearest to `hertz`.
    /// @returns `hertz`; what the radio has chosen instead if it has.
    std::uint32_t tune(std::uint32_t hertz);

    /// @returns 0 to kFullSignal.
    int signal();

    /// Switches the radio's sound on, if it has a switch.
    void unmute();

    /// Reads the RDS blocks that have come since the last call.
    /// @returns whether a traffic announcement is on the air; empty if no block says so.
    std::optional<bool> trafficAnnouncement();

private:
    void control(unsigned long request, void* argument);
    v4l2_tuner tuner();
    std::uint32_t toHertz(std::uint32_t units) const;

    RadioDevice& device_;
    bool isFine_ = false;  // the unit of frequencies: 62.5 Hz, else 62.5 kHz
    bool hasRds_ = false;
    std::optional<Band> fm_;
    std::optional<Band> am_;
};

}  // namespace unit
