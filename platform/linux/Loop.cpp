#include "platform/linux/Loop.h"

#include <glib-unix.h>
#include <pthread.h>

#include <utility>

#include "platform/runtime/Report.h"

namespace unit {
namespace {

struct Expected {
    int& count;
    Loop::Completion completion;
};

}  // namespace

Loop::~Loop()
{
    stop();
    // What GIO frees in the context of a subscription that has ended.
    while (g_main_context_iteration(context_.get(), FALSE)) {
    }
}

void Loop::run()
{
    thread_ = std::thread([this] {
        pthread_setname_np(pthread_self(), "backends");
        g_main_context_push_thread_default(context_.get());
        for (runPosted(); !stopped_ || expected_ > 0; runPosted()) {
            g_main_context_iteration(context_.get(), TRUE);
        }
        g_main_context_pop_thread_default(context_.get());
    });
}

void Loop::stop()
{
    if (!thread_.joinable()) {
        return;
    }
    post([this] {
        stopped_ = true;
        g_cancellable_cancel(cancellable_.get());
    });
    thread_.join();
}

gboolean Loop::runAction(gpointer action)
{
    runtime::runGuarded("a backend has failed", *static_cast<std::function<void()>*>(action));
    return G_SOURCE_REMOVE;
}

void Loop::runPosted()
{
    std::deque<std::function<void()>> actions;
    {
        const std::lock_guard lock(mutex_);
        actions.swap(posted_);
    }
    for (auto& action : actions) {
        runAction(&action);
    }
}

void Loop::post(std::function<void()> action)
{
    {
        const std::lock_guard lock(mutex_);
        posted_.push_back(std::move(action));
    }
    g_main_context_wakeup(context_.get());
}

host::GlibPtr<GSource> Loop::after(std::chrono::milliseconds delay, std::function<void()> action)
{
    host::GlibPtr<GSource> source(g_timeout_source_new(static_cast<guint>(delay.count())));
    g_source_set_callback(source.get(), runAction, new std::function(std::move(action)),
                          [](gpointer data) { delete static_cast<std::function<void()>*>(data); });
    g_source_attach(source.get(), context_.get());
    return source;
}

host::GlibPtr<GSource> Loop::whenReadable(int descriptor, std::function<void()> action)
{
    host::GlibPtr<GSource> source(
        g_unix_fd_source_new(descriptor, static_cast<GIOCondition>(G_IO_IN | G_IO_ERR | G_IO_HUP)));
    const GUnixFDSourceFunc onReadable = [](gint, GIOCondition, gpointer data) -> gboolean {
        runAction(data);
        return G_SOURCE_CONTINUE;
    };
    g_source_set_callback(source.get(), G_SOURCE_FUNC(onReadable), new std::function(std::move(action)),
                          [](gpointer data) { delete static_cast<std::function<void()>*>(data); });
    g_source_attach(source.get(), context_.get());
    return source;
}

gpointer Loop::expect(Completion completion)
{
    ++expected_;
    return new Expected{expected_, std::move(completion)};
}

void Loop::complete(GObject* source, GAsyncResult* result, gpointer data)
{
    const std::unique_ptr<Expected> expected(static_cast<Expected*>(data));
    --expected->count;
    runtime::runGuarded("a backend has failed", [&] { expected->completion(source, result); });
}

}  // namespace unit
