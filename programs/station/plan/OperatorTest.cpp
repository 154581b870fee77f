#include "programs/station/plan/Operator.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <thread>

#include "tests/support/PtyPeer.h"

namespace programs::station_tool {
namespace {

using station::plan::Prompt;
using station::plan::Question;
using testing::ElementsAre;
using namespace std::chrono_literals;

thread_local std::string asking;

/// A terminal without operator: each question times out soon after it appears.
class OperatorTest : public testing::Test
{
protected:
    OperatorTest() : standardInput_(dup(STDIN_FILENO))
    {
        const int terminal = open(peer_.path().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
        dup2(terminal, STDIN_FILENO);
        close(terminal);
    }

    ~OperatorTest() override
    {
        dup2(standardInput_, STDIN_FILENO);
        close(standardInput_);
    }

    /// Has a port ask on a thread of its own.
    std::jthread ask(const std::string& port)
    {
        return std::jthread([this, port] {
            asking = port;
            try {
                operator_.ask(Question{port, prompt_, 1ms}, interrupt);
            } catch (const station::Interrupted&) {
                note(port + " was interrupted");
            }
        });
    }

    void note(const std::string& what)
    {
        const std::lock_guard lock(mutex_);
        log_.push_back(what);
    }

    std::vector<std::string> log() const
    {
        const std::lock_guard lock(mutex_);
        return log_;
    }

    station::Interrupt interrupt;

private:
    tests::PtyPeer peer_;
    const int standardInput_;
    const station::plan::Answers answers_;
    const Prompt prompt_{"lit", "Lit?", Prompt::Kind::kYesNo,       {},    {},   {},
                         {},    {},     station::plan::Keep::kLast, false, false};
    mutable std::mutex mutex_;
    std::vector<std::string> log_;  // guarded by mutex_

protected:
    Operator operator_{answers_, {"a", "b", "c"}, [this](bool aside) {
                           if (aside) {
                               note(asking);
                           }
                       }};
};

TEST_F(OperatorTest, PortsAreAskedInTheirOrderWhicheverComesFirst)
{
    {
        const auto third = ask("c");
        const auto second = ask("b");
        const auto first = ask("a");
    }

    EXPECT_THAT(log(), ElementsAre("a", "b", "c"));
}

TEST_F(OperatorTest, QuestionWaitsForAnEarlierPortUntilThatIsPastTheStep)
{
    operator_.ended("b");
    operator_.reached("c", {4, false});
    {
        const auto third = ask("c");
        operator_.reached("a", {4, false});
        note("a is at the step");
        operator_.reached("a", {5, false});
    }

    EXPECT_THAT(log(), ElementsAre("a is at the step", "c"));
}

TEST_F(OperatorTest, QuestionDoesNotWaitForLaterPorts)
{
    operator_.reached("a", {4, false});

    ask("a").join();

    EXPECT_THAT(log(), ElementsAre("a"));
}

TEST_F(OperatorTest, GroupThatIsTriedAgainDoesNotDelayOthers)
{
    operator_.reached("a", {5, false});
    operator_.reached("a", {3, false});
    operator_.reached("b", {4, false});

    ask("b").join();

    EXPECT_THAT(log(), ElementsAre("b"));
}

TEST_F(OperatorTest, RunThatEndsIsNotWaitedFor)
{
    {
        const auto third = ask("c");
        operator_.ended("a");
        note("a has ended");
        operator_.ended("b");
    }

    EXPECT_THAT(log(), ElementsAre("a has ended", "c"));
}

TEST_F(OperatorTest, InterruptEndsTheWaiting)
{
    const auto second = [this] {
        const auto thread = ask("b");
        interrupt.request();
    };

    second();

    EXPECT_THAT(log(), ElementsAre("b was interrupted"));
}

TEST_F(OperatorTest, TeardownWaitsOnlyForPortsThatTearDownToo)
{
    operator_.reached("a", {2, false});
    operator_.reached("b", {7, true});
    operator_.reached("c", {7, true});
    {
        const auto third = ask("c");
        const auto second = ask("b");
    }

    EXPECT_THAT(log(), ElementsAre("b", "c"));
}

}  // namespace
}  // namespace programs::station_tool
