// Changes the state of the simulated head unit as a --headunit file and SetState do, then reads it as the fakes do.
//
// Input: lines `merge JSON`, `set PATH JSON` and `get PATH`.

#include "fuzz/Fuzz.h"
#include "platform/bench/JsonText.h"
#include "platform/bench/State.h"
#include "protocol/Text.h"

using fuzz::expect;
using nlohmann::json;

namespace {

constexpr int kMostLines = 16;

/// Checks that a refusal is one line of text.
void checkMessage(const std::exception& error)
{
    const std::string text = error.what();
    expect(!text.empty() && protocol::printable(text) == text, "a refusal that is not one line: " + text);
}

/// Runs an action that may be refused.
/// @returns whether it was accepted.
template <class Action>
bool accepted(Action action)
{
    try {
        action();
        return true;
    } catch (const bench::StateError& error) {
        checkMessage(error);
    } catch (const bench::JsonError& error) {
        checkMessage(error);
    }
    return false;
}

/// @returns whether D-Bus can carry the text: it must be UTF-8.
bool isUtf8(const std::string& text)
{
    try {
        static_cast<void>(json(text).dump());
        return true;
    } catch (const json::exception&) {
        return false;
    }
}

/// Reads the state as the fakes do.
void read(const bench::State& state)
{
    for (const int number : {-1, 0, 1, 6, 2147483647}) {
        state.numberAt("/audio/mute", number);
        state.numberAt("/tuner/frequency", number);
        state.numbersAt("/tuner/stations", number);
        state.textAt("/bluetooth/attributes", number);
        state.numberAt("/bluetooth/capabilities", number);
    }
    state.flag("/audio/available");
    state.number("/audio/volume");
    state.text("/wifi/text");
    state.numbers("/app_manager/boot_modules");
    expect(state.texts("/system_info/versions").size() == 11, "not 11 versions");
    for (const char* key : {"/engineering/open_debug", "/project/project_name", ""}) {
        state.configFlag(key);
        state.configText(key);
    }
}

/// @param before the whole state before the call; set to the state after it
void carryOut(bench::State& state, std::string_view line, json& before)
{
    const std::string what = fuzz::takeWord(line, ' ');
    if (what != "merge" && what != "set") {
        accepted([&] { bench::toText(state.get(std::string(line))); });
        return;
    }
    const bool isMerge = what == "merge";
    const std::string path = isMerge ? "" : fuzz::takeWord(line, ' ');
    json value;
    if (!isUtf8(path) || !accepted([&] { value = bench::parseJson(line); })) {
        return;
    }
    const bool changes = accepted([&] { isMerge ? state.merge(value) : state.set(path, value); });
    expect(isMerge || !changes || state.get(path) == value, path + " is not what it was set to");
    json after = state.get("");
    expect(changes || after == before, "what was refused has changed the state");
    before = std::move(after);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    bench::State state;
    json whole = state.get("");
    std::string_view text(reinterpret_cast<const char*>(data), size);
    for (int line = 0; line < kMostLines && !text.empty(); ++line) {
        carryOut(state, fuzz::takeWord(text, '\n'), whole);
    }
    expect(bench::parseJson(bench::toText(whole)) == whole, "the state does not survive its text");
    read(state);
    return 0;
}
