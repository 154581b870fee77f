#pragma once

#include <filesystem>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>

#include "protocol/catalogue/Model.h"
#include "station/record/RunRecord.h"

/// record.json; docs/results.md describes every key.
namespace station::record {

/// A record cannot be read: the text names the place, as line and column or as JSON Pointer, and what is wrong there.
class RecordError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// @returns the record; its texts are what the run has, the bytes that are no UTF-8 too.
/// @param groups what the frames are put into words with
nlohmann::ordered_json toJson(const Run& run, protocol::catalogue::Groups groups);

/// @returns `json` as the text of record.json. Bytes that are no UTF-8 are replaced by U+FFFD.
std::string serialise(const nlohmann::ordered_json& json);

/// Throws RecordError.
Run fromJson(const nlohmann::ordered_json& json);

/// Reads the text of a record.json. Throws RecordError.
Run parseRun(std::string_view text);

/// Reads a record.json. Throws RecordError, whose text begins with the path.
Run readRun(const std::filesystem::path& path);

}  // namespace station::record
