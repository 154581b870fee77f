#include "platform/runtime/LogSystem.h"

#include <fcntl.h>

#include <cerrno>
#include <filesystem>
#include <system_error>
#include <utility>

#include "KYRLog.h"
#include "KYRSystem.h"
#include "platform/runtime/Descriptor.h"
#include "platform/runtime/Report.h"
#include "platform/runtime/RotatingLog.h"

zlog_category_t* liblog_category = nullptr;

namespace runtime {
namespace {

/// Whether zlog has read a configuration. Only the thread that starts the service touches it.
bool g_configured = false;

/// A part of the built-in log, and how many old ones are kept.
constexpr off_t kLogPartSize = 1 << 20;
constexpr int kOldLogParts = 3;

/// Lines that name time, level, process and thread, place and function, handed to writeLine(): zlog's own rotating
/// output opens and closes the file for every line, which is most of what a line costs. No lock file is wanted, either;
/// left to itself, zlog would make one in the current directory.
constexpr const char* kBuiltInRules =
    "[global]\n"
    "strict init = true\n"
    "rotate lock file = /dev/null\n"
    "[formats]\n"
    "line = \"%d(%F %T).%ms %-5V %p:%k %F:%L %U() %m%n\"\n"
    "[rules]\n"
    "engineering.INFO $builtin; line\n";

/// The built-in log's file. Stays: threads that log end with the process.
RotatingLog* g_log = nullptr;

/// What zlog calls for each line, on the thread that logs it and with a lock of its own: nothing may be thrown there.
int writeLine(zlog_msg_t* line) noexcept
try {
    return g_log->add({line->buf, line->len}) ? 0 : -1;
} catch (...) {
    return -1;
}

/// @returns why there is no built-in log, empty when there is.
std::string configureBuiltIn()
{
    const std::string path = std::string(KYR_GetRootPath()) + "/perm_data/log";
    static Descriptor* directory = nullptr;
    delete std::exchange(g_log, nullptr);
    delete directory;
    directory = new Descriptor(open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!directory->valid())
        return path + ": " + std::generic_category().message(errno);

    g_log = new RotatingLog(directory->get(), "log_engineering.log", kLogPartSize, kOldLogParts);
    if (!g_log->open() || zlog_init_from_string(kBuiltInRules) != 0 || zlog_set_record("builtin", writeLine) != 0)
        return path + "/log_engineering.log cannot be written";
    return "";
}

}  // namespace

std::string useLogConfiguration(const std::string& file)
{
    // zlog takes a directory for an empty configuration, and would wait for ever for the writer of a pipe.
    std::error_code error;
    if (!std::filesystem::is_regular_file(file, error))
        return "the log configuration " + file + " cannot be read: " + (error ? error.message() : "it is no file");
    if (zlog_init(file.c_str()) != 0)
        return "the log configuration " + file + " cannot be used: zlog refuses it, or cannot open an output of it";
    g_configured = true;
    return "";
}

}  // namespace runtime

int log_system_init(const char* name)
{
    if (liblog_category != nullptr)
        return 1;
    if (!runtime::g_configured) {
        if (const std::string error = runtime::configureBuiltIn(); !error.empty()) {
            runtime::report("there is no log: " + error);
            return 0;
        }
        runtime::g_configured = true;
    }
    liblog_category = zlog_get_category(name);
    return liblog_category != nullptr ? 1 : 0;
}
