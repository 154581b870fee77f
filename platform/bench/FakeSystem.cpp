#include "platform/bench/FakeSystem.h"

#include <KYRSystem.h>

#include <algorithm>

#include "platform/bench/RootText.h"
#include "platform/bench/Services.h"
#include "platform/runtime/System.h"

namespace bench {
namespace {

constexpr const char* kSystemService = "system";

bool beginsWithAny(const std::string& text, const std::vector<std::string>& beginnings)
{
    return std::ranges::any_of(beginnings, [&](const std::string& beginning) { return text.starts_with(beginning); });
}

}  // namespace

bool FakeSystem::execute(const std::string& command, bool waits)
{
    const std::string named = commandLessRoot(command, KYR_GetRootPath());
    context_.calls.add(kSystemService, "Execute", {named});
    if (beginsWithAny(named, context_.state.texts("/system/failing_commands"))) {
        return false;
    }
    return runtime::runShell(command, waits);
}

bool FakeSystem::remove(const std::string& path, bool force)
{
    const std::string named = pathLessRoot(path, KYR_GetRootPath());
    context_.calls.add(kSystemService, "RemoveFile", {named});
    if (beginsWithAny(named, context_.state.texts("/system/failing_removals"))) {
        return false;
    }
    return runtime::removeFiles(path, force);
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
