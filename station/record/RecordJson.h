#pragma once

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "protocol/Errors.h"
#include "protocol/catalogue/Model.h"
#include "station/record/RunRecord.h"

/// record.json; docs/results.md describes every key.
namespace station::record {

/// A file is not a record. The text names the place, as line and column or as a JSON Pointer.
class RecordError : public protocol::StorageError
{
public:
    /// The user chose the file.
    explicit RecordError(const std::string& text) : StorageError(text, protocol::kWrongUse) {}
};

/// @returns the record. Its texts are those of the run, with bytes that are not UTF-8.
/// @param groups put the frames into words
nlohmann::ordered_json toJson(const Run& run, protocol::catalogue::Groups groups);

/// @returns `json` as the text of record.json. U+FFFD replaces bytes that are not UTF-8.
std::string serialise(const nlohmann::ordered_json& json);

/// Throws RecordError.
Run fromJson(const nlohmann::ordered_json& json);

/// Reads the text of a record.json. Throws RecordError.
Run parseRun(std::string_view text);

/// Reads a record.json. Throws a RecordError whose text begins with the path.
Run readRun(const std::filesystem::path& path);

}  // namespace station::record
