#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "host/Descriptor.h"
#include "platform/runtime/Report.h"

namespace runtime {

/// Writes whole frames in their order to a non-blocking descriptor, within a limited time.
/// If the line does not take a frame within the patience, a stall begins: the writer drops this frame, the frames that
/// wait with it, and all others at once, until the line takes bytes again. If a part of a frame has been written, the
/// rest stays and goes first. The writer reports the begin and the end of a stall, and at the end the number of dropped
/// frames.
class FrameWriter
{
public:
    static constexpr std::chrono::milliseconds kPatience{1000};

    /// @param name of the line, for the reports
    explicit FrameWriter(std::string name, Reporter reporter = report, std::chrono::milliseconds patience = kPatience);

    /// As close(). No thread may be sending.
    ~FrameWriter();
    FrameWriter(const FrameWriter&) = delete;
    FrameWriter& operator=(const FrameWriter&) = delete;

    /// Writes to `line` from now on.
    void open(std::shared_ptr<const host::Descriptor> line);

    /// Gives up the line and the frames that wait for it, and ends a stall. The writer drops frames from now on. Not
    /// from the reporter.
    void close();

    /// Writes one frame. Any thread. Returns within the patience.
    /// @returns whether the frame was taken: it is written, or its rest will be.
    bool send(std::span<const std::uint8_t> frame);

private:
    enum class Fate {
        kWaiting,
        kTaken,
        kDropped,
    };

    /// A frame that did not fit at once. Guarded by mutex_.
    struct Waiting {
        std::vector<std::uint8_t> rest;
        bool begun = false;
        Fate fate = Fate::kWaiting;
    };

    std::size_t writeSomeLocked(std::span<const std::uint8_t> bytes);
    void advanceLocked();
    void settleLocked(Waiting& frame, Fate fate);
    void beginStallLocked();
    void endStallLocked();
    void closeLocked();
    void run();
    void watch(std::unique_lock<std::mutex>& lock);
    void tell(std::unique_lock<std::mutex>& lock);

    const std::string name_;
    const Reporter reporter_;
    const std::chrono::milliseconds patience_;
    const host::Wakeup wakeup_;

    std::mutex mutex_;
    std::condition_variable settled_;
    std::shared_ptr<const host::Descriptor> line_;  // null: none; guarded by mutex_
    std::deque<std::shared_ptr<Waiting>> queue_;    // only the first may be partly written; guarded by mutex_
    bool stalled_ = false;                          // guarded by mutex_
    std::size_t dropped_ = 0;                       // in the stall; guarded by mutex_
    std::deque<std::string> reports_;               // not yet told; guarded by mutex_
    bool watching_ = false;                         // the thread uses the line; guarded by mutex_
    bool ending_ = false;                           // guarded by mutex_
    std::thread thread_;  // writes what did not fit at once, and reports; runs from the first such frame on
                          // guarded by mutex_
};

}  // namespace runtime
