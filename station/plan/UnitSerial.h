#pragma once

#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>

#include "station/SerialRecord.h"

namespace station::plan {

/// What a plan stores under this name is the unit's serial number.
inline constexpr std::string_view kSerialVariable = "serial";

/// What the units of runs at several ports hold: no two of them have the same serial. All functions may be called from
/// any thread.
class SerialsAtPorts
{
public:
    /// @param serial no placeholder
    void add(const std::string& port, const std::string& serial);

    /// @returns why the run at `port` is in error, in one line; empty when no other port has told one of its serials.
    std::string clashOf(const std::string& port) const;

private:
    mutable std::mutex mutex_;
    std::map<std::string, std::string> ports_;    // that told a serial first; guarded by mutex_
    std::map<std::string, std::string> clashes_;  // by port; guarded by mutex_
};

/// Whose run it is: compares what the operator says with what the unit tells. For one thread.
class UnitSerial
{
public:
    /// @param record, others outlive this object
    UnitSerial(const SerialRecord& record, SerialsAtPorts& others, std::string port)
        : record_(record), others_(others), port_(std::move(port))
    {
    }

    /// The operator says that this is the unit's serial.
    void give(const std::string& serial);
    /// The unit tells that it holds this serial.
    void tell(const std::string& serial);
    /// The plan writes the record: what the unit holds from here on is the plan's doing.
    void write() { written_ = true; }

    /// @returns what the unit told last, else what the operator gave; empty when neither is known.
    const std::string& known() const { return told_.empty() ? given_ : told_; }

    /// @returns why the run is not that of the unit which was meant, in one line; empty while nothing is wrong.
    const std::string& mismatch() const { return mismatch_; }

private:
    void compare();

    const SerialRecord& record_;
    SerialsAtPorts& others_;
    const std::string port_;
    std::string given_;
    std::string told_;
    /// What the unit told before the plan wrote the record.
    std::string brought_;
    std::string mismatch_;
    bool written_ = false;
};

}  // namespace station::plan
