#pragma once

#include <functional>
#include <span>
#include <string>
#include <vector>

#include "station/identity/IdentityRecord.h"
#include "station/identity/UnitIdentity.h"

namespace station::identity {

enum class Result : std::uint8_t {
    kWritten,     ///< written, and read back as it was sent
    kPresent,     ///< written; the unit only reports that it has a value
    kUnchanged,   ///< the unit had this value already
    kWouldWrite,  ///< not written on a dry run
    kRefused,     ///< not written: the unit has another value
    kSkipped,     ///< not written because of another record
    kMatches,     ///< verified: the unit has this value
    kDiffers,     ///< the unit sent back another value
    kMissing,     ///< the unit sent back no value
};

/// @returns "written", "present", "unchanged", "would-write", "refused", "skipped", "matches", "differs", "missing".
const char* name(Result result);

/// A value that a unit should have.
struct Wanted {
    const Record* record = nullptr;
    std::string value;  ///< normalised
    /// The value was given to this unit before: if the unit has an address that cannot be read, it is this one.
    bool own = false;
};

struct Done {
    const Record* record = nullptr;
    Stored before;
    std::string wanted;
    /// Read back; equal to `before` if nothing was written.
    Stored after;
    Result result = Result::kSkipped;
};

struct WriteOptions {
    bool overwrite = false;
    bool dryRun = false;
};

/// Gets the result of each record as soon as it is known.
using Report = std::function<void(const Done&)>;

/// Reads all records first: if one of them has another value and `overwrite` is not set, it writes nothing. Then writes
/// one after the other, reads each back and compares byte by byte; stops at the first difference. If the unit only
/// reports the presence of a record, the presence counts.
/// @returns a result for each wanted value, in their order
std::vector<Done> write(UnitIdentity& unit, std::span<const Wanted> wanted, WriteOptions options, const Report& report);

/// Compares all. The Bluetooth address is the one that the controller uses: a written one from the unit's next start.
std::vector<Done> verify(UnitIdentity& unit, std::span<const Wanted> wanted, const Report& report);

/// @returns one line: "factory-serial: written SN2 (was SN1)".
std::string describe(const Done& done);

}  // namespace station::identity
