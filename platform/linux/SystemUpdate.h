#pragma once

#include <KYRSystemUpdate.h>

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
    SystemUpdate(std::map<int, std::string> bundles, Bus& systemBus, StatusBoard& board,
                 runtime::Reporter reporter = runtime::report);

    /// Refused with a report if the code has no bundle or a bundle is being installed.
    void Request(int nCode) override;

private:
    void install(int code, const std::string& bundle);
    void showProgress();
    void ended(const std::string& error);

    void report(const std::string& what) const { reporter_("system-update: " + what); }

    const std::map<int, std::string> bundles_;
    Bus& bus_;
    const runtime::Reporter reporter_;

    // Of the loop.
    int requests_ = 0;
    std::string installing_;  // the bundle; empty while this object installs none
    std::string progress_;    // the last one reported
    BusObject driver_;
    BusObject rauc_;
};

}  // namespace unit
