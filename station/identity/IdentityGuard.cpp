#include "station/identity/IdentityGuard.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "protocol/catalogue/Catalogue.h"
#include "protocol/catalogue/Codec.h"

namespace station::identity {

namespace {

namespace catalogue = protocol::catalogue;

/// The unit answers once the record before is on its disk, and a flash may be slow.
constexpr auto kReadBackPatience = std::chrono::seconds(5);

/// @returns the value that the unit holds; nothing if it does not answer.
std::optional<std::string> read(Connection& connection, const Record& record)
{
    const auto outcome = connection.request(
        catalogue::encode(*record.read, {}),
        [&](const protocol::Frame& frame) { return catalogue::answers(*record.read, frame); }, kReadBackPatience,
        record.read->repeatable);
    if (!outcome.reply) {
        return std::nullopt;
    }
    return std::string(outcome.reply->params.begin(), outcome.reply->params.end());
}

/// Reads the serial number and the record to write; of a unit without a serial number, all unique records.
/// @param known whether it is known which unit this is
/// @returns the values that the unit holds; none if it does not answer.
Values readHeld(Connection& connection, Records records, const UnitRules& rules, const Record& written, bool known)
{
    Values held;
    const auto take = [&](const Record& record) {
        const bool readable = record.unique && !record.presenceOnly && !held.contains(record.name);
        const auto value = readable ? read(connection, record) : std::optional<std::string>("");
        if (value && !value->empty()) {
            held.emplace(record.name, *value);
        }
        return value.has_value();
    };
    if (const Record* serial = find(records, rules.serial.name)) {
        if (!take(*serial)) {
            return {};
        }
        const auto value = held.find(serial->name);
        known = known || (value != held.end() && !rules.isPlaceholder(*serial, value->second));
    }
    take(written);
    for (const Record& record : records) {
        if (!known && !take(record)) {
            break;
        }
    }
    return held;
}

}  // namespace

IdentityGuard::IdentityGuard(Records records, const UnitRules& rules, const GuardTerms& terms, OpenRegistry open)
    : records_(records), rules_(rules), terms_(terms), open_(std::move(open))
{
}

IdentityGuard::~IdentityGuard()
{
    if (sent_.empty()) {
        return;
    }
    try {
        registry_->conclude(*unit_, sent_);
    } catch (const std::exception&) {
        // The values stay "sending"; no other unit gets them.
    }
}

/// @returns false if the unit on the line is not the one that got the last value, although the line was not lost.
bool IdentityGuard::holdsWitness(Connection& connection)
{
    const auto& [record, value] = witness_;
    if (record == nullptr) {
        return true;
    }
    const auto held = read(connection, *record);
    return held && registryText(*record, *held) == registryText(*record, value);
}

void IdentityGuard::concludeVerified()
{
    std::vector<Registry::Arrival> verified;
    std::ranges::copy_if(sent_, std::back_inserter(verified),
                         [](const Registry::Arrival& one) { return one.state == State::kVerified; });
    if (verified.empty()) {
        return;
    }
    try {
        registry_->conclude(*unit_, verified);
        std::erase_if(sent_, [](const Registry::Arrival& one) { return one.state == State::kVerified; });
    } catch (const protocol::StorageError&) {
        // The connection's end tries again.
    }
}

bool IdentityGuard::check(Connection& connection, const protocol::Frame& command)
{
    concludeVerified();
    const auto found = std::ranges::find_if(records_, [&](const Record& record) {
        return record.write->cmdOne == command.cmdOne && record.write->cmdTwo == command.cmdTwo;
    });
    if (found == records_.end() || command.params.empty()) {
        return false;
    }
    const std::string value(command.params.begin(), command.params.end());
    std::string objection = mangled(*found, value);
    if (objection.empty()) {
        objection = rules_.objection(*found, value);
    }
    if (objection.empty() && !terms_.allowAnyAddress) {
        objection = reservedAddress(*found, value);
    }
    if (!objection.empty()) {
        throw protocol::UserError(objection, protocol::kFailed);
    }
    if (!found->unique || rules_.isPlaceholder(*found, value)) {
        return false;
    }
    if (registry_ == nullptr) {
        registry_ = open_(Registry::Access::kGive);
    }
    const auto known = unit_ ? unit_ : terms_.unit;
    lost_ = known && (lost_ || !holdsWitness(connection));
    const bool same = known && !lost_;
    UnitOnLine line = terms_.line;
    line.held = readHeld(connection, records_, rules_, *found, same);
    const auto [unit, gives] = registry_->send(*found, value, line, lost_ ? std::nullopt : known);
    if (unit_ && *unit_ != unit) {
        registry_->conclude(*unit_, sent_);
        sent_.clear();
    }
    unit_ = unit;
    if (!found->presenceOnly) {
        witness_ = {&*found, value};
    } else if (lost_) {
        witness_ = {};
    }
    lost_ = false;
    if (gives) {
        sent_.push_back({&*found, value, State::kSending});
    }
    return true;
}

void IdentityGuard::on(const TraceEvent& event)
{
    lost_ = lost_ || event.kind == TraceEvent::Kind::kLost;
    const std::string value(event.frame.params.begin(), event.frame.params.end());
    for (Registry::Arrival& one : sent_) {
        const Record& record = *one.record;
        if (event.kind == TraceEvent::Kind::kSent && !event.aside && one.state != State::kVerified) {
            const auto is = [&](const catalogue::Command& command) {
                return command.cmdOne == event.frame.cmdOne && command.cmdTwo == event.frame.cmdTwo;
            };
            // After a question, the answer counts.
            one.state = is(*record.write) ? State::kWritten : is(*record.read) ? State::kSending : one.state;
        } else if (event.kind == TraceEvent::Kind::kReceived && catalogue::answers(*record.read, event.frame)) {
            const bool present = record.presenceOnly && !value.empty() && value.front() != 0;
            const bool equal = !record.presenceOnly && registryText(record, value) == registryText(record, one.value);
            one.state = equal ? State::kVerified : present ? State::kWritten : one.state;
        }
    }
}

}  // namespace station::identity
