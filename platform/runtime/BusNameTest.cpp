#include "platform/runtime/BusName.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <future>

#include "host/Glib.h"
#include "tests/support/PrivateBus.h"

namespace runtime {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using State = BusName::State;

constexpr const char* kName = "com.example.bench";
constexpr seconds kGenerous{20};

/// A client of the bus that can have a name.
class Client
{
public:
    explicit Client(const std::string& address)
    {
        host::GlibError error;
        connection_ = host::connectToBus(nullptr, error, address.c_str());
    }

    void requestName()
    {
        const host::GlibPtr<GVariant> reply(g_dbus_connection_call_sync(
            connection_.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "RequestName",
            g_variant_new("(su)", kName, 0), nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr));
        ASSERT_TRUE(reply);
    }

private:
    host::GlibPtr<GDBusConnection> connection_;
};

class BusNameTest : public testing::Test
{
protected:
    BusNameTest() { setenv("DBUS_SESSION_BUS_ADDRESS", bus_.address().c_str(), 1); }

    tests::PrivateBus bus_;
};

TEST_F(BusNameTest, OwnedByThisProcess)
{
    Client client(bus_.address());
    client.requestName();

    EXPECT_EQ(awaitBusName(kName, kGenerous).state, State::kOwned);
}

TEST_F(BusNameTest, OwnedByThisProcessAfterAWhile)
{
    Client client(bus_.address());
    auto outcome = std::async(std::launch::async, [] { return awaitBusName(kName, kGenerous); });

    client.requestName();

    EXPECT_EQ(outcome.get().state, State::kOwned);
}

TEST_F(BusNameTest, TakenByAnotherProcessIsReportedAtOnce)
{
    const auto before = std::chrono::steady_clock::now();

    // The daemon itself is another process with a name.
    EXPECT_EQ(awaitBusName("org.freedesktop.DBus", kGenerous).state, State::kTaken);

    EXPECT_LT(std::chrono::steady_clock::now() - before, kGenerous);
}

TEST_F(BusNameTest, LateIfNoProcessRequestsIt)
{
    // Long enough for a slow machine to connect, since a bus that has not answered is none.
    EXPECT_EQ(awaitBusName(kName, seconds(3)).state, State::kLate);
}

TEST_F(BusNameTest, NoBusWithAReasonIfTheBusIsGone)
{
    bus_.kill();

    const BusName outcome = awaitBusName(kName, kGenerous);

    EXPECT_EQ(outcome.state, State::kNoBus);
    EXPECT_FALSE(outcome.reason.empty());
}

TEST_F(BusNameTest, NoBusAtOnceIfTheBusEndsMeanwhile)
{
    const auto start = std::chrono::steady_clock::now();
    auto outcome = std::async(std::launch::async, [] { return awaitBusName(kName, kGenerous); });

    bus_.kill();

    EXPECT_EQ(outcome.get().state, State::kNoBus);
    EXPECT_LT(std::chrono::steady_clock::now() - start, kGenerous / 2);
}

TEST_F(BusNameTest, NoBusInTimeIfTheBusDoesNotAnswer)
{
    bus_.stop();

    const BusName outcome = awaitBusName(kName, milliseconds(100));

    EXPECT_EQ(outcome.state, State::kNoBus);
    EXPECT_THAT(outcome.reason, testing::HasSubstr("does not answer"));
    bus_.cont();
}

}  // namespace
}  // namespace runtime
