#include "station/record/SampleRuns.h"

#include <fstream>
#include <utility>

#include "station/record/RecordJson.h"

namespace station::record::samples {

namespace {

using namespace std::chrono_literals;
using SystemTime = std::chrono::system_clock::time_point;

/// 2026-11-21 14:05:08.123456789 UTC
const SystemTime kStart{std::chrono::nanoseconds(1795269908123456789)};

TraceEvent event(TraceEvent::Kind kind, std::chrono::nanoseconds after, protocol::Frame frame)
{
    return {kind, kStart + after, std::chrono::steady_clock::time_point(1000s + after), std::move(frame), {}, {}};
}

TraceEvent sent(std::chrono::nanoseconds after, protocol::Frame frame)
{
    return event(TraceEvent::Kind::kSent, after, std::move(frame));
}

TraceEvent received(std::chrono::nanoseconds after, protocol::Frame frame)
{
    return event(TraceEvent::Kind::kReceived, after, std::move(frame));
}

Measurement number(const char* name, double value, const char* unit, Limits limits, bool passed = true)
{
    return {name, value, unit, std::move(limits), passed};
}

/// Adds the frames to the run.
Attempt attempt(Run& run, std::chrono::nanoseconds after, std::chrono::nanoseconds duration, Verdict verdict,
                std::string reason, std::vector<Measurement> measurements, const std::vector<TraceEvent>& frames)
{
    const std::size_t begin = run.events.next();
    for (const TraceEvent& frame : frames) {
        run.events.claim(run.events.add(frame), frame);
    }
    return {kStart + after,
            duration,
            1736us,
            verdict,
            std::move(reason),
            std::move(measurements),
            {begin, run.events.next()}};
}

/// All attempts but the last did not pass, and were made again for that.
Step step(const char* name, const char* what, std::deque<Attempt> attempts)
{
    for (std::size_t i = 0; i + 1 < attempts.size(); ++i) {
        attempts[i].superseded = true;
    }
    return {name, "send", what, std::move(attempts), {}};
}

Step skipped(const char* name, const char* what, const char* reason)
{
    return {name, "send", what, {}, Finding{Verdict::kSkipped, reason}};
}

Step modeOn(Run& run)
{
    return step("Switch auto-test mode on", "test.set-mode mode=on",
                {attempt(run, 10ms, 4200us, Verdict::kPass, "", {number("mode", 1, "", {.equals = 1.0})},
                         {sent(10ms, {0x0F, 0x00, {1}}), received(14ms, {0x8F, 0x00, {1}})})});
}

Step modeOff(Run& run)
{
    return step("Switch auto-test mode off", "test.set-mode mode=off",
                {attempt(run, 9s, 4100us, Verdict::kPass, "", {number("mode", 0, "", {.equals = 0.0})},
                         {sent(9s, {0x0F, 0x00, {0}}), received(9004ms, {0x8F, 0x00, {0}})})});
}

Step frequency(Run& run, double megahertz, bool good)
{
    return step(
        "Frequency after the seek", "tuner.frequency",
        {attempt(run, 300ms, 5300us, good ? Verdict::kPass : Verdict::kFail,
                 good ? "" : "frequency: expected 87.5 to 108 MHz, got 9.9 MHz",
                 {number("frequency", megahertz, "MHz", {.minimum = 87.5, .maximum = 108.0}, good),
                  number("round trip", 5.3, "ms", {.maximum = 50.0})},
                 {sent(300ms, {0x02, 0x01, {}}), received(305ms, {0x82, 0x01,
                                                                  good ? std::vector<std::uint8_t>{0x24, 0xFE}
                                                                       : std::vector<std::uint8_t>{0x03, 0xDE}})})});
}

Run base()
{
    Run run;
    run.id = "end-of-line-20261121-140508.123-ttyUSB0";
    run.uuid = "2f1c8f0e-6a0b-4f6e-9d2e-5b8f3a7c1d94";
    run.started = kStart;
    run.ended = kStart + 9100ms;
    run.unit = {"HU-2611-004711", "/dev/serial/by-id/usb-FTDI_FT232R_A50285BI-if00-port0", 115200};
    run.station = {"rack-3", "K. Lindqvist", "1.0.0", "L2"};
    run.plan = {"end-of-line",
                "End-of-line test",
                "share/plans/end-of-line.toml",
                "0fb30cb2e3fc4b1f5ecb7a9c4d2dc5a6f3b1c1f8a7de5e4f0a86a1f3b9f2c7d1",
                0,
                "1.4",
                {{"limit", 40.0, "dB", "--set"}, {"variant", std::string("EU"), "", "default"}}};
    run.catalogueSha256 = "8c1d36a5ef7f2f40b6d9e2a1c3b5d7f90a2b4c6d8e0f1a3b5c7d9e1f2a4b6c8d";
    return run;
}

Group group(const char* name, std::deque<Step> steps)
{
    return {name, {{std::move(steps)}}};
}

Phase setup(Run& run)
{
    return {"setup", {group("Prepare", {modeOn(run)})}, {}};
}

Phase teardown(Run& run)
{
    return {"teardown", {group("Leave", {modeOff(run)})}, {}};
}

Step volume(Run& run, double value)
{
    return step("Volume", "audio.volume",
                {attempt(run, 200ms, 4400us, Verdict::kPass, "",
                         {number("volume", value, "", {.minimum = 0.0, .maximum = 40.0})},
                         {sent(200ms, {0x01, 0x01, {}}), received(204ms, {0x81, 0x01, {12}})})});
}

Step bluetoothName(Run& run)
{
    return step("Bluetooth name", "bluetooth.name",
                {attempt(run, 700ms, 6100us, Verdict::kPass, "",
                         {{"name", std::string("HeadUnit"), "", {.matches = "HeadUnit.*"}, true}},
                         {sent(700ms, {0x04, 0x0D, {}}),
                          received(706ms, {0x84, 0x0D, {0x48, 0x65, 0x61, 0x64, 0x55, 0x6E, 0x69, 0x74}})})});
}

/// Passes the lines of the groups and steps.
template <class Take>
void eachLine(const Run& run, Take take)
{
    for (const Phase& phase : run.phases) {
        std::size_t index = 0;
        for (const Group& group : phase.groups) {
            take(lines::group(phase.name, group.name));
            for (std::size_t i = 0; i < group.tries.size(); ++i) {
                for (const Step& step : group.tries[i].steps) {
                    take(lines::step("step", run.unit.port, {phase.name, group.name, i + 1, index++}, step));
                }
                if (group.tries[i].superseded) {
                    take(lines::superseded(phase.name, group));
                }
            }
        }
    }
}

}  // namespace

Run passed()
{
    Run run = base();
    run.phases.push_back(setup(run));
    run.phases.push_back({"main",
                          {group("Audio", {volume(run, 12)}), group("Tuner", {frequency(run, 94.7, true)}),
                           group("Bluetooth", {bluetoothName(run)})},
                          {}});
    run.phases.push_back(teardown(run));
    return run;
}

Run failed()
{
    Run run = base();
    run.phases.push_back(setup(run));
    const auto source = [&run](std::chrono::milliseconds after, std::uint8_t value) {
        const bool good = value == 4;
        return step(
            "Current source", "source.current",
            {attempt(run, after, 4ms, good ? Verdict::kPass : Verdict::kFail, good ? "" : "source: expected 4, got 1",
                     {number("source", value, "", {.equals = 4.0}, good)},
                     {sent(after, {0x00, 0x01, {}}), received(after + 4ms, {0x80, 0x01, {value}})})});
    };
    Group sources{"Source", {{{source(100ms, 1)}, true}, {{source(150ms, 4)}}}};
    Step quiet = volume(run, 12);
    Step track =
        step("Track index", "media.track",
             {attempt(run, 3800ms, 500ms, Verdict::kTimeout, "no answer within 500 ms", {},
                      {sent(3800ms, {0x03, 0x05, {}})}),
              attempt(run, 4400ms, 7ms, Verdict::kPass, "", {number("index", 2, "", {.minimum = 0.0, .maximum = 99.0})},
                      {sent(4400ms, {0x03, 0x05, {}}), received(4407ms, {0x83, 0x05, {2}})})});
    Step strange = frequency(run, 9.9, false);
    Step antenna = step("Radio antenna", "tuner.antenna",
                        {attempt(run, 400ms, 4900us, Verdict::kFail, "state: expected 1, got 0",
                                 {number("state", 0, "", {.equals = 1.0}, false)},
                                 {sent(400ms, {0x02, 0x12, {}}), received(404ms, {0x82, 0x12, {0}})})});
    Step strength =
        step("Signal strength", "tuner.strength",
             {attempt(run, 450ms, 5ms, Verdict::kPass, "", {number("strength", 61, "dBµV", {.minimum = 40.0})}, {})});
    Step name = bluetoothName(run);
    run.line.corruptFrames = 1;
    TraceEvent damaged = event(TraceEvent::Kind::kCorrupt, 2750ms, {0x85, 0x00, {3}});
    damaged.bytes = {0x2A, 0xA2, 0x00, 0x03, 0x85, 0x00, 0x03, 0x00, 0x12, 0x34};
    Step gps =
        step("GPS satellites", "gps.satellites",
             {attempt(run, 500ms, 1s, Verdict::kTimeout, "no answer within 1 s", {}, {sent(500ms, {0x05, 0x00, {}})}),
              attempt(run, 1600ms, 1s, Verdict::kTimeout, "no answer within 1 s", {}, {sent(1600ms, {0x05, 0x00, {}})}),
              attempt(run, 2700ms, 1s, Verdict::kTimeout, "no answer within 1 s, 1 frame with a wrong checksum", {},
                      {sent(2700ms, {0x05, 0x00, {}}), damaged})});
    run.phases.push_back({"main",
                          {sources, group("Audio", {quiet, track}), group("Tuner", {strange, antenna, strength}),
                           group("Bluetooth", {name}),
                           group("GPS", {gps, skipped("GPS antenna", "gps.antenna",
                                                      "the group was stopped when GPS satellites failed")})},
                          {}});
    run.phases.push_back(teardown(run));
    return run;
}

Run aborted()
{
    Run run = base();
    run.findings = {{Verdict::kAborted, "interrupted by the operator"}};
    run.phases.push_back(setup(run));
    Step wait = step("Press the volume key", "wait keys.pressed",
                     {attempt(run, 500ms, 2300ms, Verdict::kAborted, "interrupted after 2.3 s", {}, {})});
    run.phases.push_back(
        {"main", {group("Keys", {wait, skipped("Key switch off", "keys.switch", "the run was ended")})}, {}});
    run.phases.push_back(teardown(run));
    return run;
}

Run withoutSteps()
{
    Run run = base();
    run.findings = {{Verdict::kError, "/dev/ttyUSB0: no such port; `engineering-station ports` lists what is there"}};
    return run;
}

Run hostile()
{
    Run run = failed();
    const std::string bad =
        "<script>alert('x')</script>&amp;\"]]>--><!-- \x01\x1b[31m\r\n\x7f \xff\xfe \xc3( \xe2\x80\xae \xc2\x9b ]]>" +
        std::string(1, '\0') + "\xef\xbf\xbf=1+1";
    run.findings = {{Verdict::kTimeout, bad}};
    run.unit.serial = bad;
    run.plan.title = bad;
    run.plan.path = bad;
    run.station.operatorName = bad;
    for (Phase& phase : run.phases) {
        phase.name = bad;
        phase.cut = {Verdict::kSkipped, bad};
        for (Group& group : phase.groups) {
            group.name = bad;
            for (Group::Try& each : group.tries) {
                for (Step& one : each.steps) {
                    one.name = one.what = bad;
                    one.cut = one.attempts.empty() ? std::optional(Finding{Verdict::kSkipped, bad}) : std::nullopt;
                    for (Attempt& every : one.attempts) {
                        every.reason = bad;
                        every.measurements.push_back({bad, bad, bad, {.equals = bad, .matches = bad}, false});
                        const std::size_t lost = run.events.add({TraceEvent::Kind::kLost, kStart, {}, {}, bad, {}});
                        every.events = {lost, lost + 1};
                    }
                }
            }
        }
    }
    return run;
}

Run withFrames(std::size_t count)
{
    Run run = passed();
    Attempt& first = run.phases[1].groups[0].tries[0].steps[0].attempts[0];
    std::vector<TraceEvent> frames;
    for (std::size_t i = 0; i < count; ++i) {
        const auto after = 200ms + std::chrono::milliseconds(i);
        frames.push_back(i % 2 == 0 ? sent(after, {0x01, 0x01, {}}) : received(after, {0x81, 0x01, {12}}));
    }
    first.events = attempt(run, 200ms, 4400us, Verdict::kPass, "", {}, frames).events;
    return run;
}

Run measured(const std::string& serial, std::chrono::seconds later, const std::vector<double>& values,
             const Limits& limits)
{
    Run run = passed();
    run.id = "end-of-line-" + std::to_string(later.count());
    run.events = {};
    run.started += later;
    run.ended += later;
    run.unit.serial = serial;
    run.plan.version = "7";
    for (Phase& phase : run.phases) {
        phase.groups.clear();
    }
    Group& group = run.phases[Run::kMain].groups.emplace_back();
    group.name = "levels";
    auto& steps = group.tries.emplace_back().steps;
    for (std::size_t i = 0; i < values.size(); ++i) {
        const bool fits = !(values[i] < limits.minimum) && !(values[i] > limits.maximum);
        const auto after = later + std::chrono::milliseconds(10 * i);
        Attempt one = attempt(run, after, 4400us, fits ? Verdict::kPass : Verdict::kFail, fits ? "" : "out of limits",
                              {{"level", values[i], "mV", limits, fits}},
                              {sent(after, {0x01, 0x01, {}}), received(after + 4ms, {0x81, 0x01, {12}})});
        steps.push_back(step(("Level " + std::to_string(i + 1)).c_str(), "audio.level", {std::move(one)}));
    }
    return run;
}

void write(const Run& run, const std::filesystem::path& directory)
{
    std::filesystem::create_directories(directory / run.id);
    std::ofstream out(directory / run.id / kRecordFile);
    out << toLine(lines::started(run));
    for (const auto& [number, event] : run.events.kept()) {
        out << toLine(lines::line(number, event, "audio.level: level=12"));
    }
    eachLine(run, [&out](const Json& line) { out << toLine(line); });
    out << toLine(lines::ended(run));
}

void tell(const Run& run, ResultsFolder& results)
{
    for (const auto& [number, event] : run.events.kept()) {
        results.capture(event);
        results.claim(number);
    }
    eachLine(run, [&results](Json line) { results.append(std::move(line)); });
}

}  // namespace station::record::samples
