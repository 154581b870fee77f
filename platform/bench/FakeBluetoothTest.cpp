#include "platform/bench/FakeBluetooth.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>
#include <memory>
#include <thread>

#include "platform/bench/HeadUnit.h"

namespace bench {
namespace {

using testing::ElementsAre;

class Adapter : public IKYRBtComListener
{
public:
    std::vector<int> deleted;  // written on the listener thread, read after it has been drained

    void OnDeletePairStatusChanged(int status) override { deleted.push_back(status); }
};

class FakeBluetoothTest : public testing::Test
{
protected:
    FakeBluetoothTest() { unit_.install(); }
    ~FakeBluetoothTest() override { unit_.stop(); }

    HeadUnit unit_;
    Adapter listener_;
    KYRBtCom com_{&listener_};
    KYRBtPhone phone_;
    KYRBtMedia media_;
};

TEST_F(FakeBluetoothTest, AttributesAreThoseOfTheState)
{
    std::string version;
    std::string address;
    std::string name;

    EXPECT_EQ(com_.GetAttribute(KYRBtType::ATTRIBUTE_VERSION, version), 1);
    EXPECT_EQ(com_.GetAttribute(KYRBtType::ATTRIBUTE_LOCAL_ADDRESS, address), 1);
    EXPECT_EQ(com_.GetAttribute(KYRBtType::ATTRIBUTE_LOCAL_NAME, name), 1);

    EXPECT_EQ(version, "5.2");
    EXPECT_EQ(address, "00:1A:7D:DA:71:13");
    EXPECT_EQ(name, "HeadUnit");
}

TEST_F(FakeBluetoothTest, AttributeThatItDoesNotHaveLeavesTheTextAlone)
{
    std::string text = "before";

    EXPECT_EQ(com_.GetAttribute(static_cast<KYRBtType::Attribute>(1), text), 0);

    EXPECT_EQ(text, "before");
}

TEST_F(FakeBluetoothTest, SetCapabilityIsReadBack)
{
    com_.SetCapability(KYRBtType::CAPABILITY_9, 1);
    com_.SetCapability(static_cast<KYRBtType::Capability>(4), 7);

    EXPECT_EQ(com_.GetCapability(KYRBtType::CAPABILITY_9), 1);
    EXPECT_EQ(unit_.state().get("/bluetooth/capabilities/9"), 1);
    EXPECT_EQ(unit_.state().get("/bluetooth/capabilities/4"), 7);
    EXPECT_THAT(unit_.calls().list(),
                ElementsAre(Call{"bluetooth", "SetCapability", {9, 1}}, Call{"bluetooth", "SetCapability", {4, 7}}));
}

TEST_F(FakeBluetoothTest, UnlistedCapabilityIsZero)
{
    EXPECT_EQ(com_.GetCapability(static_cast<KYRBtType::Capability>(4)), 0);
}

TEST_F(FakeBluetoothTest, DeletingThePairingsGivesTheStatesResultAndTellsItLater)
{
    unit_.state().set("/bluetooth/delete_pairings_result", 3);

    EXPECT_EQ(com_.DeletePairDeviceList(), 3);

    unit_.events().drain();
    EXPECT_THAT(listener_.deleted, ElementsAre(3));
    EXPECT_THAT(unit_.calls().list(), ElementsAre(Call{"bluetooth", "DeletePairDeviceList", nlohmann::json::array()}));
}

TEST_F(FakeBluetoothTest, CallsAndPairingAnswersAreRecorded)
{
    phone_.AcceptCall();
    phone_.TerminateCall();
    com_.AnswerPair("00:01", "Phone", KYRBtType::PAIR_REQUESTED);

    EXPECT_THAT(unit_.calls().list(), ElementsAre(Call{"bluetooth", "AcceptCall", nlohmann::json::array()},
                                                  Call{"bluetooth", "TerminateCall", nlohmann::json::array()},
                                                  Call{"bluetooth", "AnswerPair", {"00:01", "Phone", 1}}));
}

TEST_F(FakeBluetoothTest, ConnectionsAndStatesAreThoseOfTheState)
{
    unit_.mergeState(nlohmann::json::parse(R"({"bluetooth": {
        "media_connection": {"state": 1, "text": "A2DP"}, "phone_connection": {"state": 2, "text": "HFP"},
        "music_status": 3, "call_state": 4
    }})"));

    EXPECT_EQ(media_.GetMediaConnectionState().nState, 1);
    EXPECT_EQ(media_.GetMediaConnectionState().strText, "A2DP");
    EXPECT_EQ(phone_.GetPhoneConnectionState().nState, 2);
    EXPECT_EQ(phone_.GetPhoneConnectionState().strText, "HFP");
    EXPECT_EQ(media_.GetMusicPlayStatus(), 3);
    KYRTypeCallInfo info;
    phone_.GetCurrentCallInfo(info);
    EXPECT_EQ(info.eCallState, 4);
}

TEST_F(FakeBluetoothTest, ClientWithoutListenerIsAllowed)
{
    KYRBtCom silent(nullptr);

    EXPECT_NO_THROW(unit_.raiseAndWait("OnDeletePairStatusChanged", {{"status", 1}}));
}

TEST_F(FakeBluetoothTest, EveryClientGetsEventsUntilItEnds)
{
    auto second = std::make_unique<KYRBtCom>(&listener_);
    unit_.raiseAndWait("OnDeletePairStatusChanged", {{"status", 1}});

    second.reset();
    unit_.raiseAndWait("OnDeletePairStatusChanged", {{"status", 2}});

    EXPECT_THAT(listener_.deleted, ElementsAre(1, 1, 2));
}

/// A listener that stays in its notification until the test lets it go.
class SlowAdapter : public IKYRBtComListener
{
public:
    std::promise<void> begun;
    std::promise<void> mayEnd;
    std::atomic<bool> ended{false};

    void OnDeletePairStatusChanged(int) override
    {
        begun.set_value();
        mayEnd.get_future().wait();
        ended = true;
    }
};

TEST_F(FakeBluetoothTest, EndOfAClientWaitsForTheRunningEvent)
{
    SlowAdapter slow;
    auto client = std::make_unique<KYRBtCom>(&slow);
    unit_.raise("OnDeletePairStatusChanged", {{"status", 1}});
    slow.begun.get_future().wait();

    bool endedBeforeTheClient = false;
    std::thread ending([&] {
        client.reset();
        endedBeforeTheClient = slow.ended;
    });
    slow.mayEnd.set_value();
    ending.join();

    EXPECT_TRUE(endedBeforeTheClient);
}

TEST(FakeBluetooth, ClientMayOutliveTheHeadUnitUnderWhichItWasMade)
{
    Adapter listener;
    auto first = std::make_unique<HeadUnit>();
    first->install();
    KYRBtCom com(&listener);
    first.reset();

    EXPECT_EQ(com.DeletePairDeviceList(), 0);
    EXPECT_EQ(com.GetCapability(KYRBtType::CAPABILITY_0), 0);

    HeadUnit second;
    second.install();
    second.raiseAndWait("OnDeletePairStatusChanged", {{"status", 5}});
    EXPECT_THAT(listener.deleted, ElementsAre(5));
}

}  // namespace
}  // namespace bench
