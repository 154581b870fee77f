#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "station/trace/Trace.h"

/// What a run of a plan did: the plan's engine fills it, the results folder is written from it.
namespace station::record {

enum class Verdict : std::uint8_t {
    kPass,
    kFail,     ///< a limit was missed
    kError,    ///< the link failed, or what came could not be understood
    kTimeout,  ///< nothing came in time
    kAborted,  ///< the user ended it
    kSkipped,  ///< not run, on account of what went before or of what is not there
};

/// @returns "PASS", "FAIL", "ERROR", "TIMEOUT", "ABORTED", "SKIPPED".
const char* name(Verdict verdict);

/// @returns the worse of two: ABORTED, ERROR, TIMEOUT, FAIL, PASS, SKIPPED, the worst first.
Verdict worse(Verdict one, Verdict other);

/// A number, text, or yes/no.
using Scalar = std::variant<double, std::string, bool>;

/// What a plan demands of a value. All that is set has to hold.
struct Limits {
    std::optional<double> minimum;
    std::optional<double> maximum;
    std::optional<Scalar> equals;
    std::optional<std::string> matches;  ///< regular expression (ECMAScript) for the whole text

    bool operator==(const Limits&) const = default;
};

struct Measurement {
    std::string name;
    Scalar value;
    std::string unit;
    Limits limits;
    bool passed = true;

    bool operator==(const Measurement&) const = default;
};

/// One try of a step.
struct Attempt {
    std::chrono::system_clock::time_point started;
    std::chrono::nanoseconds duration{0};
    /// How much of it the bytes take on the line: bytes sent and received × 10 / baud.
    std::chrono::nanoseconds wireTime{0};
    Verdict verdict = Verdict::kPass;
    /// One line for the reader: what was expected and what came; empty for PASS.
    std::string reason;
    std::vector<Measurement> measurements;
    /// What passed on the line during it.
    std::vector<TraceEvent> frames;

    bool operator==(const Attempt&) const = default;
};

struct Step {
    std::string name;
    /// "send", "wait", "prompt", "headunit".
    std::string kind;
    /// What it does in one line: "tuner.play frequency=8750".
    std::string what;
    Verdict verdict = Verdict::kSkipped;
    std::string reason;
    std::vector<Attempt> attempts;

    bool operator==(const Step&) const = default;
};

struct Group {
    std::string name;
    Verdict verdict = Verdict::kSkipped;
    /// The steps once per try of the group, all kept.
    struct Try {
        Verdict verdict = Verdict::kSkipped;
        std::vector<Step> steps;
        /// Whether it failed and the group was tried again for that: then it does not count.
        bool superseded = false;

        bool operator==(const Try&) const = default;
    };
    std::vector<Try> tries;

    bool operator==(const Group&) const = default;
};

struct Phase {
    std::string name;  ///< "setup", "main", "teardown"
    Verdict verdict = Verdict::kSkipped;
    std::string reason;
    std::vector<Group> groups;

    bool operator==(const Phase&) const = default;
};

struct Run {
    static constexpr int kSchema = 1;

    /// Names the results folder: plan key, start time and port.
    std::string id;
    std::chrono::system_clock::time_point started;
    std::chrono::system_clock::time_point ended;
    Verdict verdict = Verdict::kSkipped;
    std::string reason;

    struct Unit {
        std::string serial;  ///< given by the operator or read from the unit; empty when not known
        std::string port;
        unsigned baud = 0;

        bool operator==(const Unit&) const = default;
    } unit;
    struct StationInfo {
        std::string host;
        std::string operatorName;  ///< empty when not given
        std::string version;       ///< of the tool

        bool operator==(const StationInfo&) const = default;
    } station;
    struct PlanInfo {
        std::string name;
        std::string title;
        std::string path;
        std::string sha256;

        bool operator==(const PlanInfo&) const = default;
    } plan;
    std::string catalogueSha256;

    std::vector<Phase> phases;
    /// Everything that passed on the line, in order.
    std::vector<TraceEvent> trace;

    bool operator==(const Run&) const = default;
};

}  // namespace station::record
