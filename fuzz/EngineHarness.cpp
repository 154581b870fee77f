#include "fuzz/EngineHarness.h"

#include <spawn.h>
#include <sys/wait.h>

#include <atomic>
#include <filesystem>

#include "fuzz/Fuzz.h"

namespace {

std::atomic<bool> g_commandsSucceed = true;

}  // namespace

// The linker uses these two instead of those that start the shell of the head unit.

extern "C" int __wrap_posix_spawn(pid_t* child, const char*, const posix_spawn_file_actions_t*,
                                  const posix_spawnattr_t*, char* const*, char* const*)
{
    *child = 1;
    return 0;
}

extern "C" pid_t __wrap_waitpid(pid_t child, int* status, int)
{
    *status = g_commandsSucceed ? 0 : 1 << 8;
    return child;
}

namespace fuzz {

EngineHarness::EngineHarness()
{
    // As the mkdir of the engine would.
    std::filesystem::create_directories(path("/perm_data/data/engineering"));
}

EngineHarness::~EngineHarness()
{
    g_commandsSucceed = true;
}

void EngineHarness::setCommandsSucceed(bool succeed)
{
    g_commandsSucceed = succeed;
}

void EngineHarness::check()
{
    unit.events().drain();
    for (const std::string& line : log.lines()) {
        expect(!line.starts_with("ERROR command 0x"), line);  // ended by an exception
    }
    for (const std::string& reply : station.replies()) {
        expect(!reply.starts_with("no frame"), reply);
    }

    // Longer than the longest frame, and no byte of it begins a frame.
    station.deliver(RecordedWire::Bytes(300, 0x55));
    station.clear();
    station.sendCommand(0x0F, 0xFF);
    const auto replies = station.replies();
    expect(replies.size() == 1 && replies[0].starts_with("8F FF ["), "the unit does not answer any more");
}

}  // namespace fuzz
