#include "platform/runtime/Report.h"

#include <gio/gio.h>

#include <cstdio>
#include <mutex>
#include <set>

#include "protocol/Text.h"

namespace runtime {
namespace {

const char* theProgram = "engineering-service";

/// A message may quote text of any size from another program.
constexpr std::size_t kMostText = 200;

/// Messages that name addresses or numbers never repeat.
constexpr std::size_t kMostMessages = 100;

std::string fieldOf(const GLogField* fields, gsize count, const char* name)
{
    for (gsize i = 0; i < count; ++i) {
        if (g_strcmp0(fields[i].key, name) == 0 && fields[i].length < 0) {
            return static_cast<const char*>(fields[i].value);
        }
    }
    return "";
}

/// @returns the text to report; empty for a message that was reported before.
std::string firstTime(const std::string& message)
{
    // Never destroyed: GLib's threads run until the process ends.
    static std::mutex& mutex = *new std::mutex;
    static auto& seen = *new std::set<std::string>;
    const std::lock_guard lock(mutex);
    if (seen.size() > kMostMessages || !seen.insert(message).second) {
        return "";
    }
    return seen.size() > kMostMessages ? "further messages of GLib are not shown" : message;
}

GLogWriterOutput writeMessage(GLogLevelFlags level, const GLogField* fields, gsize count, gpointer) noexcept
try {
    constexpr int kShown = G_LOG_LEVEL_ERROR | G_LOG_LEVEL_CRITICAL | G_LOG_LEVEL_WARNING;
    if ((level & kShown) == 0) {
        return g_log_writer_default(level, fields, count, nullptr);
    }
    const std::string message = firstTime(
        (fieldOf(fields, count, "GLIB_DOMAIN") + ": " + fieldOf(fields, count, "MESSAGE")).substr(0, kMostText));
    if (!message.empty()) {
        report(message);
    }
    return G_LOG_WRITER_HANDLED;
} catch (...) {
    return G_LOG_WRITER_UNHANDLED;
}

}  // namespace

void reportAs(const char* program)
{
    theProgram = program;
}

void report(const std::string& message)
{
    std::fprintf(stderr, "%s: %s\n", theProgram, protocol::printable(message).c_str());
}

void reportGlibMessagesOnce()
{
    g_log_set_writer_func(writeMessage, nullptr, nullptr);
}

}  // namespace runtime
