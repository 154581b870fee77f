#include "station/identity/UnitIdentity.h"

#include <utility>

#include "protocol/catalogue/Catalogue.h"

namespace station::identity {

namespace {

namespace catalogue = protocol::catalogue;
using protocol::Frame;

constexpr std::string_view kMode = "test.mode";
constexpr std::string_view kSetMode = "test.set-mode";
constexpr std::string_view kControllerAddress = "bluetooth.address";
constexpr std::uint8_t kOff = 0;
constexpr std::uint8_t kOn = 1;

std::string hexDigits(const std::vector<std::uint8_t>& bytes)
{
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    std::string text;
    for (const std::uint8_t byte : bytes) {
        text += kDigits[byte >> 4];
        text += kDigits[byte & 0x0F];
    }
    return text;
}

bool isOn(const Frame& mode)
{
    return !mode.params.empty() && mode.params.front() == kOn;
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
        ask(command(kSetMode), {kOn});
    }
}

void UnitIdentity::keepTestMode()
{
    if (modeBefore_ && !isOn(ask(command(kMode)))) {
        ask(command(kSetMode), {kOn});
    }
}

void UnitIdentity::restoreMode()
{
    if (std::exchange(modeBefore_, std::nullopt) == false) {
        ask(command(kSetMode), {kOff});
    }
}

Stored UnitIdentity::read(const Record& record)
{
    const Frame reply = ask(*record.read);
    // A missing record is answered with no characters, under whatever code.
    if (!record.presenceOnly) {
        return {!reply.params.empty(), {reply.params.begin(), reply.params.end()}};
    }
    Stored stored{!reply.params.empty() && reply.params.front() != 0, {}};
    // The unit says nothing when its controller's address is not hexadecimal.
    if (const auto address = tryToAsk(command(kControllerAddress), {})) {
        stored.value = hexDigits(address->params);
    }
    return stored;
}

void UnitIdentity::write(const Record& record, std::string_view value)
{
    connection_.send(writeFrame(record, value));
}

Frame UnitIdentity::ask(const catalogue::Command& command, std::vector<std::uint8_t> params)
{
    if (auto reply = tryToAsk(command, params)) {
        return *std::move(reply);
    }
    // A unit that started again meanwhile has left auto-test mode.
    if (modeBefore_ && &command != &this->command(kMode)) {
        const auto mode = tryToAsk(this->command(kMode), {});
        if (mode && !isOn(*mode) && tryToAsk(this->command(kSetMode), {kOn})) {
            if (auto reply = tryToAsk(command, params)) {
                return *std::move(reply);
            }
        }
    }
    std::string message = "no reply to " + catalogue::fullKey(groups_, command) + " came in time";
    if (corrupt_ > 0) {
        message += "; frames with a wrong checksum: " + std::to_string(corrupt_);
    }
    throw NoAnswer(message);
}

std::optional<Frame> UnitIdentity::tryToAsk(const catalogue::Command& command, const std::vector<std::uint8_t>& params)
{
    const auto outcome = connection_.request(
        {command.cmdOne, command.cmdTwo, params},
        [&](const Frame& frame) { return catalogue::answers(command, frame); }, timeout_, command.repeatable);
    corrupt_ = outcome.corrupt;
    return outcome.reply;
}

const catalogue::Command& UnitIdentity::command(std::string_view key) const
{
    const catalogue::Command* found = catalogue::findCommand(groups_, key);
    if (found == nullptr) {
        throw std::logic_error("the catalogue has no " + std::string(key));
    }
    return *found;
}

}  // namespace station::identity
