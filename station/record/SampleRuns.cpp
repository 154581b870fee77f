#include "station/record/SampleRuns.h"

#include <utility>

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

Attempt attempt(std::chrono::nanoseconds after, std::chrono::nanoseconds duration, Verdict verdict, std::string reason,
                std::vector<Measurement> measurements, std::vector<TraceEvent> frames)
{
    return {kStart + after, duration, 1736us, verdict, std::move(reason), std::move(measurements), std::move(frames)};
}

Step step(const char* name, const char* what, std::vector<Attempt> attempts)
{
    const Attempt last = attempts.empty() ? Attempt{} : attempts.back();
    return {name, "send", what, attempts.empty() ? Verdict::kSkipped : last.verdict, last.reason, std::move(attempts)};
}

Step skipped(const char* name, const char* what, const char* reason)
{
    Step one = step(name, what, {});
    one.reason = reason;
    return one;
}

Step modeOn()
{
    return step("Switch auto-test mode on", "test.set-mode mode=on",
                {attempt(10ms, 4200us, Verdict::kPass, "", {number("mode", 1, "", {.equals = 1.0})},
                         {sent(10ms, {0x0F, 0x00, {1}}), received(14ms, {0x8F, 0x00, {1}})})});
}

Step modeOff()
{
    return step("Switch auto-test mode off", "test.set-mode mode=off",
                {attempt(9s, 4100us, Verdict::kPass, "", {number("mode", 0, "", {.equals = 0.0})},
                         {sent(9s, {0x0F, 0x00, {0}}), received(9004ms, {0x8F, 0x00, {0}})})});
}

Step frequency(double megahertz, bool good)
{
    return step(
        "Frequency after the seek", "tuner.frequency",
        {attempt(300ms, 5300us, good ? Verdict::kPass : Verdict::kFail,
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
    run.started = kStart;
    run.ended = kStart + 9100ms;
    run.verdict = Verdict::kPass;
    run.unit = {"HU-2611-004711", "/dev/serial/by-id/usb-FTDI_FT232R_A50285BI-if00-port0", 115200};
    run.station = {"rack-3", "K. Lindqvist", "1.0.0"};
    run.plan = {"end-of-line", "End-of-line test", "share/plans/end-of-line.toml",
                "0fb30cb2e3fc4b1f5ecb7a9c4d2dc5a6f3b1c1f8a7de5e4f0a86a1f3b9f2c7d1"};
    run.catalogueSha256 = "8c1d36a5ef7f2f40b6d9e2a1c3b5d7f90a2b4c6d8e0f1a3b5c7d9e1f2a4b6c8d";
    return run;
}

/// Everything that the attempts have is what passed on the line.
Run withTrace(Run run)
{
    for (const Phase& phase : run.phases) {
        for (const Group& group : phase.groups) {
            for (const Group::Try& each : group.tries) {
                for (const Step& one : each.steps) {
                    for (const Attempt& every : one.attempts) {
                        run.trace.insert(run.trace.end(), every.frames.begin(), every.frames.end());
                    }
                }
            }
        }
    }
    return run;
}

Phase setup()
{
    return {"setup", Verdict::kPass, "", {{"Prepare", Verdict::kPass, {{Verdict::kPass, {modeOn()}}}}}};
}

Phase teardown()
{
    return {"teardown", Verdict::kPass, "", {{"Leave", Verdict::kPass, {{Verdict::kPass, {modeOff()}}}}}};
}

Step volume(double value)
{
    return step(
        "Volume", "audio.volume",
        {attempt(200ms, 4400us, Verdict::kPass, "", {number("volume", value, "", {.minimum = 0.0, .maximum = 40.0})},
                 {sent(200ms, {0x01, 0x01, {}}), received(204ms, {0x81, 0x01, {12}})})});
}

Step bluetoothName()
{
    return step("Bluetooth name", "bluetooth.name",
                {attempt(700ms, 6100us, Verdict::kPass, "",
                         {{"name", std::string("HeadUnit"), "", {.matches = "HeadUnit.*"}, true}},
                         {sent(700ms, {0x04, 0x0D, {}}),
                          received(706ms, {0x84, 0x0D, {0x48, 0x65, 0x61, 0x64, 0x55, 0x6E, 0x69, 0x74}})})});
}

}  // namespace

Run passed()
{
    Run run = base();
    run.phases = {setup(),
                  {"main",
                   Verdict::kPass,
                   "",
                   {{"Audio", Verdict::kPass, {{Verdict::kPass, {volume(12)}}}},
                    {"Tuner", Verdict::kPass, {{Verdict::kPass, {frequency(94.7, true)}}}},
                    {"Bluetooth", Verdict::kPass, {{Verdict::kPass, {bluetoothName()}}}}}},
                  teardown()};
    return withTrace(std::move(run));
}

Run failed()
{
    Run run = base();
    run.verdict = Verdict::kTimeout;
    Step antenna = step("Radio antenna", "tuner.antenna",
                        {attempt(400ms, 4900us, Verdict::kFail, "state: expected exactly 1 (good), got 0 (not good)",
                                 {number("state", 0, "", {.equals = 1.0}, false)},
                                 {sent(400ms, {0x02, 0x12, {}}), received(404ms, {0x82, 0x12, {0}})})});
    Step gps =
        step("GPS satellites", "gps.satellites",
             {attempt(500ms, 1s, Verdict::kTimeout, "no answer within 1 s", {}, {sent(500ms, {0x05, 0x00, {}})}),
              attempt(1600ms, 1s, Verdict::kTimeout, "no answer within 1 s", {}, {sent(1600ms, {0x05, 0x00, {}})}),
              attempt(2700ms, 1s, Verdict::kTimeout, "no answer within 1 s, 1 frame with a wrong checksum", {},
                      {sent(2700ms, {0x05, 0x00, {}})})});
    TraceEvent damaged = event(TraceEvent::Kind::kCorrupt, 2750ms, {0x85, 0x00, {3}});
    damaged.bytes = {0x2A, 0xA2, 0x00, 0x03, 0x85, 0x00, 0x03, 0x00, 0x12, 0x34};
    gps.attempts.back().frames.push_back(damaged);
    Step track = step(
        "Track index", "media.track",
        {attempt(3800ms, 500ms, Verdict::kTimeout, "no answer within 500 ms", {}, {sent(3800ms, {0x03, 0x05, {}})}),
         attempt(4400ms, 7ms, Verdict::kPass, "", {number("index", 2, "", {.minimum = 0.0, .maximum = 99.0})},
                 {sent(4400ms, {0x03, 0x05, {}}), received(4407ms, {0x83, 0x05, {2}})})});
    Group tuner{
        "Tuner",
        Verdict::kFail,
        {{Verdict::kFail,
          {frequency(9.9, false), antenna,
           step("Signal strength", "tuner.strength",
                {attempt(450ms, 5ms, Verdict::kPass, "", {number("strength", 61, "dBµV", {.minimum = 40.0})}, {})})}}}};
    Group source{"Source",
                 Verdict::kPass,
                 {{Verdict::kFail,
                   {step("Current source", "source.current",
                         {attempt(100ms, 4ms, Verdict::kFail, "source: expected exactly 4, got 1",
                                  {number("source", 1, "", {.equals = 4.0}, false)},
                                  {sent(100ms, {0x00, 0x01, {}}), received(104ms, {0x80, 0x01, {1}})})})}},
                  {Verdict::kPass,
                   {step("Current source", "source.current",
                         {attempt(150ms, 4ms, Verdict::kPass, "", {number("source", 4, "", {.equals = 4.0})},
                                  {sent(150ms, {0x00, 0x01, {}}), received(154ms, {0x80, 0x01, {4}})})})}}}};
    run.phases = {
        setup(),
        {"main",
         Verdict::kTimeout,
         "",
         {source,
          {"Audio", Verdict::kPass, {{Verdict::kPass, {volume(12), track}}}},
          tuner,
          {"Bluetooth", Verdict::kPass, {{Verdict::kPass, {bluetoothName()}}}},
          {"GPS",
           Verdict::kTimeout,
           {{Verdict::kTimeout,
             {gps, skipped("GPS antenna", "gps.antenna", "the group was stopped when GPS satellites failed")}}}}}},
        teardown()};
    return withTrace(std::move(run));
}

Run aborted()
{
    Run run = base();
    run.verdict = Verdict::kAborted;
    run.reason = "interrupted by the operator";
    Step wait = step("Press the volume key", "wait keys.pressed",
                     {attempt(500ms, 2300ms, Verdict::kAborted, "interrupted after 2.3 s", {}, {})});
    run.phases = {setup(),
                  {"main",
                   Verdict::kAborted,
                   "",
                   {{"Keys",
                     Verdict::kAborted,
                     {{Verdict::kAborted, {wait, skipped("Key switch off", "keys.switch", "the run was ended")}}}}}},
                  teardown()};
    return withTrace(std::move(run));
}

Run withoutSteps()
{
    Run run = base();
    run.verdict = Verdict::kError;
    run.reason = "/dev/ttyUSB0: no such port; `engineering-station ports` lists what is there";
    return run;
}

Run hostile()
{
    Run run = failed();
    const std::string bad =
        "<script>alert('x')</script>&amp;\"]]>--><!-- \x01\x1b[31m\r\n\x7f \xff\xfe \xc3( \xe2\x80\xae ]]>" +
        std::string(1, '\0') + "\xef\xbf\xbf=1+1";
    run.reason = bad;
    run.unit.serial = bad;
    run.plan.title = bad;
    run.plan.path = bad;
    run.station.operatorName = bad;
    for (Phase& phase : run.phases) {
        phase.name = bad;
        phase.reason = bad;
        for (Group& group : phase.groups) {
            group.name = bad;
            for (Group::Try& each : group.tries) {
                for (Step& one : each.steps) {
                    one.name = one.what = one.reason = bad;
                    for (Attempt& every : one.attempts) {
                        every.reason = bad;
                        every.measurements.push_back({bad, bad, bad, {.equals = bad, .matches = bad}, false});
                        every.frames.push_back({TraceEvent::Kind::kLost, kStart, {}, {}, bad, {}});
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
    first.frames.clear();
    for (std::size_t i = 0; i < count; ++i) {
        const auto after = 200ms + std::chrono::milliseconds(i);
        first.frames.push_back(i % 2 == 0 ? sent(after, {0x01, 0x01, {}}) : received(after, {0x81, 0x01, {12}}));
    }
    run.trace = first.frames;
    return run;
}

}  // namespace station::record::samples
