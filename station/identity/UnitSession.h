#pragma once

#include <functional>
#include <string>

#include "station/Connection.h"
#include "station/identity/UnitIdentity.h"

namespace station::identity {

/// A conversation with the unit on a port, in auto-test mode. For one thread.
class UnitSession
{
public:
    using Warn = std::function<void(const std::string&)>;

    /// Opens the port. Throws what the Connection throws.
    /// @param warn gets the reason if the unit's mode could not be restored and something else ends the session
    UnitSession(const PortSpec& port, const Connection::Options& options, Connection::Duration timeout, Warn warn);

    /// Runs `work` in auto-test mode, then restores the unit's mode, also after an exception, which goes on. Throws
    /// Interrupted if the user ends the restoring of a session that passed.
    /// @returns the exit status that `work` returned
    int run(const std::function<int(UnitIdentity&)>& work);

private:
    /// @param failure the error that ended the work; empty for none
    void restore(bool passed, const std::string& failure);

    Interrupt* interrupt_;
    Warn warn_;
    Connection connection_;
    UnitIdentity unit_;
};

}  // namespace station::identity
