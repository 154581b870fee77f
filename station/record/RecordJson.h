#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <iosfwd>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "protocol/Errors.h"
#include "protocol/catalogue/Model.h"
#include "station/record/RunRecord.h"

/// record.jsonl and record.json; docs/results.md describes every key.
namespace station::record {

/// A file is not a record. The text names the place, as line and column or as a JSON Pointer.
class RecordError : public protocol::StorageError
{
public:
    /// The user chose the file.
    explicit RecordError(const std::string& text) : StorageError(text, protocol::kWrongUse) {}
};

using Json = nlohmann::ordered_json;

/// @returns the limits as a measurement has them.
Json limitsJson(const Limits& demanded);

/// Writes the run as a record of schema 1, with its line end. U+FFFD replaces bytes that are not UTF-8.
/// @param groups put the frames into words
/// @param indent of each level; -1 for one line
void writeJson(std::ostream& out, const Run& run, protocol::catalogue::Groups groups, int indent = 1);

// What `plan run --json` prints; the lines of record.jsonl begin with it.

Json startedEvent(const Run& run);

/// @returns the event of a step that has ended, "step" or "amended".
Json stepEvent(const char* event, const std::string& port, const StepPlace& place, const Step& step);

Json endedEvent(const Run& run);

/// The lines of record.jsonl, schema 2.
namespace lines {

Json started(const Run& run);
Json group(std::string_view phase, const std::string& name);
/// @param meaning of its frame
Json line(std::size_t number, const TraceEvent& event, const std::string& meaning);
Json step(const char* event, const std::string& port, const StepPlace& place, const Step& step);
Json superseded(std::string_view phase, const Group& group);
/// The facts of the run as a whole.
Json facts(const Run& run);
Json ended(const Run& run);

}  // namespace lines

/// @returns `json` as one line, with its end. U+FFFD replaces bytes that are not UTF-8.
std::string toLine(const Json& json);

/// Reads a record of schema 1. Throws RecordError.
Run fromJson(const Json& json);

/// Reads the text of a record of schema 1. Throws RecordError.
Run parseRun(std::string_view text);

/// Reads a record of either schema. One of schema 2 that ends early, even in the middle of a line, is a run that did
/// not end. Throws a RecordError whose text begins with the path.
/// @param whole how many steps the run may have before tries of large groups are left out; see RunFacts
Run readRun(const std::filesystem::path& path, std::size_t whole = 0);

/// Reads every step of a record of schema 2, in order, and passes over the events of the line. Throws like readRun().
void readSteps(const std::filesystem::path& path, const std::function<void(const StepPlace&, const Step&)>& take);

class RecordLines;

/// Reads the events of the line from a record of schema 2 to which a run may still append.
class RecordTail
{
public:
    /// Throws RecordError.
    explicit RecordTail(std::filesystem::path record);
    ~RecordTail();
    RecordTail(const RecordTail&) = delete;
    RecordTail& operator=(const RecordTail&) = delete;

    /// @returns the next event; nothing while no further line is complete. Throws a RecordError whose text begins with
    /// the path.
    std::optional<TraceEvent> next();

    /// @returns the unit, as far as the lines before tell; its port is empty before the first line.
    const Run::Unit& unit() const { return unit_; }

    /// @returns whether the lines before have the end of the run.
    bool ended() const { return ended_; }

    /// @returns how the file ends now, if in the middle of a line; else empty.
    const std::string& cut() const;

private:
    std::filesystem::path path_;
    std::unique_ptr<RecordLines> lines_;
    Run::Unit unit_;
    bool ended_ = false;
};

/// @returns whether the file is a record of schema 2.
bool isOfLines(const std::filesystem::path& path);

}  // namespace station::record
