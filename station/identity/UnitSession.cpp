#include "station/identity/UnitSession.h"

#include <fmt/format.h>

#include <utility>

#include "protocol/Errors.h"
#include "protocol/catalogue/Catalogue.h"

namespace station::identity {

namespace {

/// For a device that has gone, once the user wants an end.
constexpr auto kRestoreReconnect = std::chrono::seconds(1);

}  // namespace

UnitSession::UnitSession(const PortSpec& port, const Connection::Options& options, Connection::Duration timeout,
                         Warn warn)
    : interrupt_(options.interrupt)
    , warn_(std::move(warn))
    , connection_(port, options)
    , unit_(connection_, protocol::catalogue::groups(), timeout)
{
}

int UnitSession::run(const std::function<int(UnitIdentity&)>& work)
{
    int status = protocol::kPassed;
    try {
        unit_.enterTestMode();
        status = work(unit_);
    } catch (const std::exception& error) {
        restore(false, error.what());
        throw;
    }
    restore(status == protocol::kPassed, "");
    return status;
}

void UnitSession::restore(bool passed, const std::string& failure)
{
    // Ctrl-C ends the work, but not the cleaning up after it.
    const bool interrupted = interrupt_ != nullptr && interrupt_->requested();
    if (interrupted) {
        interrupt_->clear();
        connection_.waitAtMost(kRestoreReconnect);
    }
    const auto leftOn = [](const std::exception& error) {
        return fmt::format("auto-test mode may be left on: {}", error.what());
    };
    try {
        unit_.restoreMode();
    } catch (const Interrupted& error) {
        if (passed) {
            throw Interrupted(leftOn(error));
        }
        warn_(leftOn(error));
    } catch (const NoAnswer& error) {
        if (error.what() != failure) {
            warn_(leftOn(error));
        }
    } catch (const std::exception& error) {
        warn_(leftOn(error));
    }
    if (interrupted) {
        interrupt_->request();
    }
}

}  // namespace station::identity
