#include "platform/linux/Power.h"

#include <utility>

#include "platform/runtime/Report.h"

namespace unit {
namespace {

constexpr std::chrono::seconds kLogindDeadline{10};

}  // namespace

Power::Power(UnitConfig::Power config, Bus& systemBus, Systemd& systemd, StatusBoard& board)
    : config_(std::move(config))
    , bus_(systemBus)
    , systemd_(systemd)
    , logind_(systemBus, {"org.freedesktop.login1", "/org/freedesktop/login1", "org.freedesktop.login1.Manager"},
              {.presence = [&board](const std::string& reason) {
                  board.set("power", reason.empty() ? State::kUp : State::kAbsent, reason);
              }})
{
}

void Power::SetPowerState(PowerState eState)
{
    if (eState != PS_SHUT_DOWN) {
        runtime::report("power: expected the state 3 (shut down), got " + std::to_string(eState));
        return;
    }
    askLogind("PowerOff");
}

void Power::RestartSystem()
{
    askLogind("Reboot");
}

void Power::askLogind(const char* method)
{
    // Not interactive: no person is there whom polkit could ask.
    bus_.loop().post([this, method] { logind_.call(method, g_variant_new("(b)", FALSE), kLogindDeadline); });
}

void Power::SwitchPowerMode(int nOn)
{
    isOn_ = nOn == 1;
    if (config_.standbyUnit.empty()) {
        return;
    }
    bus_.loop().post([this, isOn = nOn == 1] {
        if (isOn) {
            systemd_.stop(config_.standbyUnit);
        } else {
            systemd_.start(config_.standbyUnit);
        }
    });
}

}  // namespace unit
