#pragma once

#include <KYRConfig.h>
#include <KYRSystemInfo.h>

#include <mutex>

#include "platform/linux/Bus.h"
#include "platform/linux/Status.h"
#include "platform/linux/UnitConfig.h"

namespace unit {

/// The unit's versions from hostname1, os-release, uname and the configuration.
class SystemInformation : public KYRSystemInfo, private Bus::Follower
{
public:
    SystemInformation(std::array<UnitConfig::Version, 11> sources, Bus& systemBus, StatusBoard& board);
    ~SystemInformation() override;

    /// Answers what hostname1 said last, and asks it again for the next time.
    int GetVersionInfo(SystemInfo::VersionInfo& info) override;

private:
    void onBus(GDBusConnection* connection, const std::string& reason) override;
    void unwatch();
    void ask();
    void take(GVariant* properties);

    const std::array<UnitConfig::Version, 11> sources_;
    Bus& bus_;
    StatusBoard& board_;
    GDBusConnection* connection_ = nullptr;  // of the loop
    bool isAsking_ = false;                  // of the loop
    guint watch_ = 0;                        // of the loop
    std::mutex mutex_;
    SystemInfo::VersionInfo versions_;  // guarded by mutex_
};

/// The head unit's configuration: what unit.toml says.
class Configuration : public KYRLibConfigs
{
public:
    explicit Configuration(const UnitConfig& config) : flags_(config.flags), texts_(config.texts) {}

    int GetBool(const char* pKey) override;
    int GetText(const char* pKey, std::string& strValue) override;

private:
    const std::map<std::string, bool, std::less<>> flags_;
    const std::map<std::string, std::string, std::less<>> texts_;
};

}  // namespace unit
