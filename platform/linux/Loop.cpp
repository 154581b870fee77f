#include "platform/linux/Loop.h"

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
}

void Loop::run()
{
    thread_ = std::thread([this] {
        g_main_context_push_thread_default(context_.get());
        while (!stopped_ || expected_ > 0) {
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

GSource* Loop::attach(std::chrono::milliseconds delay, std::function<void()> action)
{
    GSource* const source = g_timeout_source_new(static_cast<guint>(delay.count()));
    g_source_set_callback(source, runAction, new std::function(std::move(action)),
                          [](gpointer data) { delete static_cast<std::function<void()>*>(data); });
    g_source_attach(source, context_.get());
    return source;
}

void Loop::post(std::function<void()> action)
{
    g_source_unref(attach(std::chrono::milliseconds(0), std::move(action)));
}

host::GlibPtr<GSource> Loop::after(std::chrono::milliseconds delay, std::function<void()> action)
{
    return host::GlibPtr<GSource>(attach(delay, std::move(action)));
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
