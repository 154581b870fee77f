#include "platform/runtime/LogSystem.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <memory>
#include <system_error>

#include "KYRLog.h"
#include "KYRSystem.h"
#include "host/Descriptor.h"
#include "platform/runtime/Report.h"
#include "protocol/Errors.h"
#include "protocol/Text.h"

zlog_category_t* liblog_category = nullptr;

namespace runtime {
namespace {

/// Whether zlog has read a configuration. Only the thread that starts the service touches it.
bool g_configured = false;

constexpr const char* kLogFile = "log_engineering.log";

/// Logs info and above; a line names time, level, process and thread, place and function. zlog starts a new file at 1
/// MiB and keeps three old ones. By default, zlog would make a lock file in the current directory.
/// @param file path of the log, without a quote or a percent sign: zlog cannot express them
std::string builtInRules(const std::string& file)
{
    return "[global]\n"
           "strict init = true\n"
           "rotate lock file = /dev/null\n"
           "[formats]\n"
           "line = \"%d(%F %T).%ms %-5V %p:%k %F:%L %U() %m%n\"\n"
           "[rules]\n"
           "engineering.INFO \"" +
           file + "\", 1MB * 3 ~ \"" + file + ".#r\"; line\n";
}

/// @returns why there is no built-in log; empty if there is one.
std::string configureBuiltIn()
{
    const std::string path = std::string(KYR_GetRootPath()) + "/perm_data/log";
    // Stays open: zlog opens the log through it for every line, so the root may have any characters.
    auto directory = std::make_unique<const host::Descriptor>(open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!directory->valid()) {
        return path + ": " + std::generic_category().message(errno);
    }
    // zlog does not report a file that cannot be opened, and waits for ever for the reader of a pipe.
    const host::Descriptor log(openat(directory->get(), kLogFile,
                                      O_WRONLY | O_APPEND | O_CREAT | O_NONBLOCK | O_NOCTTY | O_CLOEXEC,
                                      S_IRUSR | S_IWUSR));
    const std::string file = "/proc/self/fd/" + std::to_string(directory->get()) + "/" + kLogFile;
    struct stat status {
    };
    if (log.valid() && fstat(log.get(), &status) == 0 && S_ISFIFO(status.st_mode)) {
        return path + "/" + kLogFile + ": expected a file, got a pipe";
    }
    if (!log.valid() || zlog_init_from_string(builtInRules(file).c_str()) != 0) {
        return path + "/" + kLogFile + ": cannot be written";
    }
    static const host::Descriptor* const kept = directory.release();
    return kept != nullptr ? "" : path;
}

}  // namespace

void useLogConfiguration(const std::string& file)
{
    // zlog reads a directory as an empty configuration, and waits for ever for the writer of a pipe.
    std::error_code error;
    if (!std::filesystem::is_regular_file(file, error)) {
        throw protocol::UserError(
            "--log-conf " + file + ": " +
            (error ? protocol::unreadable(error.value()) : "expected a file, got a directory or device"));
    }
    if (zlog_init(file.c_str()) != 0) {
        throw protocol::UserError("--log-conf " + file +
                                  ": expected a zlog configuration whose outputs can be opened, got another");
    }
    g_configured = true;
}

}  // namespace runtime

int log_system_init(const char* name)
{
    if (liblog_category != nullptr) {
        return 1;
    }
    if (!runtime::g_configured) {
        if (const std::string error = runtime::configureBuiltIn(); !error.empty()) {
            runtime::report("no log: " + error);
            return 0;
        }
        runtime::g_configured = true;
    }
    liblog_category = zlog_get_category(name);
    return liblog_category != nullptr ? 1 : 0;
}
