#pragma once

#include <chrono>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

#include "host/Glib.h"

namespace unit {

/// The thread of all backends: it waits for the daemons, so that the station's line does not. Backends are made before
/// run() and destroyed after stop(); between the two they live on this thread. It is also the listener thread.
class Loop
{
public:
    using Completion = std::function<void(GObject* source, GAsyncResult* result)>;

    Loop() = default;

    /// As stop().
    ~Loop();
    Loop(const Loop&) = delete;
    Loop& operator=(const Loop&) = delete;

    /// Starts the thread.
    void run();

    /// Cancels what is under way, waits for its completions, and ends the thread. Not on the thread. May be called more
    /// than once.
    void stop();

    /// Runs `action` on the thread; returns at once. Any thread. After stop() nothing runs.
    void post(std::function<void()> action);

    /// Runs `action` on the thread after `delay`, once, unless the result is destroyed before. On the thread.
    host::GlibPtr<GSource> after(std::chrono::milliseconds delay, std::function<void()> action);

    /// Runs `action` on the thread whenever `descriptor` can be read or has failed, until the result is destroyed. On
    /// the thread.
    host::GlibPtr<GSource> whenReadable(int descriptor, std::function<void()> action);

    /// For an asynchronous call of GIO, on the thread: the callback, its data, and the cancellable. `completion` gets
    /// the result of the call, on the thread, also if stop() cancels it.
    static void complete(GObject* source, GAsyncResult* result, gpointer data);
    gpointer expect(Completion completion);
    GCancellable* cancellable() const { return cancellable_.get(); }

private:
    static gboolean runAction(gpointer action);
    void runPosted();

    const host::GlibPtr<GMainContext> context_{g_main_context_new()};
    const host::GlibPtr<GCancellable> cancellable_{g_cancellable_new()};
    std::mutex mutex_;
    std::deque<std::function<void()>> posted_;  // guarded by mutex_
    int expected_ = 0;                          // completions under way; of the thread
    bool stopped_ = false;                      // of the thread
    std::thread thread_;
};

}  // namespace unit
