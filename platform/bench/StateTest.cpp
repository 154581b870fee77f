#include "platform/bench/State.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

namespace bench {
namespace {

using nlohmann::json;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using Kind = StateError::Kind;

/// What the page of the simulated head unit promises, value by value.
const json& documentedState()
{
    static const json document = json::parse(R"({
        "app_manager": {
            "available": true, "boot_modules": [1, 2, 3, 5, 7, 8, 9, 15, 20],
            "starts_on_request": true, "start_delay_ms": 200
        },
        "system": {"failing_commands": [], "failing_removals": []},
        "source": {"current": 1, "available": [1, 3, 6, 7, 9, 10, 14, 16, 25, 30, 44]},
        "audio": {"available": true, "volume_limit": 40, "volume": 12, "mute": {"6": 0}},
        "tuner": {
            "available": true, "band": 1, "frequency": {"0": 990, "1": 8750, "3": 0, "4": 0},
            "stations": {"1": [8750, 9470, 10110], "0": [639, 990]}, "rds_af": 0, "rds_ta": 0
        },
        "system_misc": {
            "available": true, "radio_antenna": 4, "dab_antenna": 4, "gps_antenna": 4, "state": 0
        },
        "bluetooth": {
            "attributes": {"2": "5.2", "3": "00:1A:7D:DA:71:13", "4": "HeadUnit"}, "capabilities": {"0": 1, "9": 0},
            "media_connection": {"state": 0, "text": ""}, "phone_connection": {"state": 0, "text": ""},
            "music_status": 0, "call_state": 0, "delete_pairings_result": 1
        },
        "power": {"available": true, "screen_light_type": 1, "status": 16, "state": 0, "shut_down": false},
        "system_info": {
            "versions": [
                "field0", "field1", "field2", "field3", "field4", "field5", "field6", "field7", "field8", "field9",
                "field10"
            ]
        },
        "wifi": {"available": true, "text": "HeadUnit-WLAN"},
        "android_auto": {"state": 0},
        "config": {
            "/engineering/open_debug": false, "/system/enable_cp_test": false, "/project/project_name": "bench"
        }
    })");
    return document;
}

struct Refusal {
    std::optional<Kind> kind;
    std::string message;
};

template <class Action>
Refusal refusalOf(Action action)
{
    try {
        action();
    } catch (const StateError& error) {
        return {error.kind(), error.what()};
    }
    return {};
}

TEST(State, BeginsAsDocumented)
{
    const State state;

    EXPECT_EQ(state.get(""), documentedState());
}

TEST(State, EveryRowIsReadableAtItsPath)
{
    const State state;

    for (const StateRow& row : kStateRows) {
        const std::string path(row.path);
        EXPECT_EQ(state.get(path), documentedState().at(json::json_pointer(path))) << path;
    }
}

struct SetCase {
    const char* name;
    const char* path;
    const char* value;
};

class StateSetTest : public testing::TestWithParam<SetCase>
{
};

TEST_P(StateSetTest, IsAcceptedAndReadBack)
{
    State state;

    state.set(GetParam().path, json::parse(GetParam().value));

    EXPECT_EQ(state.get(GetParam().path), json::parse(GetParam().value));
}

INSTANTIATE_TEST_SUITE_P(
    State, StateSetTest,
    testing::Values(
        SetCase{"Bool", "/audio/available", "false"}, SetCase{"LargestInteger", "/audio/volume", "2147483647"},
        SetCase{"SmallestInteger", "/audio/volume", "-2147483648"}, SetCase{"Text", "/wifi/text", R"("Unit 7")"},
        SetCase{"EmptyArrayOfIntegers", "/source/available", "[]"},
        SetCase{"ElementOfAnArray", "/source/available/10", "45"},
        SetCase{"ArrayOfTexts", "/system/failing_commands", R"(["sync","cp "])"},
        SetCase{"OneVersion", "/system_info/versions/9", R"("2.0")"}, SetCase{"KnownNumber", "/audio/mute/6", "1"},
        SetCase{"NewNumberOfIntegers", "/audio/mute/7", "1"}, SetCase{"NewNegativeNumber", "/audio/mute/-1", "1"},
        SetCase{"NewNumberOfTexts", "/bluetooth/attributes/9", R"("x")"},
        SetCase{"NewNumberOfArrays", "/tuner/stations/3", "[1,2]"},
        SetCase{"EmptyObjectOfNumbers", "/tuner/stations", "{}"},
        SetCase{"ConfigBool", "/config/~1engineering~1open_debug", "true"},
        SetCase{"NewConfigBool", "/config/~1a", "true"}, SetCase{"NewConfigInteger", "/config/~1a", "3"},
        SetCase{"NewConfigText", "/config/~1a", R"("b")"},
        SetCase{"FixedObject", "/bluetooth/media_connection", R"({"state":1,"text":"connected"})"}),
    [](const auto& each) { return each.param.name; });

struct RefusedSetCase {
    const char* name;
    const char* path;
    const char* value;
    Kind kind;
    const char* says;
};

class StateRefusalTest : public testing::TestWithParam<RefusedSetCase>
{
};

TEST_P(StateRefusalTest, SaysWhyAndNothingChanges)
{
    State state;

    const Refusal refusal = refusalOf([&] { state.set(GetParam().path, json::parse(GetParam().value)); });

    EXPECT_EQ(refusal.kind, GetParam().kind) << refusal.message;
    EXPECT_THAT(refusal.message, AllOf(HasSubstr(GetParam().says), Not(HasSubstr("\n"))));
    EXPECT_EQ(state.get(""), documentedState());
}

INSTANTIATE_TEST_SUITE_P(
    State, StateRefusalTest,
    testing::Values(
        RefusedSetCase{"UnknownPath", "/audio/volum", "1", Kind::kUnknownPath, "available, mute, volume, volume_limit"},
        RefusedSetCase{"UnknownBranch", "/video", "1", Kind::kUnknownPath, "expected one of android_auto"},
        RefusedSetCase{"PathWithoutSlash", "audio/volume", "1", Kind::kUnknownPath, "begins with '/'"},
        RefusedSetCase{"PathWithLoneTilde", "/audio/~", "1", Kind::kUnknownPath, "~0"},
        RefusedSetCase{"PathBelowASingleValue", "/audio/volume/x", "1", Kind::kUnknownPath, "nothing below"},
        RefusedSetCase{"PathWithLineEnd", "/audio/\n", "1", Kind::kUnknownPath, "/audio/␊"},
        RefusedSetCase{"ElementBeyondTheArray", "/source/available/11", "1", Kind::kUnknownPath, "11 elements"},
        RefusedSetCase{"ElementAfterTheArray", "/source/available/-", "1", Kind::kUnknownPath, "11 elements"},
        RefusedSetCase{"ElementWithLeadingZero", "/source/available/01", "1", Kind::kUnknownPath, "11 elements"},
        RefusedSetCase{"ElementOfANewNumber", "/tuner/stations/7/0", "1", Kind::kUnknownPath, "a decimal number"},
        RefusedSetCase{"NumberThatIsNone", "/audio/mute/six", "1", Kind::kUnknownPath, "a decimal number"},
        RefusedSetCase{"NumberSpelledOtherwise", "/audio/mute/06", "1", Kind::kUnknownPath, "a decimal number"},
        RefusedSetCase{"ConfigKeyWithoutSlash", "/config/open_debug", "true", Kind::kUnknownPath, "spells ~1"},
        RefusedSetCase{"TextForInteger", "/audio/volume", R"("12")", Kind::kInvalidValue, "got a text"},
        RefusedSetCase{"FractionForInteger", "/audio/volume", "1.5", Kind::kInvalidValue, "got 1.5"},
        RefusedSetCase{"IntegerAboveItsType", "/audio/volume", "2147483648", Kind::kInvalidValue, "to 2147483647"},
        RefusedSetCase{"IntegerBelowItsType", "/audio/volume", "-2147483649", Kind::kInvalidValue, "-2147483648"},
        RefusedSetCase{"IntegerForBool", "/audio/available", "1", Kind::kInvalidValue, "true or false"},
        RefusedSetCase{"NullForText", "/wifi/text", "null", Kind::kInvalidValue, "expected a text, got null"},
        RefusedSetCase{"IntegerForArray", "/source/available", "1", Kind::kInvalidValue, "an array of integers"},
        RefusedSetCase{"TextInIntegers", "/source/available", R"([1,"2"])", Kind::kInvalidValue, "/source/available/1"},
        RefusedSetCase{"TenVersions", "/system_info/versions", R"(["","","","","","","","","",""])",
                       Kind::kInvalidValue, "expected an array of 11 texts, got an array of 10"},
        RefusedSetCase{"IntegerInVersions", "/system_info/versions/0", "1", Kind::kInvalidValue, "expected a text"},
        RefusedSetCase{"TextUnderANumberOfIntegers", "/audio/mute/7", R"("x")", Kind::kInvalidValue, "/audio/mute/7"},
        RefusedSetCase{"IntegerUnderANumberOfTexts", "/bluetooth/attributes/5", "1", Kind::kInvalidValue, "a text"},
        RefusedSetCase{"IntegerUnderANumberOfArrays", "/tuner/stations/1", "1", Kind::kInvalidValue, "an array"},
        RefusedSetCase{"WrongKeyInNumbers", "/audio/mute", R"({"x":1})", Kind::kInvalidValue, "a decimal number"},
        RefusedSetCase{"ArrayForNumbers", "/audio/mute", "[]", Kind::kInvalidValue, "an object of integers"},
        RefusedSetCase{"ConfigKeyOfOtherType", "/config/~1engineering~1open_debug", "1", Kind::kInvalidValue,
                       "/config/~1engineering~1open_debug: expected true or false, got 1"},
        RefusedSetCase{"ConfigTextTurnedBool", "/config/~1project~1project_name", "true", Kind::kInvalidValue,
                       "a text"},
        RefusedSetCase{"ConfigNull", "/config/~1a", "null", Kind::kInvalidValue, "an integer or a text"},
        RefusedSetCase{"BranchWithUnknownName", "/wifi", R"({"available":true,"text":"","x":1})", Kind::kInvalidValue,
                       "/wifi/x: "},
        RefusedSetCase{"BranchWithoutAName", "/wifi", R"({"available":true})", Kind::kInvalidValue,
                       "/wifi/text: expected a value, got none"},
        RefusedSetCase{"SingleValueForBranch", "/wifi", "1", Kind::kInvalidValue, "an object of available, text"},
        RefusedSetCase{"SingleValueForTheWhole", "", "1", Kind::kInvalidValue, "the state: expected an object"}),
    [](const auto& each) { return each.param.name; });

TEST(State, ReadingAnUnknownPathIsRefused)
{
    const State state;

    const Refusal refusal = refusalOf([&] { state.get("/audio/mute/7"); });

    EXPECT_EQ(refusal.kind, Kind::kUnknownPath);
    EXPECT_THAT(refusal.message, HasSubstr("/audio/mute/7"));
}

TEST(State, NewConfigIntegerKeepsItsTypeFromThenOn)
{
    State state;
    state.set("/config/~1level", 3);

    const Refusal refusal = refusalOf([&] { state.set("/config/~1level", "high"); });

    EXPECT_EQ(refusal.kind, Kind::kInvalidValue);
    EXPECT_EQ(state.get("/config/~1level"), 3);
}

TEST(State, WholeStateCanBeReplaced)
{
    State state;
    json other = documentedState();
    other["audio"]["volume"] = 3;

    state.set("", other);

    EXPECT_EQ(state.number("/audio/volume"), 3);
}

TEST(State, PatchIsMergedAndLeavesTheRest)
{
    State state;

    state.merge(json::parse(R"({"audio":{"volume":3,"mute":{"5":1}},"tuner":{"stations":{"0":null}}})"));

    json expected = documentedState();
    expected["audio"]["volume"] = 3;
    expected["audio"]["mute"]["5"] = 1;
    expected["tuner"]["stations"].erase("0");
    EXPECT_EQ(state.get(""), expected);
}

TEST(State, PatchWithUnknownNameIsRefusedAsAWhole)
{
    State state;

    const Refusal refusal = refusalOf([&] { state.merge({{"audio", {{"volume", 3}, {"volum", 4}}}}); });

    EXPECT_EQ(refusal.kind, Kind::kUnknownPath);
    EXPECT_THAT(refusal.message, HasSubstr("/audio/volum"));
    EXPECT_EQ(state.get(""), documentedState());
}

TEST(State, PatchCannotRemoveWhatTheHeadUnitHas)
{
    State state;

    const Refusal refusal = refusalOf([&] { state.merge({{"audio", {{"volume", nullptr}}}}); });

    EXPECT_EQ(refusal.kind, Kind::kInvalidValue);
    EXPECT_THAT(refusal.message, HasSubstr("/audio/volume: expected a value, got none"));
}

TEST(State, PatchThatIsNoObjectIsRefused)
{
    State state;

    EXPECT_EQ(refusalOf([&] { state.merge(json::array()); }).kind, Kind::kInvalidValue);
}

TEST(State, FakesReadEachTypeAsItIs)
{
    State state;
    state.merge(json::parse(R"({"system":{"failing_commands":["sync"]},"config":{"/engineering/open_debug":true}})"));

    EXPECT_TRUE(state.flag("/audio/available"));
    EXPECT_EQ(state.number("/audio/volume_limit"), 40);
    EXPECT_EQ(state.text("/wifi/text"), "HeadUnit-WLAN");
    EXPECT_THAT(state.numbers("/app_manager/boot_modules"), ElementsAre(1, 2, 3, 5, 7, 8, 9, 15, 20));
    EXPECT_THAT(state.texts("/system/failing_commands"), ElementsAre("sync"));
    EXPECT_EQ(state.numberAt("/tuner/frequency", 1), 8750);
    EXPECT_EQ(state.textAt("/bluetooth/attributes", 2), "5.2");
    EXPECT_THAT(state.numbersAt("/tuner/stations", 0), ElementsAre(639, 990));
    EXPECT_EQ(state.configFlag("/engineering/open_debug"), true);
    EXPECT_EQ(state.configText("/project/project_name"), "bench");
}

TEST(State, WhatIsNotListedIsNothing)
{
    const State state;

    EXPECT_EQ(state.numberAt("/audio/mute", 7), std::nullopt);
    EXPECT_EQ(state.textAt("/bluetooth/attributes", 7), std::nullopt);
    EXPECT_THAT(state.numbersAt("/tuner/stations", 7), IsEmpty());
    EXPECT_EQ(state.configFlag("/none"), std::nullopt);
    EXPECT_EQ(state.configText("/none"), std::nullopt);
    EXPECT_EQ(state.configFlag("/project/project_name"), std::nullopt);
    EXPECT_EQ(state.configText("/engineering/open_debug"), std::nullopt);
}

TEST(State, ObserverIsToldEachChangeAndMayReadTheState)
{
    State state;
    std::vector<std::string> told;
    state.changes().add([&](const StateChange& change) {
        told.push_back(change.path + "=" + change.value.dump() + ", volume " + state.get("/audio/volume").dump());
    });

    state.set("/audio/volume", 3);
    state.set("/tuner/band", 0);
    EXPECT_THROW(state.set("/tuner/band", "x"), StateError);

    EXPECT_THAT(told, ElementsAre("/audio/volume=3, volume 3", "/tuner/band=0, volume 3"));
}

TEST(State, ChangeThatAnObserverMakesIsToldAfterItsCause)
{
    State state;
    std::vector<std::string> told;
    state.changes().add([&](const StateChange& change) {
        if (change.path == "/tuner/band") {
            state.set("/audio/volume", 9);
        }
        told.push_back(change.path);
    });

    state.set("/tuner/band", 0);

    EXPECT_THAT(told, ElementsAre("/tuner/band", "/audio/volume"));
}

TEST(State, RemovedObserverIsNotToldAnyMore)
{
    State state;
    int told = 0;
    const int observer = state.changes().add([&](const StateChange&) { ++told; });
    state.set("/audio/volume", 3);

    state.changes().remove(observer);
    state.set("/audio/volume", 4);

    EXPECT_EQ(told, 1);
}

TEST(State, MergeTellsTheWholeState)
{
    State state;
    std::vector<StateChange> told;
    state.changes().add([&](const StateChange& change) { told.push_back(change); });

    state.merge({{"audio", {{"volume", 3}}}});

    ASSERT_EQ(told.size(), 1u);
    EXPECT_EQ(told[0].path, "");
    EXPECT_EQ(told[0].value.at("/audio/volume"_json_pointer), 3);
}

TEST(State, ObserverSeesTheChangesOfSeveralThreadsInTheirOrder)
{
    State state;
    json last;
    state.changes().add([&](const StateChange& change) { last = change.value; });

    {
        std::vector<std::jthread> writers;
        for (int writer = 0; writer < 4; ++writer) {
            writers.emplace_back([&state, writer] {
                for (int value = 0; value < 50; ++value) {
                    state.set("/audio/volume", writer * 1000 + value);
                }
            });
        }
    }

    EXPECT_EQ(last, state.get("/audio/volume"));
}

}  // namespace
}  // namespace bench
