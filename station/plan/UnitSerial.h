#pragma once

#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>

#include "station/SerialRecord.h"

namespace station::plan {

/// The variable that holds the unit's serial number.
inline constexpr std::string_view kSerialVariable = "serial";

/// The serial numbers of the units at several ports, which must differ. All functions may be called from any thread.
class SerialsAtPorts
{
public:
    /// @param serial no placeholder
    void add(const std::string& port, const std::string& serial);

    /// @returns why the run at `port` is in error, in one line; empty if no other port has one of its serial numbers.
    std::string clashOf(const std::string& port) const;

private:
    mutable std::mutex mutex_;
    std::map<std::string, std::string> ports_;    // the first with a serial number; guarded by mutex_
    std::map<std::string, std::string> clashes_;  // by port; guarded by mutex_
};

/// The unit of a run: compares the serial number that the operator gives with that of the unit. For one thread.
class UnitSerial
{
public:
    /// @param record, others outlive this object
    UnitSerial(const SerialRecord& record, SerialsAtPorts& others, std::string port)
        : record_(record), others_(others), port_(std::move(port))
    {
    }

    /// The operator gives the serial number.
    void give(const std::string& serial);
    /// The unit answers with its serial number.
    void tell(const std::string& serial);
    /// The plan writes the record: later serial numbers of the unit are not compared.
    void write() { written_ = true; }

    /// @returns the last serial number of the unit, else the operator's; empty if neither is known.
    const std::string& known() const { return told_.empty() ? given_ : told_; }

    /// @returns why the unit is not the one that the operator meant, in one line; empty if it is.
    const std::string& mismatch() const { return mismatch_; }

private:
    void compare();

    const SerialRecord& record_;
    SerialsAtPorts& others_;
    const std::string port_;
    std::string given_;
    std::string told_;
    /// The serial number of the unit before the plan wrote the record.
    std::string brought_;
    std::string mismatch_;
    bool written_ = false;
};

}  // namespace station::plan
