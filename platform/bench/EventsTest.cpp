#include "platform/bench/Events.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "platform/bench/HeadUnit.h"

namespace bench {
namespace {

using nlohmann::json;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using Kind = EventError::Kind;

/// Listens to everything, and writes down what it is told, one line a notification.
class Listener : public IKYRAppListener,
                 public IKYRSystemMiscListener,
                 public IKYRBtComListener,
                 public IKYRRadioListener,
                 public IKYRAudioListener,
                 public IKYRCarPlayListener,
                 public IKYRDeviceAppListener,
                 public IKYRLocationListener,
                 public IKYRSourceListener,
                 public IKYRU6PersistListener
{
public:
    // Written on the listener thread, read after it has been drained.
    std::vector<std::string> told;

    void OnModuleStatusChanged(AppBootInfo& info) override { tell("module", info.module); }
    void OnCarSpeedChange(unsigned int speed) override { tell("speed", speed); }
    void OnRadioAntStateChange(SystemMisc::AntState state) override { tell("radio antenna", state); }
    void OnGpsAntStateChange(SystemMisc::AntState state) override { tell("gps antenna", state); }
    void OnLCarInfoChange(_LCarInfo info) override { tell("car info", unsigned{info.ucValue}); }
    void OnFactoryResetMode() override { tell("factory reset"); }
    void OnOpenBtStatusChanged(KYRBtType::PowerStatus status) override { tell("bluetooth power", status); }
    void OnDeletePairStatusChanged(int status) override { tell("pairings deleted", status); }
    void OnAnswerPairRequest(const std::string& address, const std::string& name, int type,
                             KYRBtType::PairRequestState state) override
    {
        tell("pair request", address, name, type, state);
    }
    void OnFrequencyChanged(KYRTuner::BandID band, unsigned int value, unsigned int frequency) override
    {
        tell("frequency", band, value, frequency);
    }
    void OnTAChanged(unsigned int frequency, int active) override { tell("announcement", frequency, active); }
    void OnAudioMuteStateChanged(KYRAudio::MuteState state, KYRAudio::AudioChannel channel) override
    {
        tell("mute", state, channel);
    }
    void OnStatusChange(KYRCarPlay::CarPlayConnectStatus status) override { tell("carplay", status); }
    void OnConnectionStatusChanged(const KYRDeviceApp::_ConnectionInfo& info) override
    {
        tell("connection", info.status);
    }
    void OnAASatinfoChange(const _GpsSatelliteData& data) override
    {
        tell("satellites", data.nCount, data.nNumber[0], data.nSignal[0], data.nNumber[1], data.nSignal[1],
             data.nNumber[19], data.nSignal[19]);
    }
    void OnAALocationChange(const _LocationData& data) override { tell("position", data.nLatitude, data.nLongitude); }
    void OnSourceStatusChanged(KYRSource::SourceID source, KYRSource::SourceStatus status) override
    {
        tell("source", source, status);
    }
    void OnU6PersistDataChange(U6Persist::E_ModuleName module, unsigned int value) override
    {
        tell("persistence", module, value);
    }
    void OnU6PersistFactoryResetMode() override { tell("persistence factory reset"); }
    void OnU6PersistAutoFactoryResetMode() override { tell("persistence automatic factory reset"); }

private:
    template <class... Values>
    void tell(const char* what, const Values&... values)
    {
        std::string line = what;
        ((line += " " + text(values)), ...);
        told.push_back(line);
    }

    static std::string text(const std::string& value) { return value; }
    static std::string text(unsigned int value) { return std::to_string(value); }
    static std::string text(int value) { return std::to_string(value); }
};

/// A head unit with a listener at every service.
class EventsTest : public testing::Test
{
protected:
    EventsTest()
    {
        unit_.install();
        KYR_GetAppMgrService()->AddListener(&listener_);
        KYR_GetSystemMiscProxy()->AddListener(&listener_);
        KYR_GetTunerService()->AddListener(&listener_);
        KYR_GetAudioService()->AddListener(&listener_);
        KYR_GetCarPlayService()->AddListener(&listener_);
        KYR_GetDeviceAppProxy()->AddListener(&listener_);
        KYR_GetLocationService()->AddListener(&listener_);
        KYR_GetU6PersistService()->AddListener(&listener_);
        KYRSource::AddListener(&listener_);
    }
    ~EventsTest() override { unit_.stop(); }

    HeadUnit unit_;
    Listener listener_;
    KYRBtCom bluetooth_{&listener_};
};

struct EventCase {
    const char* event;
    const char* arguments;
    const char* told;
};

const std::vector<EventCase>& eventCases()
{
    static const std::vector<EventCase> cases = {
        {"OnModuleStatusChanged", R"({"module":9})", "module 9"},
        {"OnCarSpeedChange", R"({"speed":4294967295})", "speed 4294967295"},
        {"OnRadioAntStateChange", R"({"state":4})", "radio antenna 4"},
        {"OnGpsAntStateChange", R"({"state":-2147483648})", "gps antenna -2147483648"},
        {"OnOpenBtStatusChanged", R"({"status":2})", "bluetooth power 2"},
        {"OnDeletePairStatusChanged", R"({"status":3})", "pairings deleted 3"},
        {"OnAnswerPairRequest", R"({"address":"00:01","name":"Phone","type":5,"state":7})",
         "pair request 00:01 Phone 5 7"},
        {"OnFrequencyChanged", R"({"band":1,"value":2,"frequency":8750})", "frequency 1 2 8750"},
        {"OnTAChanged", R"({"freq":9470,"active":1})", "announcement 9470 1"},
        {"OnAudioMuteStateChanged", R"({"state":1,"channel":6})", "mute 1 6"},
        {"OnStatusChange", R"({"status":99})", "carplay 99"},
        {"OnConnectionStatusChanged", R"({"status":2})", "connection 2"},
        {"OnAASatinfoChange", R"({"satellites":[[11,40],[12,35]]})", "satellites 2 11 40 12 35 0 0"},
        {"OnAALocationChange", R"({"latitude":-1,"longitude":2147483647})", "position -1 2147483647"},
        {"OnLCarInfoChange", R"({"value":255})", "car info 255"},
        {"OnSourceStatusChanged", R"({"source":16,"status":1})", "source 16 1"},
        {"OnU6PersistDataChange", R"({"module":4,"value":4294967295})", "persistence 4 4294967295"},
        {"OnU6PersistFactoryResetMode", "{}", "persistence factory reset"},
        {"OnU6PersistAutoFactoryResetMode", "{}", "persistence automatic factory reset"},
        {"OnFactoryResetMode", "{}", "factory reset"},
    };
    return cases;
}

class DeliveryTest : public EventsTest, public testing::WithParamInterface<EventCase>
{
};

TEST_P(DeliveryTest, ReachesTheListenerWithItsArguments)
{
    unit_.raiseAndWait(GetParam().event, json::parse(GetParam().arguments));

    EXPECT_THAT(listener_.told, ElementsAre(GetParam().told));
}

TEST_P(DeliveryTest, WithoutAListenerSucceeds)
{
    HeadUnit deserted;

    EXPECT_NO_THROW(deserted.raiseAndWait(GetParam().event, json::parse(GetParam().arguments)));
}

TEST_P(DeliveryTest, LacksNoArgument)
{
    const json arguments = json::parse(GetParam().arguments);

    for (const auto& [name, value] : arguments.items()) {
        json lacking = arguments;
        lacking.erase(name);
        try {
            unit_.raise(GetParam().event, lacking);
            ADD_FAILURE() << "delivered without " << name;
        } catch (const EventError& error) {
            EXPECT_EQ(error.kind(), Kind::kInvalidArguments);
            EXPECT_THAT(error.what(), HasSubstr(": " + name + ": expected "));
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Events, DeliveryTest, testing::ValuesIn(eventCases()),
                         [](const auto& each) { return each.param.event; });

TEST(Events, EachIsTested)
{
    std::set<std::string> tested;
    for (const EventCase& each : eventCases()) {
        tested.insert(each.event);
    }

    const auto names = eventNames();
    EXPECT_EQ(tested, std::set<std::string>(names.begin(), names.end()));
}

struct RefusedEventCase {
    const char* name;
    const char* event;
    const char* arguments;
    Kind kind;
    const char* says;
};

class EventRefusalTest : public EventsTest, public testing::WithParamInterface<RefusedEventCase>
{
};

TEST_P(EventRefusalTest, NamesTheReasonAndReachesNoListener)
{
    try {
        unit_.raise(GetParam().event, json::parse(GetParam().arguments));
        ADD_FAILURE() << "not refused";
    } catch (const EventError& error) {
        EXPECT_EQ(error.kind(), GetParam().kind);
        EXPECT_THAT(error.what(), AllOf(HasSubstr(GetParam().says), Not(HasSubstr("\n"))));
    }
    unit_.events().drain();
    EXPECT_THAT(listener_.told, IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    Events, EventRefusalTest,
    testing::Values(
        RefusedEventCase{"UnknownName", "OnCarSpeed", R"({"speed":1})", Kind::kUnknownEvent, "OnCarSpeedChange"},
        RefusedEventCase{"UnknownNameWithLineEnd", "On\nCar", "{}", Kind::kUnknownEvent, "'On␊Car'"},
        RefusedEventCase{"ArgumentsThatAreNoObject", "OnCarSpeedChange", "[1]", Kind::kInvalidArguments,
                         "expected an object"},
        RefusedEventCase{"UnknownArgument", "OnCarSpeedChange", R"({"speed":1,"unit":2})", Kind::kInvalidArguments,
                         "unknown argument 'unit'"},
        RefusedEventCase{"ArgumentWhereNoneIsTaken", "OnFactoryResetMode", R"({"x":1})", Kind::kInvalidArguments,
                         "(arguments: none)"},
        RefusedEventCase{"TextForInteger", "OnCarSpeedChange", R"({"speed":"1"})", Kind::kInvalidArguments,
                         "speed: expected an integer from 0 to 4294967295, got \"1\""},
        RefusedEventCase{"FractionForInteger", "OnStatusChange", R"({"status":1.5})", Kind::kInvalidArguments,
                         "status: expected"},
        RefusedEventCase{"NegativeForUnsigned", "OnCarSpeedChange", R"({"speed":-1})", Kind::kInvalidArguments,
                         "from 0"},
        RefusedEventCase{"AboveUnsigned", "OnCarSpeedChange", R"({"speed":4294967296})", Kind::kInvalidArguments,
                         "to 4294967295"},
        RefusedEventCase{"AboveSigned", "OnStatusChange", R"({"status":2147483648})", Kind::kInvalidArguments,
                         "to 2147483647"},
        RefusedEventCase{"BelowSigned", "OnStatusChange", R"({"status":-2147483649})", Kind::kInvalidArguments,
                         "from -2147483648"},
        RefusedEventCase{"AboveByte", "OnLCarInfoChange", R"({"value":256})", Kind::kInvalidArguments, "from 0 to 255"},
        RefusedEventCase{"IntegerForText", "OnAnswerPairRequest", R"({"address":1,"name":"","type":0,"state":0})",
                         Kind::kInvalidArguments, "address: expected a text, got 1"},
        RefusedEventCase{"TwentyOneSatellites", "OnAASatinfoChange",
                         R"({"satellites":[[1,1],[1,1],[1,1],[1,1],[1,1],[1,1],[1,1],[1,1],[1,1],[1,1],[1,1],
                                           [1,1],[1,1],[1,1],[1,1],[1,1],[1,1],[1,1],[1,1],[1,1],[1,1]]})",
                         Kind::kInvalidArguments, "at most 20"},
        RefusedEventCase{"SatelliteWithoutSignal", "OnAASatinfoChange", R"({"satellites":[[1]]})",
                         Kind::kInvalidArguments, "[number, signal]"},
        RefusedEventCase{"SatelliteThatIsAnInteger", "OnAASatinfoChange", R"({"satellites":[1]})",
                         Kind::kInvalidArguments, "[number, signal]"},
        RefusedEventCase{"CountThatIsAText", "OnAASatinfoChange", R"({"satellites":[],"count":"1"})",
                         Kind::kInvalidArguments, "count: expected"}),
    [](const auto& each) { return each.param.name; });

TEST_F(EventsTest, SatelliteCountMayDifferFromTheRows)
{
    unit_.raiseAndWait("OnAASatinfoChange", json::parse(R"({"satellites":[[11,40]],"count":-7})"));

    EXPECT_THAT(listener_.told, ElementsAre("satellites -7 11 40 0 0 0 0"));
}

TEST_F(EventsTest, TwentySatellitesHaveRoom)
{
    json rows = json::array();
    for (int number = 1; number <= 20; ++number) {
        rows.push_back({number, 100 + number});
    }

    unit_.raiseAndWait("OnAASatinfoChange", {{"satellites", rows}});

    EXPECT_THAT(listener_.told, ElementsAre("satellites 20 1 101 2 102 20 120"));
}

TEST_F(EventsTest, AreDeliveredInTheOrderInWhichTheyWereRaised)
{
    unit_.raise("OnCarSpeedChange", {{"speed", 1}});
    KYR_GetTunerService()->Play(KYRTuner::BAND_FM, 9000, 0, 1);
    unit_.raiseAndWait("OnCarSpeedChange", {{"speed", 2}});

    EXPECT_THAT(listener_.told, ElementsAre("speed 1", "frequency 1 0 9000", "speed 2"));
}

TEST_F(EventsTest, FollowUpRunsAfterTheDelivery)
{
    std::vector<std::string> toldBefore;

    unit_.raise("OnCarSpeedChange", {{"speed", 1}}, [&] { toldBefore = listener_.told; });
    unit_.events().drain();

    EXPECT_THAT(toldBefore, ElementsAre("speed 1"));
}

TEST_F(EventsTest, RaisingOnTheListenerThreadDoesNotWaitForItself)
{
    unit_.raise("OnCarSpeedChange", {{"speed", 1}},
                [this] { unit_.raiseAndWait("OnFactoryResetMode", json::object()); });
    unit_.events().drain();
    unit_.events().drain();

    EXPECT_THAT(listener_.told, ElementsAre("speed 1", "factory reset"));
}

/// A listener that takes another one off.
class Remover : public IKYRSystemMiscListener
{
public:
    explicit Remover(IKYRSystemMiscListener* other) : other_(other) {}

    int told = 0;

    void OnFactoryResetMode() override
    {
        ++told;
        KYR_GetSystemMiscProxy()->RemoveListener(other_);
    }

private:
    IKYRSystemMiscListener* other_;
};

TEST(EventListeners, ListenerRemovedByAnotherOneIsNotCalled)
{
    HeadUnit unit;
    unit.install();
    Remover pair[2] = {Remover(&pair[1]), Remover(&pair[0])};
    KYR_GetSystemMiscProxy()->AddListener(&pair[0]);
    KYR_GetSystemMiscProxy()->AddListener(&pair[1]);

    unit.raiseAndWait("OnFactoryResetMode", json::object());

    EXPECT_EQ(pair[0].told + pair[1].told, 1);
    EXPECT_EQ(KYR_GetSystemMiscProxy()->GetListenerCount(), 1);
}

}  // namespace
}  // namespace bench
