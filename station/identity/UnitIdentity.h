#pragma once

#include <optional>
#include <string>
#include <vector>

#include "protocol/Errors.h"
#include "protocol/catalogue/Codec.h"
#include "station/Connection.h"
#include "station/identity/IdentityRecord.h"

namespace station::identity {

/// The unit did not answer.
class NoAnswer : public protocol::LineError
{
public:
    explicit NoAnswer(const std::string& line) : LineError(line, protocol::kNoAnswer) {}
};

/// An identity record as the unit reports it.
struct Stored {
    bool present = false;
    /// The characters. For a record of which the unit only reports the presence: the address that the Bluetooth
    /// controller uses, if the unit reports it; the controller uses a written address from the unit's next start.
    std::string value;
};

/// The identity records of the unit on a line. Switches auto-test mode on; without it the unit answers nothing else.
/// Every function throws what the Connection throws, and NoAnswer.
class UnitIdentity
{
public:
    /// @param groups the catalogue; outlives this, as does `connection`.
    UnitIdentity(Connection& connection, protocol::catalogue::Groups groups, Connection::Duration timeout);

    /// Switches auto-test mode on and remembers the mode before.
    void enterTestMode();

    /// Switches the mode on again if the unit has left it, as a unit that started again has.
    void keepTestMode();

    /// Restores the mode that the unit had, if `enterTestMode` has changed it.
    void restoreMode();

    Stored read(const Record& record);

    /// Writes without reading back. The unit does not answer.
    /// @param value normalised.
    void write(const Record& record, std::string_view value);

private:
    using Arguments = std::vector<protocol::catalogue::Argument>;

    protocol::Frame ask(const protocol::catalogue::Command& command, const Arguments& arguments = {});
    std::optional<protocol::Frame> tryToAsk(const protocol::catalogue::Command& command,
                                            const Arguments& arguments = {});
    bool isOn(const protocol::Frame& mode) const;
    const protocol::catalogue::Command& command(std::string_view key) const;

    Connection& connection_;
    protocol::catalogue::Groups groups_;
    Connection::Duration timeout_;
    std::optional<bool> modeBefore_;
    std::size_t corrupt_ = 0;  // during the last question
};

}  // namespace station::identity
