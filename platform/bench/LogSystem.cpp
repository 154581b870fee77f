#include "LogSystem.h"

#include <fcntl.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

#include "Descriptor.h"
#include "KYRLog.h"
#include "KYRSystem.h"
#include "Report.h"

zlog_category_t* liblog_category = nullptr;

namespace bench {
namespace {

/// Whether zlog has read a configuration. Only the thread that starts the service touches it.
bool g_configured = false;

/// The built-in rules for the log in `directory`: lines that name time, level, process and thread, place and function.
/// The lock file's name keeps away from "log_engineering*", which a factory reset removes; left to itself, zlog would
/// make one in the current directory.
std::string builtInRules(const std::string& directory)
{
    return "[global]\n"
           "strict init = true\n"
           "file perms = 600\n"
           "rotate lock file = " +
           directory +
           "/.engineering.lock\n"
           "[formats]\n"
           "line = \"%d(%F %T).%ms %-5V %p:%k %F:%L %U() %m%n\"\n"
           "[rules]\n"
           "engineering.INFO \"" +
           directory + "/log_engineering.log\", 1MB * 3; line\n";
}

/// @returns why there is no built-in log, empty when there is.
std::string configureBuiltIn()
{
    // zlog's rules have no way to quote blanks, quotation marks, commas and the like, and its rotation takes brackets
    // for patterns. So the directory is named by an open descriptor, which stays open as long as there is a log.
    const std::string path = std::string(KYR_GetRootPath()) + "/perm_data/log";
    static Descriptor* directory = nullptr;
    delete directory;
    directory = new Descriptor(open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!directory->valid())
        return path + ": " + std::generic_category().message(errno);

    const std::string rules = builtInRules("/proc/self/fd/" + std::to_string(directory->get()));
    if (zlog_init_from_string(rules.c_str()) != 0)
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

}  // namespace bench

int log_system_init(const char* name)
{
    if (liblog_category != nullptr)
        return 1;
    if (!bench::g_configured) {
        if (const std::string error = bench::configureBuiltIn(); !error.empty()) {
            bench::report("there is no log: " + error);
            return 0;
        }
        bench::g_configured = true;
    }
    liblog_category = zlog_get_category(name);
    return liblog_category != nullptr ? 1 : 0;
}
