#pragma once

#include <KYRWifi.h>

#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/BusTree.h"
#include "platform/linux/Status.h"
#include "platform/linux/UnitConfig.h"

namespace unit {

/// The unit's access point over NetworkManager: a profile that has a name there, or one that is made in its memory.
class Wifi : public KYRWifi
{
public:
    /// @param serves false: nothing is made or activated
    /// @param isUp is called on the loop's thread when the access point is up, perhaps more than once
    Wifi(UnitConfig::Wifi config, Bus& systemBus, StatusBoard& board, bool serves, std::function<void()> isUp);

    int InitInstance() override { return 1; }

    /// The SSID of the profile, the last known one; empty before.
    std::string GetText() override;

    /// Activates the access point, and again whenever it ends. On the loop's thread.
    void activate();

private:
    void onPresence(const std::string& reason);
    void follow();
    void absent(const std::string& reason);
    std::string findDevice();
    bool isIn(guint32 wanted) const;
    void findProfile(std::vector<std::string> paths);
    void readProfile(const std::string& path, GVariant* settings);
    void addProfile();
    void tryActivation();

    const UnitConfig::Wifi config_;
    const std::string uuid_;  // of the profile that is made
    Bus& bus_;
    StatusBoard& board_;
    const bool serves_;
    const std::function<void()> isUp_;

    std::mutex mutex_;
    std::string text_;  // guarded by mutex_

    // Of the loop.
    bool isThere_ = false;  // NetworkManager
    bool isWanted_ = false;
    std::string device_;   // path
    std::string profile_;  // path; empty: not known
    std::string failure_;
    int asked_ = 0;  // number of the questions whose answers count
    int answersDue_ = 0;
    std::optional<std::vector<std::string>> searched_;  // paths of the profiles that are not the one
    host::GlibPtr<GSource> retry_;
    BusTree tree_;
};

}  // namespace unit
