#pragma once

#include <linux/input.h>

#include <chrono>
#include <functional>
#include <map>
#include <string>
#include <string_view>

#include "host/Descriptor.h"
#include "platform/linux/Loop.h"
#include "platform/linux/Status.h"

namespace unit {

/// The keys of an evdev device, which may vanish and come back. On the loop's thread, but for construction and
/// destruction.
class Keyboard
{
public:
    /// Gets each key that is released, by evdev's code, and for how long it was held.
    using Released = std::function<void(int code, std::chrono::microseconds held)>;

    /// @param board shows as `keyboard` whether the device is there
    Keyboard(std::string device, Loop& loop, StatusBoard& board, Released released);

private:
    void open();
    void read();
    void take(std::string_view bytes);
    void lost(const std::string& reason);

    const std::string device_;
    Loop& loop_;
    StatusBoard& board_;
    const Released released_;

    // Of the loop.
    host::Descriptor descriptor_;
    host::GlibPtr<GSource> readable_;
    host::GlibPtr<GSource> retry_;
    std::string received_;                              // the beginning of an event
    std::map<int, std::chrono::microseconds> pressed_;  // by code: since when
    bool skips_ = false;                                // the events up to the next report
};

}  // namespace unit
