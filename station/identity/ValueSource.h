#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "station/identity/IdentityGuard.h"
#include "station/identity/Journal.h"
#include "station/identity/Provision.h"

namespace station::identity {

/// What the user says about the values of the unit on the line.
struct ValueOptions {
    std::vector<std::string> set = {};        ///< "RECORD=VALUE"
    std::vector<std::string> ranges = {};     ///< as `parseRange` reads them
    std::vector<std::string> macBlocks = {};  ///< as `parseMacBlock` reads them
    std::string csv = {};                     ///< path of a CSV file; empty for none
    std::string serial = {};                  ///< the factory serial number of the file's row; empty for none
    std::string unit = {};                    ///< label of the unit
    std::string reissue = {};                 ///< why the unit gets the values of another one
    bool overwrite = false;
    bool dryRun = false;
    bool again = false;
    bool allowAny = false;  ///< also addresses that no device may have
    bool verifies = false;  ///< only compares, so it takes values from `set` or `csv`
};

/// Chooses the values of the unit on the line: from the command line, from a row of a CSV file, or from ranges. All
/// functions throw what the registry and the connection throw, and UserError.
class ValueSource
{
public:
    /// Checks all values.
    /// @param csv the text of the CSV file that `options` names
    /// @param records,rules,terms outlive this; `terms` are those of the connection's guard.
    ValueSource(ValueOptions options, std::string_view csv, Records records, const UnitRules& rules, GuardTerms& terms,
                OpenRegistry open);

    /// @returns the values for the unit on the line. No other unit gets them from now on, unless it is a dry run or
    /// the unit has another value already.
    std::vector<Wanted> reserve(UnitIdentity& unit);

    /// @returns the values that the unit on the line should have.
    std::vector<Wanted> find(UnitIdentity& unit);

    /// Reserves the values, writes them and notes each in the journal.
    /// @param journal nullptr for none
    /// @param reserved called once unit() and the values are known, before the first frame that writes
    std::vector<Done> write(
        UnitIdentity& unit, Journal* journal, const Report& report, const std::function<void()>& reserved = [] {});

    /// @returns the unit's label, or the registry's name for a unit that got values of a file or a range; empty if
    /// there is none.
    const std::string& unit() const { return unit_; }

private:
    void takeOptions();
    void addSet(std::string_view text);
    void addRange(ValueRange range);
    void refuseSecond(const Record& record) const;
    void check(const Record& record, const std::string& value, const std::string& where) const;
    bool hasSerial(const Values& held) const;
    Registry::Grant grant(const UnitOnLine& line, bool dryRun);
    std::vector<Wanted> reserveSet(UnitIdentity& unit);
    void openRegistry();
    std::vector<Done> preview(UnitIdentity& unit, const std::vector<Wanted>& wanted) const;
    UnitOnLine lineOf(UnitIdentity& unit) const;
    std::vector<Wanted> wantedOf(const CsvRow& row, bool own) const;
    std::string waived(const Done& done) const;

    const ValueOptions options_;
    const Records records_;
    const UnitRules& rules_;
    GuardTerms& terms_;
    const OpenRegistry open_;
    std::vector<Wanted> set_;
    std::vector<ValueRange> ranges_;
    std::optional<CsvTable> table_;
    std::unique_ptr<Registry> registry_;
    std::string unit_;
    std::string nameInRegistry_;
};

}  // namespace station::identity
