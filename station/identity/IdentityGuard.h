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

/// What a user has said of the unit on the line, for the frames that write its records.
struct GuardTerms {
    std::string label = {};
    std::string reissue = {};
    bool erased = false;
    bool allowAnyAddress = false;
    /// The unit for which values have been reserved in this session.
    std::optional<UnitId> unit = {};
};

/// The one place where the registry is asked: no frame that writes a unique record leaves a connection without it,
/// whoever sends it. Asks the unit first which one it is; a unit that does not answer is an unknown one, which gets
/// new values only. Also refuses addresses that no device has and values that the station's rules do not allow.
/// At the connection's end it notes how the values have arrived.
class IdentityGuard : public SendGuard
{
public:
    using OpenRegistry = std::function<std::unique_ptr<Registry>()>;

    /// @param records,rules,terms outlive the guard; `terms` may change between two frames.
    /// @param open is called when the registry is needed first.
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
    /// The value that was sent last, of those that can be read: a unit that does not hold it is another one.
    std::pair<const Record*, std::string> witness_;
    std::vector<Registry::Arrival> sent_;
};

}  // namespace station::identity
