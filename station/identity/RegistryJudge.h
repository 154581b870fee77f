#pragma once

#include <string>
#include <vector>

#include "station/identity/RegistryTables.h"
#include "station/identity/UnitRules.h"

namespace station::identity {

/// Says which unit is on the line and which values it may get. Throws NotGiven and what the tables throw.
class RegistryJudge
{
public:
    /// @param tables,rules outlive this
    RegistryJudge(RegistryTables& tables, Records records, const UnitRules& rules)
        : tables_(tables), records_(records), rules_(rules)
    {
    }

    struct Known {
        UnitId unit = kNobody;
        bool shown = false;  ///< the unit holds a value that it was given
    };

    enum class Claim {
        kFree,
        kOwn,       ///< given to this unit before
        kHeld,      ///< found in this unit, and not given to it
        kReissued,  ///< given to the unit whose board this one replaces
    };

    /// @returns the unique values that identify a unit, its serial number first.
    std::vector<UniqueValue> uniqueOf(const Values& values) const;

    Known identify(const UnitOnLine& line);

    /// @returns what giving a value to the unit would be
    Claim judge(const Known& known, const UnitOnLine& line, const UniqueValue& value);

    /// Refuses to give a unit its values, named `what`, if the unit on the line may be another one.
    void refuseStranger(const Known& known, const UnitOnLine& line, const std::string& what);

    /// Adds the unit to the registry, with the values that it holds.
    UnitId settle(const Known& known, const UnitOnLine& line);

    /// Reserves a value that was judged.
    void reserve(Claim claim, const UniqueValue& value, UnitId unit, const UnitOnLine& line);

    static bool holds(const UnitOnLine& line, const UniqueValue& value);
    static bool holdsAny(const UnitOnLine& line, const std::vector<UniqueValue>& values);

private:
    RegistryTables& tables_;
    const Records records_;
    const UnitRules& rules_;
};

}  // namespace station::identity
