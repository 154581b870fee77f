#include "platform/bench/CallRecord.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

namespace bench {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(CallRecord, KeepsCallsOldestFirst)
{
    CallRecord record;

    record.add("tuner", "AutoStore", {});
    record.add("tuner", "Seek", {1, 0});

    EXPECT_THAT(record.list(),
                ElementsAre(Call{"tuner", "AutoStore", nlohmann::json::array()}, Call{"tuner", "Seek", {1, 0}}));
}

TEST(CallRecord, CallWithOneArgumentHasAnArrayOfOne)
{
    CallRecord record;

    record.add("system", "Execute", {"sync"});

    EXPECT_EQ(toJson(record.list().front()).dump(), R"({"service":"system","op":"Execute","args":["sync"]})");
}

TEST(CallRecord, KeepsTheNewestTenThousand)
{
    CallRecord record;

    for (int number = 0; number < 10'003; ++number) {
        record.add("tuner", "Scan", {number});
    }

    const auto calls = record.list();
    ASSERT_EQ(calls.size(), 10'000u);
    EXPECT_EQ(calls.front().args, nlohmann::json({3}));
    EXPECT_EQ(calls.back().args, nlohmann::json({10'002}));
}

TEST(CallRecord, IsEmptyAfterClearing)
{
    CallRecord record;
    record.add("tuner", "AutoStore", {});

    record.clear();

    EXPECT_THAT(record.list(), IsEmpty());
}

TEST(CallRecord, WaitingEndsWhenTheCallComes)
{
    CallRecord record;
    const std::jthread service([&record] { record.add("power", "RestartSystem", {}); });

    EXPECT_TRUE(record.waitFor([](const auto& calls) { return !calls.empty(); }, 20s));
}

TEST(CallRecord, WaitEndsWithoutTheCall)
{
    const CallRecord record;

    EXPECT_FALSE(record.waitFor([](const auto& calls) { return !calls.empty(); }, 1ms));
}

TEST(CallRecord, ObserverGetsEachCallAndMayReadTheRecord)
{
    CallRecord record;
    std::vector<std::string> told;
    record.additions().add(
        [&](const Call& call) { told.push_back(call.op + " " + std::to_string(record.list().size())); });

    record.add("tuner", "AutoStore", {});
    record.add("tuner", "Scan", {1});

    EXPECT_THAT(told, ElementsAre("AutoStore 1", "Scan 2"));
}

}  // namespace
}  // namespace bench
