#pragma once

#include <KYRSystemUpdate.h>

#include <chrono>
#include <functional>
#include <map>
#include <string>

#include "platform/linux/Bus.h"
#include "platform/linux/Status.h"
#include "platform/runtime/Report.h"

namespace unit {

/// The system update over RAUC: a request installs the bundle of its code. Progress and result are reported, since the
/// service does not ask for them.
class SystemUpdate : public KYRSystemUpdate
{
public:
    /// @param bundles paths by the codes of the requests
    /// @param retry time between two starts of RAUC while it does not run
    SystemUpdate(std::map<int, std::string> bundles, Bus& systemBus, StatusBoard& board,
                 runtime::Reporter reporter = runtime::report,
                 std::chrono::milliseconds retry = std::chrono::seconds(30));

    /// Refused with a report if the code has no bundle or a bundle is being installed.
    void Request(int nCode) override;

private:
    void onPresence(const std::string& reason);
    void start(std::function<void(const std::string& error)> done);
    void install(int code, const std::string& bundle);
    void showProgress();
    void ended(const std::string& error);

    void report(const std::string& what) const { reporter_("system-update: " + what); }

    const std::map<int, std::string> bundles_;
    Bus& bus_;
    StatusBoard& board_;
    const runtime::Reporter reporter_;
    const std::chrono::milliseconds retryAfter_;

    // Of the loop.
    std::string absence_;  // why RAUC is not there; empty while it is
    host::GlibPtr<GSource> retry_;
    int requests_ = 0;
    std::string installing_;  // the bundle; empty while this object installs none
    std::string progress_;    // the last one reported
    BusObject driver_;
    BusObject rauc_;
};

}  // namespace unit
