#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>

#include "host/Descriptor.h"
#include "platform/linux/Loop.h"
#include "platform/linux/UnitConfig.h"

namespace unit {

/// @returns the signal in the data of a frame, scaled; nothing if the data is too short.
std::optional<double> signalIn(std::span<const std::uint8_t> data, const UnitConfig::CanSignal& signal);

/// @returns how many bytes of data a frame with the signal has at least.
unsigned bytesOf(const UnitConfig::CanSignal& signal);

/// Opens the interface of a signal for frames with its identifier; does not block.
/// @param reason set on failure, in one line: what is missing and what helps
using OpenCan = std::function<host::Descriptor(const UnitConfig::CanSignal& signal, std::string& reason)>;
host::Descriptor openCan(const UnitConfig::CanSignal& signal, std::string& reason);

/// Follows a signal on a CAN bus. It is there while its frames come; a frame that is too short keeps it away for a
/// second. An interface that is missing or down is tried again every second. On the loop's thread, but for construction
/// and destruction.
class CanReader
{
public:
    struct Events {
        /// The signal has come.
        std::function<void(double value)> value;
        /// The signal can be received (`reason` is empty), or it cannot.
        std::function<void(const std::string& reason)> presence;
    };

    /// @param loop not owned; stopped before this object is destroyed
    /// @param silence how long frames may stay away
    CanReader(UnitConfig::CanSignal signal, Loop& loop, Events events, OpenCan open = openCan,
              std::chrono::milliseconds silence = kSilence);

    static constexpr std::chrono::seconds kSilence{3};

private:
    void connect();
    void read();
    void take(double value);
    void tellNoFrame(const char* since);
    void lost(const std::string& reason);

    const UnitConfig::CanSignal signal_;
    Loop& loop_;
    const Events events_;
    const OpenCan open_;
    const std::chrono::milliseconds silence_;
    host::Descriptor socket_;
    host::GlibPtr<GSource> readable_;
    host::GlibPtr<GSource> retry_;
    host::GlibPtr<GSource> silent_;  // since the last good frame
    host::GlibPtr<GSource> bad_;     // since the last frame that was too short
    std::optional<double> held_;     // the signal of the good frames after it
};

}  // namespace unit
