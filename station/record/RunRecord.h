#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "station/trace/Trace.h"

/// What a run of a plan did. The plan's runner appends facts: attempts with their measurements, events of the line, the
/// reasons for which something ended early. Outcome.h computes the verdicts of steps, groups, phases and the run from
/// them; no such verdict is stored.
namespace station::record {

/// From the best to the worst: a step, group, phase or run has the worst verdict of its parts.
enum class Verdict : std::uint8_t {
    kSkipped,  ///< not run, because of an earlier step or because something is missing
    kPass,
    kFail,     ///< a value missed its limits
    kTimeout,  ///< nothing came in time
    kError,    ///< the line failed, or the unit sent something that cannot be understood
    kAborted,  ///< the user ended it
};

/// In the order in which reports list them.
inline constexpr std::array kVerdicts{Verdict::kPass,    Verdict::kFail,    Verdict::kError,
                                      Verdict::kTimeout, Verdict::kAborted, Verdict::kSkipped};

/// The words for a verdict.
struct VerdictWords {
    const char* name;     ///< "PASS", "FAIL", "ERROR", "TIMEOUT", "ABORTED", "SKIPPED"
    const char* counted;  ///< after a number of steps: "passed", "timed out"
    const char* style;    ///< class in the style sheet
    const char* colour;   ///< control sequence for a terminal
    const char* meaning;  ///< a sentence for a reader who sees the verdict for the first time
};

const VerdictWords& wordsOf(Verdict verdict);

inline const char* name(Verdict verdict)
{
    return wordsOf(verdict).name;
}

constexpr Verdict worse(Verdict one, Verdict other)
{
    return one >= other ? one : other;
}

/// A number, text, or yes/no.
using Scalar = std::variant<double, std::string, bool>;

/// The demands of a plan on a value, all of which must hold.
struct Limits {
    std::optional<double> minimum;
    std::optional<double> maximum;
    std::optional<Scalar> equals;
    std::optional<std::string> matches;  ///< regular expression (RE2) for the whole text

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

/// Numbers of line events, `end` excluded.
struct EventRange {
    std::size_t begin = 0;
    std::size_t end = 0;

    bool operator==(const EventRange&) const = default;
};

/// The events of the line, in order, each once. A unit may send unexpected frames without end: of these, the first and
/// the last kKept are kept.
class Events
{
public:
    static constexpr std::size_t kKept = 1000;

    /// @returns the number of the event; numbers count all events from 0.
    std::size_t add(TraceEvent event);

    /// Marks an event as expected; puts it back if it has been dropped.
    void claim(std::size_t number, const TraceEvent& event);

    /// Puts an event of a stored record in its place.
    void restore(std::size_t number, TraceEvent event);

    /// Drops the expected events of a range, whose attempts are left out.
    void release(EventRange range);

    /// @returns the number that the next event gets.
    std::size_t next() const { return next_; }

    /// @returns the kept events by number.
    const std::map<std::size_t, TraceEvent>& kept() const { return kept_; }

    bool operator==(const Events& other) const { return next_ == other.next_ && kept_ == other.kept_; }

private:
    std::map<std::size_t, TraceEvent> kept_;
    std::size_t next_ = 0;
    // Numbers of kept events that are unexpected, ascending.
    std::deque<std::size_t> first_;
    std::deque<std::size_t> last_;
};

/// A fact outside of attempts, and its verdict.
struct Finding {
    Verdict verdict = Verdict::kSkipped;
    std::string text;

    bool operator==(const Finding&) const = default;
};

/// What a program or an instrument said besides its measurements: "exit status", "standard error", "instrument".
struct Detail {
    std::string name;
    std::string text;

    bool operator==(const Detail&) const = default;
};

/// One try of a step.
struct Attempt {
    std::chrono::system_clock::time_point started;
    std::chrono::nanoseconds duration{0};
    /// Time of the bytes on the line: bytes sent and received × 10 / baud.
    std::chrono::nanoseconds wireTime{0};
    Verdict verdict = Verdict::kPass;
    /// "expected X, got Y" in one line; empty for PASS.
    std::string reason;
    std::vector<Measurement> measurements;
    /// Events of the line during it.
    EventRange events;
    /// Whether another attempt replaces it because it did not pass: then it does not count.
    bool superseded = false;
    std::vector<Detail> details = {};

    /// Adds a reason; the worst verdict stays.
    void add(const Finding& finding);

    bool operator==(const Attempt&) const = default;
};

// References to attempts, steps, tries and groups stay valid while others are appended.

struct Step {
    std::string name;
    /// "send", "wait", "prompt", "headunit", "pause", "run", "instrument", "power".
    std::string kind;
    /// Its action in one line: "tuner.play frequency=8750".
    std::string what;
    std::deque<Attempt> attempts;
    /// Why it was not executed.
    std::optional<Finding> cut;

    bool operator==(const Step&) const = default;
};

/// The numbers of a measurement, however many.
struct Statistic {
    std::size_t count = 0;
    double minimum = 0;
    double mean = 0;
    double maximum = 0;
    /// The sum of the squared differences from the mean (Welford).
    double squares = 0;

    void add(double number);
    /// @returns the standard deviation of a sample; 0 for fewer than two numbers.
    double sigma() const;

    bool operator==(const Statistic&) const = default;
};

/// A measurement of a step in all rounds of its group.
struct RepeatedMeasurement {
    /// The place of its step in the group, and the step's name.
    std::size_t position = 0;
    std::string step;
    std::string name;
    std::string unit;
    Limits limits;
    std::size_t count = 0;
    std::size_t missed = 0;
    /// Of the values that are numbers.
    Statistic numbers;

    bool operator==(const RepeatedMeasurement&) const = default;
};

/// How many rounds failed when. The intervals get wider as the run gets longer.
struct Timeline {
    static constexpr std::size_t kMost = 60;

    struct Interval {
        std::size_t rounds = 0;
        std::size_t failed = 0;

        bool operator==(const Interval&) const = default;
    };

    /// Of the first interval.
    std::chrono::system_clock::time_point start;
    std::chrono::nanoseconds width = std::chrono::seconds(1);
    std::vector<Interval> intervals;

    void add(std::chrono::system_clock::time_point round, bool failed);

    bool operator==(const Timeline&) const = default;
};

/// The number of steps of each verdict.
using Tally = std::map<Verdict, std::size_t>;

/// A group's tries in figures. Superseded tries only show in `tries`.
struct Rounds {
    std::size_t tries = 0;
    /// Tries that count, and those of them that went wrong.
    std::size_t counted = 0;
    std::size_t failed = 0;
    Verdict verdict = Verdict::kSkipped;
    Tally steps;
    /// Steps that passed only after another attempt or another try of the group.
    std::size_t repeated = 0;
    std::vector<RepeatedMeasurement> measurements;
    Timeline timeline;

    bool operator==(const Rounds&) const = default;
};

struct Group {
    std::string name;
    /// The steps once per try of the group.
    struct Try {
        std::deque<Step> steps;
        /// Whether another try replaces it because it failed: then it does not count.
        bool superseded = false;

        bool operator==(const Try&) const = default;
    };
    /// All tries, unless the group has so many that RunFacts leaves some out.
    std::deque<Try> tries;
    /// The first tries in figures: those of `numbers`, and the ones that were left out between them.
    Rounds rounds = {};
    /// The numbers of the first of `tries`, counted from 0. The others follow without a gap.
    std::vector<std::size_t> numbers = {};

    bool operator==(const Group&) const = default;
};

struct Phase {
    std::string name;  ///< "setup", "main", "teardown"
    std::deque<Group> groups;
    /// Why it ended early.
    std::optional<Finding> cut;

    bool operator==(const Phase&) const = default;
};

struct Run {
    static constexpr std::size_t kSetup = 0;
    static constexpr std::size_t kMain = 1;
    static constexpr std::size_t kTeardown = 2;

    /// Names the results folder: plan key, start time and port.
    std::string id;
    /// Differs from that of every other run at any station; empty in older records.
    std::string uuid;
    std::chrono::system_clock::time_point started;
    std::chrono::system_clock::time_point ended;
    /// Of the run as a whole: the user ended it, the port was missing.
    std::vector<Finding> findings;

    struct Unit {
        std::string serial;  ///< given by the operator or read from the unit; empty if not known
        std::string port;
        unsigned baud = 0;

        bool operator==(const Unit&) const = default;
    } unit;
    struct StationInfo {
        std::string host;
        std::string operatorName;  ///< empty if not given
        std::string version;       ///< of the tool
        std::string line;          ///< the production line; empty if not given

        bool operator==(const StationInfo&) const = default;
    } station;
    /// A value that the plan ran with.
    struct Parameter {
        std::string name;
        Scalar value;
        std::string unit;
        std::string from;  ///< "default", "limits.csv:4", "station.toml:12:9", "--set"

        bool operator==(const Parameter&) const = default;
    };
    struct PlanInfo {
        std::string name;
        std::string title;
        std::string path;
        std::string sha256;
        std::size_t steps = 0;  ///< each counted once; 0 if not known
        std::string version;    ///< as the plan states it; empty if it does not
        std::vector<Parameter> parameters = {};

        bool operator==(const PlanInfo&) const = default;
    } plan;
    std::string catalogueSha256;
    /// Whether the unit is to prove the limits of the plan: "good", "bad", or empty for an ordinary run.
    std::string verifies;

    /// Setup, main and teardown, in this order; none if the record ends before its first step.
    std::vector<Phase> phases;
    /// The events of the line.
    Events events;
    LineQuality line;

    bool operator==(const Run&) const = default;
};

/// The place of a step in a plan.
struct StepPlace {
    std::string_view phase;
    std::string_view group;
    /// The number of the group's try, from 1.
    std::size_t round = 1;
    /// Of the plan's steps in all three phases, from 0.
    std::size_t index = 0;
    std::size_t total = 0;
    /// Whether another try of the group replaces that of the step, which does not count then.
    bool superseded = false;
};

}  // namespace station::record
