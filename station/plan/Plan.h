#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "protocol/catalogue/Codec.h"
#include "protocol/catalogue/Model.h"

/// Test plans: what a station does with a unit, step by step. docs/plans.md describes the file.
/// A plan points into the catalogue that it was checked against.
namespace station::plan {

using Duration = std::chrono::nanoseconds;

/// What follows a step that did not pass.
enum class OnFailure : std::uint8_t { kNext, kStopGroup, kStop };

/// What a value has to be. All that is set has to hold. Texts may hold ${variables}.
struct Expected {
    /// Field of the frame, or the question's id.
    std::string name;
    /// nullptr for an operator's answer.
    const protocol::catalogue::Field* field = nullptr;
    /// Whether the frame may, or must not, hold the field at all.
    std::optional<bool> present;
    std::optional<double> minimum;
    std::optional<double> maximum;
    std::optional<std::string> equals;
    std::optional<std::string> matches;
    /// Of the limits, and of what is shown.
    std::string unit;
    /// Whether the limits are in the unit of the field's scale.
    bool scaled = false;
};

/// Keeps a field's value under a name for later steps.
struct StoredField {
    std::string variable;
    std::string field;
};

enum class ReplyRule : std::uint8_t {
    kRequired,
    kOptional,  ///< silence is as good
    kNone,      ///< silence only
};

struct Send {
    const protocol::catalogue::Command* command = nullptr;
    std::vector<protocol::catalogue::Argument> with;
    ReplyRule reply = ReplyRule::kRequired;
    std::vector<Expected> expect;
    /// Whether the answer that comes later, through the HMI or the middleware, is awaited too.
    bool later = false;
    std::vector<Expected> expectLater;
    std::vector<StoredField> store;
};

/// Waits for a frame that the unit sends on its own.
struct Wait {
    std::string key;
    /// One of them is set: a notice, or a command whose later answer is meant.
    const protocol::catalogue::Notice* notice = nullptr;
    const protocol::catalogue::Command* command = nullptr;
    std::vector<Expected> expect;
    std::vector<StoredField> store;
};

/// Asks the operator.
struct Prompt {
    enum class Kind : std::uint8_t { kYesNo, kText, kNumber };

    /// Names the answer in the record and in a file of answers.
    std::string id;
    std::string text;
    Kind kind = Kind::kYesNo;
    std::optional<Expected> expect;
    std::optional<std::string> store;
    /// Whether no two units of a run may get the same answer.
    bool unique = false;
    /// Whether the answer is masked wherever it is shown or recorded, since it goes into or stands for a secret field.
    bool secret = false;
};

/// Sets the simulated head unit, or has it raise an event.
struct HeadUnitAction {
    bool raisesEvent = false;
    /// JSON Pointer of the state, or the event's name.
    std::string target;
    std::string json;
};

struct Step {
    std::string name;
    /// What it does, in one line.
    std::string what;
    std::variant<Send, Wait, Prompt, HeadUnitAction> action;
    /// How long an answer is waited for; zero for a question without limit.
    Duration timeout{0};
    /// How often the step is done; all of them have to pass.
    int repeat = 1;
    /// How often it is tried again when it does not pass.
    int retries = 0;
    Duration retryDelay{0};
    OnFailure onFailure = OnFailure::kNext;
    bool needsHeadUnit = false;
    /// Variables that need a value, else the step is skipped; empty for none.
    std::vector<std::pair<std::string, std::string>> onlyIf;
    /// A variable without which the step is skipped; empty for none.
    std::string ifStored;
    unsigned line = 0;

    /// @returns "send", "wait", "prompt" or "headunit".
    std::string_view kind() const;
};

struct Group {
    std::string name;
    std::vector<Step> steps;
    int repeat = 1;
    int retries = 0;
    Duration retryDelay{0};
    bool needsHeadUnit = false;
    std::vector<std::pair<std::string, std::string>> onlyIf;
};

struct Plan {
    std::string path;
    std::string name;
    std::string title;
    std::string description;
    std::vector<Group> setup;
    std::vector<Group> main;
    std::vector<Group> teardown;
    /// Whether a line that was lost and came back leaves the run a chance to pass.
    bool passesAcrossLinkLoss = false;
    /// How bad the line may be; nothing for no limit.
    struct LineLimits {
        std::optional<std::size_t> reconnects;
        std::optional<std::size_t> repeatedSends;
        std::optional<std::size_t> corruptFrames;
        std::optional<std::size_t> garbageBytes;
    } line;
    /// How long the teardown may take in all.
    Duration teardownLimit = std::chrono::seconds(10);

    /// The number of steps, each counted once.
    std::size_t stepCount() const;
    /// The steps in which a destructive command is sent.
    std::vector<const Step*> destructiveSteps() const;
};

/// How long a plan takes at least, as far as it can be told beforehand.
struct Estimate {
    /// Frames on the line, and the silence that is asserted.
    Duration duration{0};
    /// Steps that wait for somebody, or for something that comes on its own.
    std::size_t open = 0;
};

Estimate estimate(const Plan& plan, unsigned baud);

}  // namespace station::plan
