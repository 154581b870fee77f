#include "platform/runtime/TimerService.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>
#include <stdexcept>

#include "KYRQLXTimer.h"
#include "platform/runtime/RuntimeTestSupport.h"

namespace runtime {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class TimerServiceTest : public testing::Test
{
protected:
    TimerService::Action record(int number)
    {
        return [this, number] { expired_.add(number); };
    }

    testsupport::Recorder<int> expired_;
    TimerService timers_{TimerService::Clock::kManual};
};

TEST_F(TimerServiceTest, ActionRunsWhenItsTimeHasComeAndNotBefore)
{
    timers_.after(200ms, record(1));

    timers_.advance(199ms);
    EXPECT_THAT(expired_.values(), IsEmpty());

    timers_.advance(1ms);
    EXPECT_THAT(expired_.values(), ElementsAre(1));

    timers_.advance(1000ms);
    EXPECT_THAT(expired_.values(), ElementsAre(1));
}

TEST_F(TimerServiceTest, ActionsRunInTheOrderOfTheirTimes)
{
    timers_.after(30ms, record(3));
    timers_.after(10ms, record(1));
    timers_.after(20ms, record(2));
    timers_.after(30ms, record(4));

    timers_.advance(30ms);

    EXPECT_THAT(expired_.values(), ElementsAre(1, 2, 3, 4));
}

TEST_F(TimerServiceTest, RepeatedActionRunsOnceAPeriod)
{
    timers_.every(10ms, record(1));

    timers_.advance(35ms);

    EXPECT_THAT(expired_.values(), SizeIs(3));
}

TEST_F(TimerServiceTest, CancelledActionDoesNotRun)
{
    const auto id = timers_.after(10ms, record(1));
    EXPECT_TRUE(timers_.isPending(id));

    timers_.cancel(id);

    EXPECT_FALSE(timers_.isPending(id));
    timers_.advance(10ms);
    EXPECT_THAT(expired_.values(), IsEmpty());
}

TEST_F(TimerServiceTest, TimerSetByAnActionRunsInTheSameAdvance)
{
    timers_.after(10ms, [this] { timers_.after(10ms, record(1)); });

    timers_.advance(19ms);
    EXPECT_THAT(expired_.values(), IsEmpty());

    timers_.advance(1ms);
    EXPECT_THAT(expired_.values(), ElementsAre(1));
}

TEST_F(TimerServiceTest, ActionsRunOnOneThreadThatIsNotTheCallers)
{
    testsupport::Recorder<std::thread::id> threads;
    timers_.every(10ms, [&] { threads.add(std::this_thread::get_id()); });

    timers_.advance(20ms);

    const auto both = threads.values();
    ASSERT_THAT(both, SizeIs(2));
    EXPECT_EQ(both[0], both[1]);
    EXPECT_NE(both[0], std::this_thread::get_id());
}

TEST_F(TimerServiceTest, ActionThatThrowsDoesNotEndTheOthers)
{
    timers_.after(10ms, [] { throw std::runtime_error("on purpose"); });
    timers_.after(15ms, [] { throw 42; });
    timers_.after(20ms, record(1));

    timers_.advance(20ms);

    EXPECT_THAT(expired_.values(), ElementsAre(1));
}

TEST_F(TimerServiceTest, CancellingAnOwnersTimersLeavesThoseOfOthers)
{
    const int one = 1;
    const int other = 2;
    timers_.after(10ms, record(1), &one);
    timers_.every(10ms, record(1), &one);
    timers_.after(10ms, record(2), &other);

    timers_.cancelAllOf(&one);

    timers_.advance(10ms);
    EXPECT_THAT(expired_.values(), ElementsAre(2));
}

TEST_F(TimerServiceTest, CancellingAnOwnersTimersWaitsForTheOneThatRuns)
{
    TimerService timers;
    const int owner = 0;
    std::promise<void> entered;
    std::promise<void> release;
    std::atomic<bool> left = false;
    timers.after(
        0ms,
        [&] {
            entered.set_value();
            release.get_future().wait();
            left = true;
        },
        &owner);
    entered.get_future().wait();

    auto cancelled = std::async(std::launch::async, [&] {
        timers.cancelAllOf(&owner);
        return left.load();
    });
    release.set_value();

    EXPECT_TRUE(cancelled.get());
}

TEST(SteadyTimerService, ActionRunsNotBeforeItsTime)
{
    testsupport::Recorder<std::chrono::steady_clock::time_point> expired;
    TimerService timers;
    const auto before = std::chrono::steady_clock::now();

    timers.after(20ms, [&] { expired.add(std::chrono::steady_clock::now()); });

    const auto times = expired.waitFor(1);
    ASSERT_THAT(times, SizeIs(1));
    EXPECT_GE(times.front() - before, 20ms);
}

TEST(SteadyTimerService, EarlierTimerThatIsSetLaterRunsFirst)
{
    testsupport::Recorder<int> expired;
    TimerService timers;

    timers.after(1h, [&] { expired.add(2); });
    timers.after(1ms, [&] { expired.add(1); });

    EXPECT_THAT(expired.waitFor(1), ElementsAre(1));
}

/// An object with timers, on the manual clock.
class QlxTimerTest : public testing::Test
{
protected:
    class Object : public KYRQLXTimer
    {
    public:
        ~Object() override
        {
            for (const int id : {1, 2, 20}) {
                KillNormalTimer(id);
            }
        }

        void OnTimerHandleFunc(int id) override
        {
            expired.add(id);
            activeMeanwhile.add(IsNormalTimerActive(id));
        }

        testsupport::Recorder<int> expired;
        testsupport::Recorder<int> activeMeanwhile;
    };

    /// Has timers that are made meanwhile run on the manual clock.
    struct Installed {
        explicit Installed(TimerService& timers) { TimerService::setInstance(&timers); }
        ~Installed() { TimerService::setInstance(nullptr); }
        Installed(const Installed&) = delete;
        Installed& operator=(const Installed&) = delete;
    };

    TimerService timers_{TimerService::Clock::kManual};
    const Installed installed_{timers_};
    Object object_;
};

TEST_F(QlxTimerTest, TypeZeroCountsMilliseconds)
{
    EXPECT_EQ(object_.StartNormalTimer(1, 300, TIMER_MILLISECONDS, LOOP_ONCE), 1);

    timers_.advance(299ms);
    EXPECT_THAT(object_.expired.values(), IsEmpty());
    timers_.advance(1ms);
    EXPECT_THAT(object_.expired.values(), ElementsAre(1));
}

TEST_F(QlxTimerTest, TypeOneCountsTenthsOfASecond)
{
    EXPECT_EQ(object_.StartNormalTimer(1, 3, TIMER_TENTHS_OF_SECOND, LOOP_ONCE), 1);

    timers_.advance(299ms);
    EXPECT_THAT(object_.expired.values(), IsEmpty());
    timers_.advance(1ms);
    EXPECT_THAT(object_.expired.values(), ElementsAre(1));
}

TEST_F(QlxTimerTest, UnknownTypeOrLoopIsRefused)
{
    EXPECT_EQ(object_.StartNormalTimer(1, 1, static_cast<TimerType>(2), LOOP_ONCE), 0);
    EXPECT_EQ(object_.StartNormalTimer(1, 1, TIMER_MILLISECONDS, static_cast<LoopType>(2)), 0);

    EXPECT_EQ(object_.IsNormalTimerActive(1), 0);
}

TEST_F(QlxTimerTest, IntervalOfZeroOrLessCountsAsOne)
{
    object_.StartNormalTimer(1, 0, TIMER_MILLISECONDS, LOOP_ONCE);
    object_.StartNormalTimer(2, -5, TIMER_TENTHS_OF_SECOND, LOOP_ONCE);

    timers_.advance(1ms);
    EXPECT_THAT(object_.expired.values(), ElementsAre(1));
    timers_.advance(99ms);
    EXPECT_THAT(object_.expired.values(), ElementsAre(1, 2));
}

TEST_F(QlxTimerTest, TimerThatFiresOnceIsNoLongerActiveWhenItExpires)
{
    object_.StartNormalTimer(1, 10, TIMER_MILLISECONDS, LOOP_ONCE);
    EXPECT_EQ(object_.IsNormalTimerActive(1), 1);

    timers_.advance(10ms);

    EXPECT_THAT(object_.activeMeanwhile.values(), ElementsAre(0));
    EXPECT_EQ(object_.IsNormalTimerActive(1), 0);
}

TEST_F(QlxTimerTest, TimerThatRepeatsStaysActive)
{
    object_.StartNormalTimer(1, 10, TIMER_MILLISECONDS, LOOP_REPEAT);

    timers_.advance(20ms);

    EXPECT_THAT(object_.activeMeanwhile.values(), ElementsAre(1, 1));
    EXPECT_EQ(object_.IsNormalTimerActive(1), 1);
}

TEST_F(QlxTimerTest, ActiveTimerIsStartedAnew)
{
    object_.StartNormalTimer(1, 10, TIMER_MILLISECONDS, LOOP_REPEAT);
    timers_.advance(9ms);

    object_.StartNormalTimer(1, 10, TIMER_MILLISECONDS, LOOP_ONCE);

    timers_.advance(9ms);
    EXPECT_THAT(object_.expired.values(), IsEmpty());
    timers_.advance(100ms);
    EXPECT_THAT(object_.expired.values(), ElementsAre(1));
}

TEST_F(QlxTimerTest, KilledTimerDoesNotExpireAndMayBeStartedAgain)
{
    object_.StartNormalTimer(1, 10, TIMER_MILLISECONDS, LOOP_ONCE);
    object_.KillNormalTimer(1);
    object_.KillNormalTimer(2);  // never started
    timers_.advance(10ms);
    EXPECT_THAT(object_.expired.values(), IsEmpty());

    object_.StartNormalTimer(1, 10, TIMER_MILLISECONDS, LOOP_ONCE);

    timers_.advance(10ms);
    EXPECT_THAT(object_.expired.values(), ElementsAre(1));
}

TEST_F(QlxTimerTest, ObjectsNameTheirTimersIndependently)
{
    Object other;
    object_.StartNormalTimer(20, 10, TIMER_MILLISECONDS, LOOP_ONCE);
    other.StartNormalTimer(20, 20, TIMER_MILLISECONDS, LOOP_ONCE);

    object_.KillNormalTimer(20);

    timers_.advance(20ms);
    EXPECT_THAT(object_.expired.values(), IsEmpty());
    EXPECT_THAT(other.expired.values(), ElementsAre(20));
}

TEST_F(QlxTimerTest, TimersOfAnObjectThatIsGoneDoNotExpire)
{
    auto other = std::make_unique<KYRQLXTimer>();
    other->StartNormalTimer(1, 10, TIMER_MILLISECONDS, LOOP_REPEAT);

    other.reset();

    object_.StartNormalTimer(1, 20, TIMER_MILLISECONDS, LOOP_ONCE);
    timers_.advance(20ms);
    EXPECT_THAT(object_.expired.values(), ElementsAre(1));
}

TEST_F(QlxTimerTest, ObjectMayBeDestroyedByItsOwnExpiry)
{
    class Suicidal : public KYRQLXTimer
    {
    public:
        void OnTimerHandleFunc(int) override { delete this; }
    };
    auto* const object = new Suicidal;
    object->StartNormalTimer(1, 10, TIMER_MILLISECONDS, LOOP_REPEAT);
    object_.StartNormalTimer(1, 100, TIMER_MILLISECONDS, LOOP_ONCE);

    timers_.advance(100ms);

    EXPECT_THAT(object_.expired.values(), ElementsAre(1));
}

TEST(QlxTimerOnTheProcessesService, Expires)
{
    class Object : public KYRQLXTimer
    {
    public:
        ~Object() override { KillNormalTimer(1); }
        void OnTimerHandleFunc(int id) override { expired.add(id); }
        testsupport::Recorder<int> expired;
    } object;

    object.StartNormalTimer(1, 1, TIMER_MILLISECONDS, LOOP_ONCE);

    EXPECT_THAT(object.expired.waitFor(1), ElementsAre(1));
}

}  // namespace
}  // namespace runtime
