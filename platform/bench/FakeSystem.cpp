#include "platform/bench/FakeSystem.h"

#include <KYRSystem.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <system_error>

#include "platform/bench/RootText.h"
#include "platform/bench/Services.h"

extern char** environ;

namespace bench {
namespace {

namespace fs = std::filesystem;

constexpr const char* kSystemService = "system";

bool beginsWithAny(const std::string& text, const std::vector<std::string>& beginnings)
{
    return std::ranges::any_of(beginnings, [&](const std::string& beginning) { return text.starts_with(beginning); });
}

/// Starts a child with default signal handling, no blocked signals, and only the standard descriptors.
class SpawnSettings
{
public:
    SpawnSettings()
    {
        sigset_t none;
        sigset_t all;
        sigemptyset(&none);
        sigfillset(&all);
        posix_spawnattr_init(&attributes_);
        posix_spawnattr_setsigmask(&attributes_, &none);
        posix_spawnattr_setsigdefault(&attributes_, &all);
        posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
        posix_spawn_file_actions_init(&actions_);
        posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_adddup2(&actions_, STDERR_FILENO, STDOUT_FILENO);
        posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1);
    }
    ~SpawnSettings()
    {
        posix_spawn_file_actions_destroy(&actions_);
        posix_spawnattr_destroy(&attributes_);
    }
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;

    const posix_spawnattr_t* attributes() const { return &attributes_; }
    const posix_spawn_file_actions_t* actions() const { return &actions_; }

private:
    posix_spawnattr_t attributes_;
    posix_spawn_file_actions_t actions_;
};

/// Runs a command. The only place that does.
/// @returns whether the shell exited with status 0.
bool runShell(std::string command, bool waits)
{
    std::string shell = "sh";
    std::string option = "-c";
    // If nothing waits for the command, the shell leaves it in the background, and init reaps it.
    std::string script = waits ? command : R"(eval "$1" &)";
    char* const arguments[] = {shell.data(), option.data(), script.data(), shell.data(), command.data(), nullptr};

    const SpawnSettings settings;
    pid_t child = 0;
    if (posix_spawn(&child, "/bin/sh", settings.actions(), settings.attributes(), arguments, environ) != 0) {
        return false;
    }
    int status = 0;
    while (waitpid(child, &status, 0) == -1) {
        if (errno != EINTR) {
            return false;
        }
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

/// @returns whether the file does not exist now.
bool removeFile(const std::string& path, bool force)
{
    if (!force && access(path.c_str(), F_OK) == 0 && access(path.c_str(), W_OK) != 0) {
        return false;
    }
    return unlink(path.c_str()) == 0 || errno == ENOENT || errno == ENOTDIR;
}

/// @returns whether no file with this beginning of its path is left.
bool removeFilesThatBegin(const std::string& beginning, bool force)
{
    const fs::path directory = fs::path(beginning).parent_path();
    const std::string nameBegins = fs::path(beginning).filename();
    std::error_code error;
    fs::directory_iterator entry(directory.empty() ? "." : directory, error);
    if (error) {
        return error == std::errc::no_such_file_or_directory;
    }

    std::vector<std::string> files;  // read first: removing while reading may skip entries
    for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
        std::error_code unknown;
        const bool isDirectory = entry->symlink_status(unknown).type() == fs::file_type::directory;
        if (!isDirectory && entry->path().filename().string().starts_with(nameBegins)) {
            files.push_back(entry->path());
        }
    }
    if (error) {
        return false;
    }
    // Tries all files, even after a failure.
    return std::ranges::count_if(files, [force](const std::string& file) { return !removeFile(file, force); }) == 0;
}

}  // namespace

bool FakeSystem::execute(const std::string& command, bool waits)
{
    const std::string named = commandLessRoot(command, KYR_GetRootPath());
    context_.calls.add(kSystemService, "Execute", {named});
    if (beginsWithAny(named, context_.state.texts("/system/failing_commands"))) {
        return false;
    }
    return runShell(command, waits);
}

bool FakeSystem::remove(const std::string& path, bool force)
{
    const std::string named = pathLessRoot(path, KYR_GetRootPath());
    context_.calls.add(kSystemService, "RemoveFile", {named});
    if (beginsWithAny(named, context_.state.texts("/system/failing_removals"))) {
        return false;
    }
    if (path.ends_with('*')) {
        return removeFilesThatBegin(path.substr(0, path.size() - 1), force);
    }
    return removeFile(path, force);
}

}  // namespace bench

int KYR_ExecSystemCmd(const char* pCommand, int nWait)
{
    bench::Services* const services = bench::installedServices();
    return services != nullptr && pCommand != nullptr && services->system.execute(pCommand, nWait == 1) ? 1 : 0;
}

int KYR_RemoveFile(const char* pPath, int nForce)
{
    bench::Services* const services = bench::installedServices();
    return services != nullptr && pPath != nullptr && services->system.remove(pPath, nForce == 1) ? 1 : 0;
}

// The proxies run in the process of the bench: there is nothing to start.
int KYR_StartSystemProxy()
{
    return bench::installedServices() == nullptr ? 0 : 1;
}
