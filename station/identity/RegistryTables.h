#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "station/Sqlite.h"
#include "station/identity/Registry.h"

namespace station::identity {

/// Units are numbered from 1; this one owns the blocked values.
inline constexpr UnitId kNobody = 0;

/// A value of a unique record, spelled as the registry keeps it.
struct UniqueValue {
    const Record* record = nullptr;
    std::string text;

    /// @returns "factory-serial SN1".
    std::string shown() const;
};

/// @returns whether the registry has given a value in this state to a unit.
bool isGiven(State state);

/// The rows of the registry: units, values and events. Throws StorageError and Interrupted.
class RegistryTables
{
public:
    struct Owner {
        UnitId unit = kNobody;
        State state = State::kSeen;
        std::string record;
        std::string reason;
    };

    /// @param database outlives this
    /// @param serialRecord the record that names a unit without a label
    RegistryTables(sqlite::Database& database, std::string serialRecord);

    std::optional<Owner> ownerOf(const UniqueValue& value);

    /// @returns the unit with this label; kNobody if there is none.
    UnitId unitOf(const std::string& label);
    std::string labelOf(UnitId unit);
    /// @returns the unit's label, else its newest serial number, else its number here, "#7".
    std::string nameOf(UnitId unit);
    /// @param label may be empty
    UnitId addUnit(const std::string& label);
    void setLabel(UnitId unit, const std::string& label);

    /// @returns record and text of the values that the unit was given: of one record, or of all.
    std::vector<std::pair<std::string, std::string>> given(UnitId unit, std::string_view record = {});
    /// @returns a value of a record, other than `text`, that the unit was given; empty for none.
    std::string otherValue(UnitId unit, std::string_view record, const std::string& text);
    /// @returns whether values were sent to the unit. One in state `sending` may have arrived before the station was
    /// killed.
    bool wasSentValues(UnitId unit);

    void note(const char* event, std::string_view space, std::string_view value, UnitId unit,
              std::string_view reason = {});
    void note(const char* event, const UniqueValue& value, UnitId unit, std::string_view reason = {});
    /// Sets the state of a value, new or not, and notes that.
    void put(const UniqueValue& value, UnitId unit, State state, std::string_view reason = {});
    void block(const UniqueValue& value, std::string_view reason);

    using Report = std::function<void(const Registry::Entry&)>;
    void reportAll(const Report& report);
    /// Reports a value with its history.
    void reportOne(const UniqueValue& value, const Report& report);

private:
    static std::string nameSql(std::string_view unit);
    static std::string entrySql(std::string_view end);
    static Registry::Entry entryOf(const sqlite::Statement& row);

    sqlite::Database& database_;
    const std::string serialRecord_;
    sqlite::Statement owners_;
};

}  // namespace station::identity
