#pragma once

#include <functional>
#include <span>
#include <string>
#include <vector>

#include "station/identity/Record.h"
#include "station/identity/UnitIdentity.h"

namespace station::identity {

enum class Result : std::uint8_t {
    kWritten,     ///< written, and read back as it was sent
    kPresent,     ///< written; the unit only tells that there is a value, and not which
    kUnchanged,   ///< the unit had this value already
    kWouldWrite,  ///< on a dry run: would have been written
    kRefused,     ///< the unit has another value, which was not to be overwritten
    kSkipped,     ///< not written on account of another record
    kMatches,     ///< on verifying: the unit has this value
    kDiffers,     ///< what was read back is another value
    kMissing,     ///< what was read back is no value
};

/// @returns "written", "present", "unchanged", "would-write", "refused", "skipped", "matches", "differs", "missing".
const char* name(Result result);

/// What a unit is to have.
struct Wanted {
    const Record* record = nullptr;
    std::string value;  ///< normalised
    /// The value was given to this unit before: then an address that is there, but cannot be read, is its own.
    bool own = false;
};

struct Done {
    const Record* record = nullptr;
    Stored before;
    std::string wanted;
    /// Read back; as `before` when nothing was written.
    Stored after;
    Result result = Result::kSkipped;
};

struct WriteOptions {
    bool overwrite = false;
    bool dryRun = false;
};

/// Is told of each record as soon as it is done with.
using Report = std::function<void(const Done&)>;

/// Looks at all records first: when one of them has another value and `overwrite` is not set, nothing is written. Then
/// writes one after the other, reads each back and compares byte by byte; stops at the first that differs. Of a record
/// that only tells its presence, the presence counts.
/// @returns one for each wanted, in their order.
std::vector<Done> write(UnitIdentity& unit, std::span<const Wanted> wanted, WriteOptions options, const Report& report);

/// Compares all. Of the Bluetooth address, the one that the controller runs counts, which a written one becomes when
/// the unit starts again.
std::vector<Done> verify(UnitIdentity& unit, std::span<const Wanted> wanted, const Report& report);

/// @returns one line: "factory-serial: written SN2 (was SN1)".
std::string describe(const Done& done);

}  // namespace station::identity
