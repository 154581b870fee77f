#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "protocol/catalogue/Codec.h"
#include "protocol/catalogue/Model.h"

/// Test plans: the steps of a test, in order. docs/plans.md describes the file. A plan points into the catalogue that
/// it was checked against.
namespace station::plan {

using Duration = std::chrono::nanoseconds;

/// How a run goes on after a step that did not pass.
enum class OnFailure : std::uint8_t { kNext, kStopGroup, kStop };

/// How many records of a list have to match.
enum class Records : std::uint8_t {
    kNotAList,
    kAny,    ///< one or more
    kAll,    ///< all of them, and at least one
    kCount,  ///< as many as the limits say
};

/// A limit that is computed: "${before} - 5".
struct Formula {
    /// Numbers, ${variables}, + - * / and parentheses.
    std::string text;
    /// In which it counts; empty for a bare number.
    std::string unit;
    /// To which its value is converted.
    std::string wanted;
    /// The units of its variables, as far as they have one.
    std::map<std::string, std::string, std::less<>> units;
};

/// The demands on a value, all of which must hold. Texts may contain ${variables}.
struct Expected {
    /// Field of the frame, or the question's id.
    std::string name;
    /// nullptr for an operator's answer.
    const protocol::catalogue::Field* field = nullptr;
    /// Whether the frame may, or must not, hold the field at all.
    std::optional<bool> present;
    std::optional<double> minimum;
    std::optional<double> maximum;
    /// In place of `minimum` and `maximum`, if they hold variables that steps store.
    std::optional<Formula> minimumOf = {};
    std::optional<Formula> maximumOf = {};
    std::optional<std::string> equals;
    std::optional<std::string> matches;
    /// Of the limits and of the value in reports.
    std::string unit;
    /// Whether the limits are in the unit of the field's scale.
    bool scaled = false;
    /// Of a list: then the limits are those of the number of matching records.
    Records records = Records::kNotAList;
    /// The demands on a record that matches; empty if every record does.
    std::vector<Expected> where = {};
};

/// Which of the values stays when a step stores its variable again.
enum class Keep : std::uint8_t {
    kLast,
    kFirst,
    kAll,  ///< with ", " between them
};

/// Keeps a field's value under a name for later steps.
struct StoredField {
    std::string variable;
    std::string field;
    Keep keep = Keep::kLast;
};

/// A demand on the value of a variable.
struct Condition {
    enum class Is : std::uint8_t { kEqual, kUnequal, kBelow, kAtMost, kAbove, kAtLeast, kOneOf };

    std::string variable;
    Is is = Is::kEqual;
    /// Several for kOneOf; else one.
    std::vector<std::string> values;
    /// Whether the values are numbers, of which 1.50 is 1.5.
    bool numbers = false;
    /// As the plan says it: "volume < 5".
    std::string text;

    bool holds(const std::string& value) const;
};

enum class ReplyRule : std::uint8_t {
    kRequired,
    kOptional,  ///< a reply or silence
    kNone,      ///< silence
};

/// Sends a command again and again until its reply is as wanted.
struct Poll {
    std::vector<Expected> until;
    /// From the end of a try to the next command.
    Duration every{0};
    /// No further try begins after this time.
    Duration patience{0};
};

/// The measurement of a step with a maximum time.
inline constexpr const char* kLatency = "latency";

struct Send {
    const protocol::catalogue::Command* command = nullptr;
    std::vector<protocol::catalogue::Argument> with;
    ReplyRule reply = ReplyRule::kRequired;
    std::optional<Poll> poll;
    /// The longest time from command to reply with which the step passes.
    std::optional<Duration> maxTime;
    std::vector<Expected> expect;
    /// Whether to wait for the later reply, too.
    bool later = false;
    std::vector<Expected> expectLater;
    std::vector<StoredField> store;
};

/// Waits for a frame that the unit sends by itself.
struct Wait {
    std::string key;
    /// One of them is set: a notice, or the command of a later reply.
    const protocol::catalogue::Notice* notice = nullptr;
    const protocol::catalogue::Command* command = nullptr;
    std::vector<Expected> expect;
    std::vector<StoredField> store;
};

/// Asks the operator.
struct Prompt {
    enum class Kind : std::uint8_t { kYesNo, kText, kNumber, kChoice };

    /// Names the answer in the record and in a file of answers.
    std::string id;
    std::string text;
    Kind kind = Kind::kYesNo;
    /// The answers of kChoice.
    std::vector<std::string> choices;
    /// Path of a picture that belongs to the question; may be empty.
    std::string image;
    /// Regular expression (RE2) for a whole scanned text; another scan is not an answer. Empty for any text.
    std::string mask;
    std::optional<Expected> expect;
    std::optional<std::string> store;
    Keep keep = Keep::kLast;
    /// Whether no two units of a run may get the same answer.
    bool unique = false;
    /// Whether to mask the answer wherever it is shown or recorded, because it belongs to a secret field.
    bool secret = false;
};

/// Changes the state of the simulated head unit, or raises an event on it.
struct HeadUnitAction {
    bool raisesEvent = false;
    /// JSON Pointer of the state, or the event's name.
    std::string target;
    std::string json;
};

/// Does nothing for the step's time.
struct Pause {
};

/// Starts a program that measures: it gets and prints an object in JSON.
struct RunProgram {
    /// The first is the program's path.
    std::vector<std::string> words;
    /// An object, whose texts may contain ${variables}.
    std::string json;
    std::vector<Expected> expect;
    /// A value without a field is the only one.
    std::vector<StoredField> store;
};

/// Sends a line to an instrument of the station. The answer to a query is the value "value".
struct InstrumentCommand {
    std::string instrument;
    std::string command;
    std::vector<Expected> expect;
    std::vector<StoredField> store;
};

/// Switches the power of the unit. Unless it stays off, waits for the unit and switches auto-test mode on.
struct PowerChange {
    enum class To : std::uint8_t { kCycle, kOff, kOn } to = To::kCycle;
};

struct Step {
    std::string name;
    /// Its action in one line.
    std::string what;
    std::variant<Send, Wait, Prompt, HeadUnitAction, Pause, RunProgram, InstrumentCommand, PowerChange> action;
    /// The longest wait for an answer, zero for a question without limit; of a pause, its time.
    Duration timeout{0};
    /// How often the step is executed; every time has to pass.
    int repeat = 1;
    /// How often it is tried again if it does not pass.
    int retries = 0;
    Duration retryDelay{0};
    OnFailure onFailure = OnFailure::kNext;
    bool needsHeadUnit = false;
    bool needsPower = false;
    /// Without them the step is skipped.
    std::vector<Condition> onlyIf;
    /// A variable without which the step is skipped; empty for none.
    std::string ifStored;
    unsigned line = 0;

    /// @returns "send", "wait", "prompt", "headunit", "pause", "run", "instrument" or "power".
    std::string_view kind() const;
};

struct Group {
    std::string name;
    /// More rounds than any run has.
    static constexpr std::size_t kEndless = 1'000'000'000'000;

    std::vector<Step> steps;
    std::size_t repeat = 1;
    /// No round begins after this time; nothing for no limit.
    std::optional<Duration> duration;
    int retries = 0;
    Duration retryDelay{0};
    bool needsHeadUnit = false;
    bool needsPower = false;
    std::vector<Condition> onlyIf;
};

/// A value that the station or the user gives to the plan. It is a variable of every run.
struct Parameter {
    std::string name;
    bool isNumber = false;
    std::string unit;
    std::string help;
    /// The value that holds without another, as a user writes it.
    std::optional<std::string> otherwise;
    /// The value in force, without the unit; nothing if none is given.
    std::optional<std::string> value;
    /// The source of the value: "default", "limits.csv:4", "station.toml:12:9", "--set".
    std::string from;
    /// Whether to mask the value wherever it is shown or recorded, because it belongs to a secret field.
    bool secret = false;
};

/// @returns the value in force, masked if it is a secret; empty for none.
std::string shownValue(const Parameter& parameter);

struct Plan {
    std::string path;
    std::string name;
    std::string title;
    /// The author's number of this state of the plan; may be empty.
    std::string version;
    std::string description;
    std::vector<Parameter> parameters;
    std::vector<Group> setup;
    std::vector<Group> main;
    std::vector<Group> teardown;
    /// Whether the run may pass although the line was lost and came back.
    bool passesAcrossLinkLoss = false;
    /// Limits on the faults of the line; nothing for no limit.
    struct LineLimits {
        std::optional<std::size_t> reconnects;
        std::optional<std::size_t> repeatedSends;
        std::optional<std::size_t> corruptFrames;
        std::optional<std::size_t> garbageBytes;
    } line;
    /// Time limit of the whole teardown.
    Duration teardownLimit = std::chrono::seconds(10);

    /// The number of steps, each counted once.
    std::size_t stepCount() const;
    /// The steps in which a destructive command is sent.
    std::vector<const Step*> destructiveSteps() const;
};

/// @returns whether a step switches the unit's power.
bool switchesPower(const Plan& plan);

/// The shortest duration of a plan, as far as it is known before.
struct Estimate {
    /// Frames on the line, and asserted silence.
    Duration duration{0};
    /// Steps that wait for a person or for a frame that comes by itself.
    std::size_t open = 0;
};

Estimate estimate(const Plan& plan, unsigned baud);

}  // namespace station::plan
