#include "platform/runtime/System.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <system_error>
#include <vector>

extern char** environ;

namespace runtime {
namespace {

namespace fs = std::filesystem;

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

bool removeFiles(const std::string& path, bool force)
{
    return path.ends_with('*') ? removeFilesThatBegin(path.substr(0, path.size() - 1), force) : removeFile(path, force);
}

}  // namespace runtime
