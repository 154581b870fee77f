// Changes the head unit while the station asks: events with any arguments, changes of the state, time, modules that
// start, keys.
//
// Input: lines `raise NAME JSON`, `set PATH JSON`, `start MODULE`, `send HEX` (group, command, parameters),
// `key KEY STATUS`, `advance MILLISECONDS`.

#include <charconv>
#include <chrono>

#include "fuzz/EngineHarness.h"
#include "fuzz/Fuzz.h"
#include "platform/bench/JsonText.h"

namespace {

constexpr int kMostLines = 32;

int numberOf(const std::string& text, int base = 10)
{
    int number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number, base);
    return number;
}

void send(fuzz::EngineHarness& harness, std::string_view line)
{
    RecordedWire::Bytes bytes;
    while (!line.empty() && bytes.size() < 254) {
        bytes.push_back(static_cast<std::uint8_t>(numberOf(fuzz::takeWord(line, ' '), 16)));
    }
    if (bytes.size() >= 2) {
        harness.station.sendCommand(bytes[0], bytes[1], {bytes.begin() + 2, bytes.end()});
    }
}

void carryOut(fuzz::EngineHarness& harness, std::string_view line)
{
    const std::string what = fuzz::takeWord(line, ' ');
    if (what == "send") {
        return send(harness, line);
    }
    const std::string first = fuzz::takeWord(line, ' ');
    if (what == "raise") {
        harness.raise(first, bench::parseJson(line));
    } else if (what == "set") {
        harness.set(first, bench::parseJson(line));
    } else if (what == "start") {
        harness.unit.startModule(numberOf(first));
    } else if (what == "key") {
        harness.link().AutoTestFeedbackKeyEvent(static_cast<E_KeyVKey>(numberOf(first)),
                                                static_cast<E_KeyStatus>(numberOf(std::string(line))));
    } else if (what == "advance") {
        harness.timers.advance(std::chrono::milliseconds(numberOf(first)));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    fuzz::EngineHarness harness;
    harness.startInTestMode();

    std::string_view text(reinterpret_cast<const char*>(data), size);
    for (int line = 0; line < kMostLines && !text.empty(); ++line) {
        try {
            carryOut(harness, fuzz::takeWord(text, '\n'));
        } catch (const bench::EventError&) {
        } catch (const bench::StateError&) {
        } catch (const bench::JsonError&) {
        }
    }

    harness.check();
    return 0;
}
