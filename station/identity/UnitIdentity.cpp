#include "station/identity/UnitIdentity.h"

#include <fmt/format.h>

#include <utility>

#include "protocol/catalogue/Catalogue.h"
#include "protocol/catalogue/HexBytes.h"

namespace station::identity {

namespace {

namespace catalogue = protocol::catalogue;
using protocol::Frame;

constexpr std::string_view kMode = "test.mode";
constexpr std::string_view kSetMode = "test.set-mode";
constexpr std::string_view kControllerAddress = "bluetooth.address";

std::vector<catalogue::Argument> mode(std::string_view name)
{
    return {{"mode", std::string(name)}};
}

}  // namespace

UnitIdentity::UnitIdentity(Connection& connection, catalogue::Groups groups, Connection::Duration timeout)
    : connection_(connection), groups_(groups), timeout_(timeout)
{
}

void UnitIdentity::enterTestMode()
{
    const bool before = isOn(ask(command(kMode)));
    modeBefore_ = before;
    if (!before) {
        ask(command(kSetMode), mode("on"));
    }
}

void UnitIdentity::keepTestMode()
{
    if (modeBefore_ && !isOn(ask(command(kMode)))) {
        ask(command(kSetMode), mode("on"));
    }
}

void UnitIdentity::restoreMode()
{
    if (std::exchange(modeBefore_, std::nullopt) == false) {
        ask(command(kSetMode), mode("off"));
    }
}

Stored UnitIdentity::read(const Record& record)
{
    const Frame reply = ask(*record.read);
    // The reply for a missing record has no characters, whatever its code.
    if (!record.presenceOnly) {
        return {!reply.params.empty(), {reply.params.begin(), reply.params.end()}};
    }
    Stored stored{!reply.params.empty() && reply.params.front() != 0, {}};
    // The unit does not answer if its controller's address is not hexadecimal.
    if (const auto address = tryToAsk(command(kControllerAddress))) {
        stored.value = catalogue::formatHexBytes(address->params, "");
    }
    return stored;
}

void UnitIdentity::write(const Record& record, std::string_view value)
{
    connection_.send(writeFrame(record, value));
}

Frame UnitIdentity::ask(const catalogue::Command& command, const Arguments& arguments)
{
    if (auto reply = tryToAsk(command, arguments)) {
        return *std::move(reply);
    }
    // A unit that has started again meanwhile has left auto-test mode.
    if (modeBefore_ && &command != &this->command(kMode)) {
        const auto now = tryToAsk(this->command(kMode));
        if (now && !isOn(*now) && tryToAsk(this->command(kSetMode), mode("on"))) {
            if (auto reply = tryToAsk(command, arguments)) {
                return *std::move(reply);
            }
        }
    }
    throw NoAnswer(fmt::format("{}: expected a reply within {} s, got none{}", catalogue::fullKey(groups_, command),
                               std::chrono::duration<double>(timeout_).count(),
                               corrupt_ == 0 ? "" : fmt::format("; frames with a wrong checksum: {}", corrupt_)));
}

bool UnitIdentity::isOn(const Frame& mode) const
{
    const auto decoded = catalogue::decodeFromUnit(groups_, mode, &command(kMode));
    return !decoded.fields.empty() && decoded.fields.front().choice() == "on";
}

std::optional<Frame> UnitIdentity::tryToAsk(const catalogue::Command& command, const Arguments& arguments)
{
    const auto outcome = connection_.request(
        catalogue::encode(command, arguments), [&](const Frame& frame) { return catalogue::answers(command, frame); },
        timeout_, command.repeatable);
    corrupt_ = outcome.corrupt;
    return outcome.reply;
}

const catalogue::Command& UnitIdentity::command(std::string_view key) const
{
    const catalogue::Command* found = catalogue::findCommand(groups_, key);
    if (found == nullptr) {
        throw std::logic_error(fmt::format("the catalogue has no {}", key));
    }
    return *found;
}

}  // namespace station::identity
