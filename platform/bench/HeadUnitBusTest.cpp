#include "platform/bench/HeadUnitBus.h"

#include <KYRAppMgr.h>
#include <KYRSystem.h>
#include <KYRSystemMisc.h>
#include <gio/gio.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <optional>
#include <utility>
#include <vector>

#include "tests/support/BusClient.h"
#include "tests/support/PrivateBus.h"

namespace bench {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

constexpr const char* kName = "com.zent.linux.headunit";
constexpr const char* kPath = "/com/zent/linux/headunit";

/// A program on the bus that calls the head unit and collects its signals. Belongs to the test's thread.
class Client
{
public:
    explicit Client(const std::string& address) : context_(g_main_context_new())
    {
        g_main_context_push_thread_default(context_);
        connection_ = g_dbus_connection_new_for_address_sync(
            address.c_str(),
            static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                              G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
            nullptr, nullptr, nullptr);
        g_dbus_connection_set_exit_on_close(connection_, FALSE);
        g_dbus_connection_signal_subscribe(connection_, kName, kName, nullptr, kPath, nullptr, G_DBUS_SIGNAL_FLAGS_NONE,
                                           onSignal, this, nullptr);
    }
    ~Client()
    {
        g_object_unref(connection_);
        g_main_context_pop_thread_default(context_);
        g_main_context_unref(context_);
    }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    struct Answer {
        std::string value;  // as GVariant text
        std::string error;  // name of the error, empty for none
        std::string message;
    };

    Answer call(const char* method, GVariant* arguments = nullptr)
    {
        GError* error = nullptr;
        GVariant* const reply = g_dbus_connection_call_sync(connection_, kName, kPath, kName, method, arguments,
                                                            nullptr, G_DBUS_CALL_FLAGS_NONE, 20'000, nullptr, &error);
        if (reply == nullptr) {
            return refused(error);
        }
        char* const text = g_variant_print(reply, FALSE);
        Answer answer{text, "", ""};
        g_free(text);
        g_variant_unref(reply);
        return answer;
    }

    /// @returns the JSON that a method without or with one text argument answers.
    json ask(const char* method, GVariant* arguments = nullptr)
    {
        GVariant* const reply = g_dbus_connection_call_sync(connection_, kName, kPath, kName, method, arguments,
                                                            nullptr, G_DBUS_CALL_FLAGS_NONE, 20'000, nullptr, nullptr);
        if (reply == nullptr) {
            return "no answer";
        }
        const char* text = nullptr;
        g_variant_get(reply, "(&s)", &text);
        json value = json::parse(text);
        g_variant_unref(reply);
        return value;
    }

    /// Lets signals come until there are `count` of them or all hope is gone.
    /// @returns them, one line each.
    std::vector<std::string> signals(std::size_t count)
    {
        bool late = false;
        GSource* const deadline = g_timeout_source_new_seconds(20);
        g_source_set_callback(
            deadline,
            [](gpointer flag) -> gboolean {
                *static_cast<bool*>(flag) = true;
                return G_SOURCE_REMOVE;
            },
            &late, nullptr);
        g_source_attach(deadline, context_);
        while (signals_.size() < count && !late) {
            g_main_context_iteration(context_, TRUE);
        }
        g_source_destroy(deadline);
        g_source_unref(deadline);
        return signals_;
    }

private:
    static Answer refused(GError* error)
    {
        char* const name = g_dbus_error_get_remote_error(error);
        g_dbus_error_strip_remote_error(error);
        Answer answer{"", name == nullptr ? "no remote error" : name, error->message};
        g_free(name);
        g_error_free(error);
        return answer;
    }

    static void onSignal(GDBusConnection*, const char*, const char*, const char*, const char* name, GVariant* arguments,
                         gpointer self)
    {
        char* const text = g_variant_print(arguments, FALSE);
        static_cast<Client*>(self)->signals_.push_back(std::string(name) + text);
        g_free(text);
    }

    GMainContext* const context_;
    GDBusConnection* connection_ = nullptr;
    std::vector<std::string> signals_;
};

/// Sets the session bus of this process for a test's time.
class SessionBusAddress
{
public:
    explicit SessionBusAddress(const std::string& address)
    {
        if (const char* const before = std::getenv("DBUS_SESSION_BUS_ADDRESS")) {
            before_ = before;
        }
        setenv("DBUS_SESSION_BUS_ADDRESS", address.c_str(), 1);
    }
    ~SessionBusAddress()
    {
        if (before_) {
            setenv("DBUS_SESSION_BUS_ADDRESS", before_->c_str(), 1);
        } else {
            unsetenv("DBUS_SESSION_BUS_ADDRESS");
        }
    }

private:
    std::optional<std::string> before_;
};

class HeadUnitBusTest : public testing::Test
{
protected:
    HeadUnitBusTest()
    {
        unit_.install();
        std::string error;
        EXPECT_TRUE(headUnitBus_.start(error)) << error;
    }
    ~HeadUnitBusTest() override
    {
        headUnitBus_.stop();
        unit_.stop();
    }

    tests::PrivateBus bus_;
    const SessionBusAddress address_{bus_.address()};
    HeadUnit unit_;
    HeadUnitBus headUnitBus_{unit_};
    Client client_{bus_.address()};
};

GVariant* texts(const char* first)
{
    return g_variant_new("(s)", first);
}
GVariant* texts(const char* first, const char* second)
{
    return g_variant_new("(ss)", first, second);
}

TEST_F(HeadUnitBusTest, GetStateGivesTheValueAtThePath)
{
    EXPECT_EQ(client_.call("GetState", texts("/audio/volume")).value, "('12',)");
    EXPECT_EQ(client_.call("GetState", texts("/wifi/text")).value, "('\"HeadUnit-WLAN\"',)");
}

TEST_F(HeadUnitBusTest, GetStateWithAnEmptyPathGivesTheWhole)
{
    EXPECT_EQ(client_.ask("GetState", texts("")), unit_.state().get(""));
}

TEST_F(HeadUnitBusTest, SetStateReplacesTheValueAndTellsIt)
{
    EXPECT_EQ(client_.call("SetState", texts("/audio/volume", "20")).value, "()");

    EXPECT_EQ(unit_.state().number("/audio/volume"), 20);
    EXPECT_THAT(client_.signals(1), ElementsAre("StateChanged('/audio/volume', '20')"));
}

struct RefusedCallCase {
    const char* name;
    const char* method;
    const char* first;
    const char* second;
    const char* error;
    const char* says;
};

class BusRefusalTest : public HeadUnitBusTest, public testing::WithParamInterface<RefusedCallCase>
{
};

TEST_P(BusRefusalTest, HasItsNameAndSaysWhyInOneLine)
{
    const json before = unit_.state().get("");

    const auto answer =
        client_.call(GetParam().method, GetParam().second == nullptr ? texts(GetParam().first)
                                                                     : texts(GetParam().first, GetParam().second));

    EXPECT_EQ(answer.error, std::string("com.zent.linux.headunit.Error.") + GetParam().error);
    EXPECT_THAT(answer.message, AllOf(HasSubstr(GetParam().says), Not(HasSubstr("\n"))));
    EXPECT_EQ(unit_.state().get(""), before);
}

INSTANTIATE_TEST_SUITE_P(
    HeadUnitBus, BusRefusalTest,
    testing::Values(
        RefusedCallCase{"UnknownPathRead", "GetState", "/audio/volum", nullptr, "UnknownPath", "/audio/volum"},
        RefusedCallCase{"UnknownPathSet", "SetState", "/audio/volum", "1", "UnknownPath", "/audio/volum"},
        RefusedCallCase{"MalformedPath", "GetState", "audio", nullptr, "UnknownPath", "begins with '/'"},
        RefusedCallCase{"WrongType", "SetState", "/audio/volume", "\"x\"", "InvalidValue", "/audio/volume"},
        RefusedCallCase{"ValueThatIsNoJson", "SetState", "/audio/volume", "{\n", "InvalidValue", "not JSON"},
        RefusedCallCase{"ValueNotJsonWithUmlaut", "SetState", "/audio/volume", "\xC3\xA4", "InvalidValue", "not JSON"},
        RefusedCallCase{"UnknownEvent", "RaiseEvent", "OnNothing", "{}", "UnknownEvent", "OnNothing"},
        RefusedCallCase{"MissingArgument", "RaiseEvent", "OnCarSpeedChange", "{}", "InvalidArguments", "speed"},
        RefusedCallCase{"ArgumentsThatAreNoJson", "RaiseEvent", "OnCarSpeedChange", "speed", "InvalidArguments",
                        "not JSON"}),
    [](const auto& each) { return each.param.name; });

/// A listener that takes its time until the test lets it go.
class SlowListener : public IKYRSystemMiscListener
{
public:
    std::promise<void> begun;
    std::promise<void> mayEnd;
    std::atomic<unsigned int> speed{0};

    void OnCarSpeedChange(unsigned int nSpeed) override
    {
        begun.set_value();
        mayEnd.get_future().wait();
        speed = nSpeed;
    }
};

TEST_F(HeadUnitBusTest, RaiseEventIsAnsweredAfterTheListenersHaveRun)
{
    SlowListener listener;
    KYR_GetSystemMiscProxy()->AddListener(&listener);
    std::thread raising([this] {
        Client other(bus_.address());
        EXPECT_EQ(other.call("RaiseEvent", texts("OnCarSpeedChange", R"({"speed":80})")).value, "()");
    });
    listener.begun.get_future().wait();

    // The listener is still at it: neither does the bus's thread wait for it, nor is the caller answered.
    EXPECT_EQ(client_.call("GetState", texts("/audio/volume")).value, "('12',)");
    EXPECT_EQ(listener.speed, 0u);
    listener.mayEnd.set_value();
    raising.join();

    EXPECT_EQ(listener.speed, 80u);
    KYR_GetSystemMiscProxy()->RemoveListener(&listener);
}

std::string ownerOf(tests::BusClient& client, const std::string& name)
{
    return client.callBus("GetNameOwner", "('" + name + "',)");
}

TEST_F(HeadUnitBusTest, IsBackAfterACallThatGDBusCannotDecodeThoughAnotherCallStillRuns)
{
    tests::BusClient other(bus_.address());
    SlowListener listener;
    KYR_GetSystemMiscProxy()->AddListener(&listener);
    std::thread raising(
        [this] { Client(bus_.address()).call("RaiseEvent", texts("OnCarSpeedChange", R"({"speed":80})")); });
    listener.begun.get_future().wait();
    const std::string before = ownerOf(other, kName);

    other.sendUndecodable(kName, G_DBUS_MESSAGE_TYPE_METHOD_CALL);

    for (const auto deadline = std::chrono::steady_clock::now() + 20s;
         ownerOf(other, kName) == before && std::chrono::steady_clock::now() < deadline;) {
    }
    EXPECT_TRUE(other.waitForOwner(kName, true));
    EXPECT_EQ(client_.call("GetState", texts("/audio/volume")).value, "('12',)");
    listener.mayEnd.set_value();
    raising.join();
    KYR_GetSystemMiscProxy()->RemoveListener(&listener);
}

TEST_F(HeadUnitBusTest, RaiseEventWithoutAListenerSucceeds)
{
    EXPECT_EQ(client_.call("RaiseEvent", texts("OnFactoryResetMode", "{}")).value, "()");
}

TEST_F(HeadUnitBusTest, EventThatCannotBeDeliveredAnyMoreIsAnswered)
{
    unit_.stop();

    const auto answer = client_.call("RaiseEvent", texts("OnFactoryResetMode", "{}"));

    EXPECT_EQ(answer.error, "org.freedesktop.DBus.Error.Failed");
    EXPECT_THAT(answer.message, HasSubstr("has stopped"));
}

TEST_F(HeadUnitBusTest, StartModuleReturnsTheResultOfTheStartAction)
{
    KYR_GetAppMgrService()->SetStartServiceAction(MODULE_AUDIO, [](ServiceModule module) { return -10 * module; });

    EXPECT_EQ(client_.call("StartModule", g_variant_new("(u)", 2)).value, "(-20,)");
}

TEST_F(HeadUnitBusTest, StartModuleWithoutStartActionIsRefused)
{
    EXPECT_EQ(client_.call("StartModule", g_variant_new("(u)", 4)).error,
              "com.zent.linux.headunit.Error.NoStartAction");
    EXPECT_THAT(client_.call("StartModule", g_variant_new("(u)", 4'294'967'295U)).message, HasSubstr("4294967295"));
}

TEST_F(HeadUnitBusTest, CallsAreTelledReadAndCleared)
{
    KYR_RemoveFile("/nonexistent/\xFF", 1);

    EXPECT_THAT(
        client_.signals(1),
        ElementsAre(
            "Called('{\"service\":\"system\",\"op\":\"RemoveFile\",\"args\":[\"/nonexistent/\xEF\xBF\xBD\"]}',)"));
    EXPECT_EQ(client_.ask("GetCalls").size(), 1u);
    EXPECT_EQ(client_.call("ClearCalls").value, "()");
    EXPECT_THAT(client_.ask("GetCalls"), IsEmpty());
}

TEST_F(HeadUnitBusTest, SignalsComeInTheirOrder)
{
    std::vector<std::string> expected;
    for (int volume = 0; volume < 500; ++volume) {
        unit_.state().set("/audio/volume", volume);
        expected.push_back("StateChanged('/audio/volume', '" + std::to_string(volume) + "')");
    }

    EXPECT_EQ(client_.signals(500), expected);
}

TEST_F(HeadUnitBusTest, StoppedBusBlocksNoCallerAndGetsTheNewestSignalsLater)
{
    const std::string large(100'000, 'x');
    const std::string last = "StateChanged('/wifi/text', '\"last\"')";
    bus_.stop();

    for (int number = 0; number < 200; ++number) {
        unit_.state().set("/wifi/text", large);
    }
    unit_.state().set("/wifi/text", "last");
    bus_.cont();

    auto signals = client_.signals(1);
    for (std::size_t count = 0; signals.size() > count && signals.back() != last;) {
        count = signals.size();
        signals = client_.signals(count + 1);
    }
    EXPECT_TRUE(signals.back() == last);
    EXPECT_LT(signals.size(), 200u);
}

TEST_F(HeadUnitBusTest, StoppingDoesNotWaitForABusThatStandsStill)
{
    const std::string large(100'000, 'x');
    bus_.stop();
    for (int number = 0; number < 20; ++number) {
        unit_.state().set("/wifi/text", large);
    }

    const auto begin = std::chrono::steady_clock::now();
    headUnitBus_.stop();
    const auto time = std::chrono::steady_clock::now() - begin;

    bus_.cont();
    EXPECT_LT(time, 5s);
}

TEST_F(HeadUnitBusTest, BusThatDiesEndsTheInterfaceOnly)
{
    bus_.kill();

    unit_.state().set("/audio/volume", 20);
    KYR_GetSystemMiscProxy()->RestoreFactorySettings();

    EXPECT_EQ(unit_.state().number("/audio/volume"), 20);
    headUnitBus_.stop();
}

TEST_F(HeadUnitBusTest, SecondHeadUnitFailsBecauseTheNameIsTaken)
{
    HeadUnit second;
    HeadUnitBus secondBus(second);
    std::string error;

    EXPECT_FALSE(secondBus.start(error));

    EXPECT_EQ(error, "the bus name com.zent.linux.headunit is taken by another process");
    EXPECT_EQ(client_.call("GetState", texts("/audio/volume")).value, "('12',)");
}

TEST_F(HeadUnitBusTest, NameIsGivenBackAtTheEnd)
{
    headUnitBus_.stop();

    HeadUnit second;
    second.state().set("/audio/volume", 21);
    HeadUnitBus secondBus(second);
    std::string error;
    EXPECT_TRUE(secondBus.start(error)) << error;
    EXPECT_EQ(client_.call("GetState", texts("/audio/volume")).value, "('21',)");
}

TEST(HeadUnitBus, WithoutBusItSaysSoInOneLine)
{
    const SessionBusAddress nowhere("unix:path=/nonexistent/bus");
    HeadUnit unit;
    HeadUnitBus headUnitBus(unit);
    std::string error;

    EXPECT_FALSE(headUnitBus.start(error));

    EXPECT_THAT(error, AllOf(StartsWith("no session bus: "), Not(HasSubstr("\n"))));
    headUnitBus.stop();
}

TEST(HeadUnitBus, BusThatDoesNotAnswerIsGivenUp)
{
    tests::PrivateBus bus;
    const SessionBusAddress address(bus.address());
    bus.stop();
    HeadUnit unit;
    HeadUnitBus headUnitBus(unit);
    std::string error;

    EXPECT_FALSE(headUnitBus.start(error));

    EXPECT_THAT(error, StartsWith("no session bus: "));
    bus.cont();
}

}  // namespace
}  // namespace bench
