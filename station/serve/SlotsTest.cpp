#include "station/serve/Slots.h"

#include <gmock/gmock.h>

#include <fstream>

#include "protocol/catalogue/Catalogue.h"
#include "station/FrameScanner.h"
#include "station/plan/RunnerTest.h"
#include "station/plan/ScriptedUnit.h"
#include "station/serve/Api.h"
#include "tests/support/TempDir.h"

namespace station::serve {
namespace {

using namespace std::chrono_literals;
using plan::tests::Frame;
using plan::tests::ScriptedUnit;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;

constexpr const char* kReadMode =
    "schema = 1\nname = \"quick\"\ntitle = \"Quick\"\n[[main]]\nname = \"Mode\"\nsteps = [{ send = \"test.mode\", "
    "expect = { mode = \"on\" } }]\n";

/// Two slots, each with a unit that answers to the mode, and plans in a folder.
class SlotsTest : public testing::Test
{
protected:
    SlotsTest()
    {
        settings.slots = {{"left", left_.path(), "SLOT-L"}, {"right", right_.path(), ""}};
        settings.products = {{"HU[0-9]+", "quick"}};
        settings.results = directory_.path() / "results";
        settings.station.host = "EOL 3";
        settings.findPlan = [this](const std::string& name) { return (directory_.path() / (name + ".toml")).string(); };
        settings.publish = [this](const std::string& type, const Json& data) {
            const std::lock_guard lock(mutex_);
            published_.emplace_back(type, data);
            changed_.notify_all();
        };
        write("quick", kReadMode);
        left_.start();
        right_.start();
    }

    ~SlotsTest() override
    {
        slots.reset();
        left_.stop();
        right_.stop();
    }

    void write(const std::string& name, const std::string& text)
    {
        std::ofstream(directory_.path() / (name + ".toml")) << text;
    }

    /// A plan that asks this; to be made before open().
    void ask(const std::string& step)
    {
        write("quick", "schema = 1\nname = \"quick\"\ntitle = \"Quick\"\n[[main]]\nname = \"Ask\"\nsteps = [{ " + step +
                           " }]\n");
    }

    Slots& open()
    {
        slots.emplace(settings, surroundings_);
        return *slots;
    }

    /// Waits for the state of a slot that fits.
    Json await(const std::string& slot, const std::function<bool(const Json&)>& fits)
    {
        std::unique_lock lock(mutex_);
        Json found;
        const bool came = changed_.wait_for(lock, 30s, [&] {
            const auto last = std::find_if(published_.rbegin(), published_.rend(), [&](const auto& each) {
                return each.first == "slot" && each.second["slot"] == slot;
            });
            found = last == published_.rend() ? Json() : last->second;
            return !found.is_null() && fits(found);
        });
        EXPECT_TRUE(came) << found.dump();
        return found;
    }

    Json awaitEnd(const std::string& slot)
    {
        return await(slot, [](const Json& state) { return state["state"] == "ended"; });
    }

    Json awaitQuestion(const std::string& slot)
    {
        return await(slot, [](const Json& state) { return !state["question"].is_null(); })["question"];
    }

    std::vector<std::string> typesFor(const std::string& slot)
    {
        const std::lock_guard lock(mutex_);
        std::vector<std::string> types;
        for (const auto& [type, data] : published_) {
            if (type != "slot" && data.contains("slot") && data["slot"] == slot) {
                types.push_back(type);
            }
        }
        return types;
    }

    /// @returns "409 every slot is busy"; empty if nothing was refused.
    static std::string refusalOf(const std::function<void()>& act)
    {
        try {
            act();
        } catch (const Refused& refused) {
            return std::to_string(refused.status()) + ' ' + refused.what();
        }
        return "";
    }

    void answerTheMode(bool on) { isOn_ = on; }

    SlotsSettings settings;
    std::optional<Slots> slots;

private:
    ScriptedUnit::Script script(ScriptedUnit& unit)
    {
        return [this, &unit](const Frame& frame) {
            if (frame.cmdOne == 0x0F && frame.cmdTwo == 0xFF) {
                unit.write(wireBytes(Frame{0x8F, 0xFF, {static_cast<std::uint8_t>(isOn_)}}));
            }
        };
    }

    const ::tests::TempDir directory_;
    std::atomic<bool> isOn_ = true;
    ScriptedUnit left_{script(left_)};
    ScriptedUnit right_{script(right_)};
    plan::tests::ReadyOperator prompter_;
    plan::tests::HeadUnitStub headUnit_;
    const plan::Surroundings surroundings_{protocol::catalogue::groups(), prompter_, headUnit_};
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::pair<std::string, Json>> published_;  // guarded by mutex_
};

TEST_F(SlotsTest, ScannedUnitIsTestedAtTheFirstFreeSlot)
{
    Slots& station = open();

    EXPECT_EQ(station.scan("HU1", "anna"), (Json{{"started", "left"}}));
    const Json end = awaitEnd("left");

    EXPECT_EQ(end["serial"], "HU1");
    EXPECT_EQ(end["plan"], "quick");
    EXPECT_EQ(end["present"], true);
    EXPECT_EQ(end["result"]["verdict"], "PASS");
    EXPECT_EQ(end["result"]["reason"], "");
    EXPECT_TRUE(std::filesystem::exists(end["result"]["folder"].get<std::string>() + "/record.jsonl"));
    EXPECT_THAT(typesFor("left"), ElementsAre("started", "step"));
    const Json snapshot = station.snapshot();
    EXPECT_EQ(snapshot["station"], "EOL 3");
    EXPECT_EQ(snapshot["slots"][0], end);
    EXPECT_EQ(snapshot["slots"][1]["state"], "free");
}

TEST_F(SlotsTest, UnitThatFailsHasItsReason)
{
    answerTheMode(false);

    open().scan("HU1", "");

    const Json end = awaitEnd("left");
    EXPECT_EQ(end["result"]["verdict"], "FAIL");
    EXPECT_THAT(end["result"]["reason"].get<std::string>(), HasSubstr("mode: expected \"on\", got \"off\""));
}

TEST_F(SlotsTest, BarcodeSelectsTheSlotForTheNextUnit)
{
    settings.slots[1].barcode = "SLOT-R";
    Slots& station = open();

    EXPECT_EQ(station.scan("SLOT-R", ""), (Json{{"selected", "right"}}));
    EXPECT_EQ(station.snapshot()["selected"], "right");
    EXPECT_EQ(station.scan("HU1", ""), (Json{{"started", "right"}}));
    EXPECT_EQ(station.snapshot()["selected"], "");
    EXPECT_EQ(station.scan("HU2", ""), (Json{{"started", "left"}}));
}

TEST_F(SlotsTest, ScanThatFitsNothingIsRefused)
{
    Slots& station = open();

    EXPECT_EQ(refusalOf([&] { station.scan("XY1", ""); }),
              "422 'XY1' is not the serial number of a product of this station");
    EXPECT_EQ(refusalOf([&] { station.scan("", ""); }), "422 expected a scan of 1 to 256 bytes, got 0");
    EXPECT_EQ(refusalOf([&] { station.scan(std::string(257, 'H'), ""); }),
              "422 expected a scan of 1 to 256 bytes, got 257");
    EXPECT_EQ(refusalOf([&] { station.start("middle", "HU1", ""); }),
              "404 expected a slot of the station, got 'middle'");
    EXPECT_EQ(refusalOf([&] { station.abort("left"); }), "409 slot left tests no unit");
    EXPECT_EQ(refusalOf([&] { station.answer("left-1", "yes"); }), "409 the question has been answered, or is over");
    EXPECT_EQ(refusalOf([&] { station.image("left-1"); }), "404 expected an open question with a picture");
}

TEST_F(SlotsTest, BusySlotsAndUnitsAreRefused)
{
    ask("prompt = \"Is it there?\", id = \"there\"");
    Slots& station = open();
    station.scan("HU1", "");

    EXPECT_EQ(refusalOf([&] { station.scan("HU1", ""); }), "409 slot left tests 'HU1' already");
    EXPECT_EQ(refusalOf([&] { station.start("left", "HU2", ""); }), "409 slot left tests 'HU1'");
    station.scan("HU2", "");
    EXPECT_EQ(refusalOf([&] { station.scan("HU3", ""); }), "409 every slot is busy");
}

TEST_F(SlotsTest, EachSlotHasItsQuestion)
{
    ask("prompt = \"Is it there?\", id = \"there\"");
    Slots& station = open();
    station.scan("HU1", "");
    station.scan("HU2", "");
    const Json left = awaitQuestion("left");
    const Json right = awaitQuestion("right");

    EXPECT_EQ(left["text"], "Is it there?");
    EXPECT_EQ(left["kind"], "yes/no");
    EXPECT_THAT(left["id"].get<std::string>(), MatchesRegex("left-[0-9]+"));
    EXPECT_EQ(refusalOf([&] { station.answer(right["id"], "maybe"); }), "422 expected yes or no, got 'maybe'");
    station.answer(right["id"], "yes");
    EXPECT_EQ(refusalOf([&] { station.answer(right["id"], "no"); }), "409 the question has been answered, or is over");
    EXPECT_EQ(awaitEnd("right")["result"]["verdict"], "PASS");
    station.answer(left["id"], "no");
    EXPECT_EQ(awaitEnd("left")["result"]["verdict"], "FAIL");
}

TEST_F(SlotsTest, ScanAnswersTheOneQuestionWhoseMaskItMatches)
{
    ask(R"(prompt = "Scan the board", id = "board", answer = "text", mask = "PCB[0-9]+")");
    Slots& station = open();
    station.scan("HU1", "");
    const std::string left = awaitQuestion("left")["id"];

    EXPECT_EQ(station.scan("PCB12", ""), (Json{{"answered", left}}));
    EXPECT_EQ(awaitEnd("left")["result"]["verdict"], "PASS");

    station.scan("HU2", "");
    station.scan("HU3", "");
    const std::string first = awaitQuestion("left")["id"];
    const std::string second = awaitQuestion("right")["id"];
    EXPECT_EQ(station.scan("PCB12", ""), (Json{{"choose", {first, second}}}));
    station.answer(second, "PCB12");
    EXPECT_EQ(awaitEnd("right")["result"]["verdict"], "PASS");
}

TEST_F(SlotsTest, QuestionThatIsNotAnsweredInTimeIsAnError)
{
    ask("prompt = \"Is it there?\", id = \"there\", timeout = 0.05");

    open().scan("HU1", "");

    EXPECT_EQ(awaitEnd("left")["result"]["verdict"], "ERROR");
}

TEST_F(SlotsTest, AbortEndsTheRunOfItsSlotOnly)
{
    ask("prompt = \"Is it there?\", id = \"there\"");
    Slots& station = open();
    station.scan("HU1", "");
    station.scan("HU2", "");
    awaitQuestion("left");
    const Json right = awaitQuestion("right");

    station.abort("left");

    const Json end = awaitEnd("left");
    EXPECT_EQ(end["result"]["verdict"], "ABORTED");
    EXPECT_EQ(end["question"], nullptr);
    EXPECT_EQ(end["ending"], false);
    EXPECT_EQ(station.snapshot()["shift"]["units"], 0) << "a run that was aborted does not count";
    station.answer(right["id"], "yes");
    EXPECT_EQ(awaitEnd("right")["result"]["verdict"], "PASS");
}

TEST_F(SlotsTest, StationThatEndsAbortsItsRuns)
{
    ask("prompt = \"Is it there?\", id = \"there\"");
    open().scan("HU1", "");
    awaitQuestion("left");

    slots.reset();

    EXPECT_EQ(awaitEnd("left")["result"]["verdict"], "ABORTED");
}

TEST_F(SlotsTest, PlanThatCannotBeRunIsAnErrorWithoutARecord)
{
    settings.products = {{"HU1", "quick"}, {"HU2", "broken"}, {"HU3", "missing"}, {"HU4", "erases"}};
    write("broken", "schema = 1\ntitle = \"Broken\"\nname = 7\n");
    write("erases",
          "schema = 1\nname = \"erases\"\ntitle = \"Erases\"\n[[main]]\nname = \"G\"\nsteps = [{ send = "
          "\"keys.factory-reset\", with = { confirm = \"yes\" } }]\n");
    Slots& station = open();

    for (const auto& [serial, reason] : {std::pair("HU2", "broken.toml:"),
                                         {"HU3", "missing.toml: no such file"},
                                         {"HU4", "expected 'destructive = true' of its [[product]]"}}) {
        station.start("left", serial, "");
        const Json end = await("left", [&, wanted = serial](const Json& state) {
            return state["state"] == "ended" && state["serial"] == wanted;
        });
        EXPECT_EQ(end["result"]["verdict"], "ERROR");
        EXPECT_THAT(end["result"]["reason"].get<std::string>(), HasSubstr(reason));
        EXPECT_EQ(end["result"]["folder"], "");
    }
    EXPECT_EQ(station.snapshot()["shift"]["units"], 0);
}

TEST_F(SlotsTest, ShiftCountsUnitsAndRetestsApart)
{
    Slots& station = open();
    const auto test = [&](const char* serial, bool on) {
        answerTheMode(on);
        station.start("left", serial, "");
        await("left", [&](const Json& state) { return state["state"] == "ended" && state["serial"] == serial; });
    };
    test("HU1", true);
    test("HU2", false);
    test("HU2", true);

    const Json shift = station.snapshot()["shift"];

    EXPECT_EQ(shift["units"], 2);
    EXPECT_EQ(shift["first_pass"], 1);
    EXPECT_EQ(shift["retests"], 1);
    ASSERT_EQ(shift["last"].size(), 3U);
    EXPECT_EQ(shift["last"][0]["serial"], "HU2");
    EXPECT_EQ(shift["last"][0]["verdict"], "PASS");
    EXPECT_EQ(shift["last"][0]["retest"], true);
    EXPECT_EQ(shift["last"][2]["serial"], "HU1");
}

/// The station's routes, without a server.
class ApiTest : public SlotsTest
{
protected:
    web::Response call(const std::string& method, const std::string& path, const std::string& body = "",
                       const web::Texts& parts = {})
    {
        if (!api_) {
            api_.emplace(open(), events_);
            routes_ = api_->routes();
        }
        const auto route = std::ranges::find_if(
            routes_, [&](const web::Route& each) { return each.method == method && each.path == path; });
        web::Request request;
        request.path = path;
        request.body = body;
        request.parts = parts;
        request.user.name = "anna";
        return route == routes_.end() ? web::Response{404} : route->handler(request);
    }

    ~ApiTest() override { slots.reset(); }

private:
    web::Events events_{10, [] { return "{}"; }};
    std::optional<Api> api_;
    std::vector<web::Route> routes_;
};

TEST_F(ApiTest, PageAndItsPartsNeedNothingFromElsewhere)
{
    for (const char* path : {"/", "/app.js", "/style.css", "/en.json", "/de.json", "/icon.svg"}) {
        const web::Response part = call("GET", path);
        EXPECT_EQ(part.status, 200U) << path;
        EXPECT_THAT(part.body,
                    testing::Not(testing::ContainsRegex("(src|href|url|import|fetch)[=( ]+[\"'`]?(https?:)?//")))
            << path;
    }
    const auto keys = [this](const char* path) {
        std::vector<std::string> all;
        const Json texts = Json::parse(call("GET", path).body);
        for (const auto& [key, text] : texts.items()) {
            all.push_back(key);
        }
        return all;
    };
    EXPECT_EQ(keys("/en.json"), keys("/de.json"));
}

TEST_F(ApiTest, RepeatedCommandGetsTheSameAnswerOnce)
{
    const std::string scan = R"({"text":"HU1","request":"a1"})";

    EXPECT_EQ(call("POST", "/api/v1/scan", scan).body, R"({"started":"left"})");
    EXPECT_EQ(call("POST", "/api/v1/scan", scan).body, R"({"started":"left"})");

    awaitEnd("left");
    EXPECT_EQ(Json::parse(call("GET", "/api/v1/station").body)["shift"]["units"], 1);
    EXPECT_EQ(call("POST", "/api/v1/scan", R"({"text":"SLOT-L","request":"a2"})").body, R"({"selected":"left"})");
}

TEST_F(ApiTest, RefusedCommandSaysWhy)
{
    for (const char* body : {"", "[]", "{", R"({"text":"HU1"})", R"({"text":"HU1","request":""})",
                             R"({"text":"HU1","request":7})", R"({"request":"a"})", R"({"text":7,"request":"b"})"}) {
        const web::Response response = call("POST", "/api/v1/scan", body);
        EXPECT_EQ(response.status, 400U) << body;
        EXPECT_THAT(Json::parse(response.body)["error"].get<std::string>(), testing::StartsWith("expected ")) << body;
    }
    EXPECT_EQ(call("POST", "/api/v1/scan", R"({"text":"HU1","request":")" + std::string(65, 'a') + "\"}").status, 400U);
    EXPECT_EQ(call("POST", "/api/v1/slots/{slot}/start", R"({"serial":"HU1","request":"c"})", {{"slot", "up"}}).status,
              404U);
    EXPECT_EQ(call("POST", "/api/v1/slots/{slot}/abort", R"({"request":"d"})", {{"slot", "left"}}).status, 409U);
    EXPECT_EQ(call("POST", "/api/v1/answers", R"({"question":"left-1","answer":"yes","request":"e"})").status, 409U);
    EXPECT_EQ(call("GET", "/api/v1/questions/{question}/image", "", {{"question", "left-1"}}).status, 404U);
}

TEST_F(ApiTest, SlotIsStartedAnsweredAndAborted)
{
    ask("prompt = \"Is it there?\", id = \"there\"");
    EXPECT_EQ(call("POST", "/api/v1/slots/{slot}/start", R"({"serial":"HU1","request":"a"})", {{"slot", "left"}}).body,
              R"({"started":"left"})");
    const std::string question = awaitQuestion("left")["id"];
    EXPECT_EQ(
        call("POST", "/api/v1/answers", R"({"question":")" + question + R"(","answer":"yes","request":"b"})").body,
        R"({"answered":")" + question + "\"}");
    EXPECT_EQ(awaitEnd("left")["result"]["verdict"], "PASS");
    call("POST", "/api/v1/slots/{slot}/start", R"({"serial":"HU1","request":"c"})", {{"slot", "right"}});
    awaitQuestion("right");
    EXPECT_EQ(call("POST", "/api/v1/slots/{slot}/abort", R"({"request":"d"})", {{"slot", "right"}}).body,
              R"({"ending":"right"})");
    EXPECT_EQ(awaitEnd("right")["result"]["verdict"], "ABORTED");
}

}  // namespace
}  // namespace station::serve
