#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "protocol/catalogue/Codec.h"
#include "station/Connection.h"
#include "station/identity/Record.h"

namespace station::identity {

/// The unit did not answer.
class NoAnswer : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// What a unit has under a record's name.
struct Stored {
    bool present = false;
    /// The characters; for a record of which the unit only tells the presence, the value that runs, if the unit tells:
    /// the Bluetooth controller's address, which becomes the written one when the unit starts again.
    std::string value;
};

/// The identity records of the unit on a line. Switches auto-test mode on, as the unit answers nothing else without.
/// Every function throws what the Connection throws, and NoAnswer.
class UnitIdentity
{
public:
    /// @param groups the catalogue; outlives this, as does `connection`.
    UnitIdentity(Connection& connection, protocol::catalogue::Groups groups, Connection::Duration timeout);

    /// Switches auto-test mode on and remembers what it was before.
    void enterTestMode();

    /// Switches the mode on again when a unit that was put into it has left it, as one that started again has.
    void keepTestMode();

    /// Gives the unit the mode back that it had; nothing when it was on before, or `enterTestMode` found nothing out.
    void restoreMode();

    Stored read(const Record& record);

    /// Writes without looking. The unit answers nothing.
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
