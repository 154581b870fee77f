#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "station/Connection.h"
#include "station/identity/Registry.h"

namespace station::identity {

/// What the user says about the unit on the line.
struct GuardTerms {
    UnitOnLine line = {};  ///< without the values that the unit holds
    bool allowAnyAddress = false;
    /// The unit for which values have been reserved in this session.
    std::optional<UnitId> unit = {};
};

/// The one place where the registry is asked: every frame that writes a unique record passes it before it leaves a
/// connection, whoever sends it. The guard first asks the unit which one it is. A unit that does not answer is unknown
/// and gets only new values. The guard also refuses addresses that no device may have, and values that the station's
/// rules do not allow. At the connection's end it notes how the values have arrived.
class IdentityGuard : public SendGuard
{
public:
    /// @param records,rules,terms outlive the guard; `terms` may change between two frames.
    IdentityGuard(Records records, const UnitRules& rules, const GuardTerms& terms, OpenRegistry open);
    ~IdentityGuard() override;

    bool check(Connection& connection, const protocol::Frame& command) override;
    void on(const TraceEvent& event) override;

private:
    bool holdsWitness(Connection& connection);
    void concludeVerified();

    Records records_;
    const UnitRules& rules_;
    const GuardTerms& terms_;
    OpenRegistry open_;
    std::unique_ptr<Registry> registry_;
    std::optional<UnitId> unit_;
    bool lost_ = false;
    /// The readable value that was sent last: a unit that does not hold it is another one.
    std::pair<const Record*, std::string> witness_;
    std::vector<Registry::Arrival> sent_;
};

}  // namespace station::identity
