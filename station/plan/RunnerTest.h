#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "protocol/catalogue/Catalogue.h"
#include "station/FrameScanner.h"
#include "station/plan/Load.h"
#include "station/plan/Runner.h"
#include "station/plan/ScriptedUnit.h"
#include "station/record/Outcome.h"

namespace station::plan::tests {

using namespace std::chrono_literals;
using record::Verdict;

/// An operator who has the answers ready.
class ReadyOperator : public Prompter
{
public:
    std::map<std::string, std::string> answers;
    std::function<void()> beforeAnswering;
    bool late = false;  ///< does not answer in time
    std::vector<std::size_t> steps;
    std::vector<std::size_t> stepsOfTeardown;

    void reached(const std::string&, const Progress& progress) override
    {
        const std::lock_guard lock(mutex_);
        steps.push_back(progress.step);
        if (progress.inTeardown) {
            stepsOfTeardown.push_back(progress.step);
        }
    }

    std::optional<std::string> ask(const Question& question, Interrupt& interrupt) override
    {
        if (beforeAnswering) {
            beforeAnswering();
        }
        if (interrupt.requested()) {
            throw Interrupted();
        }
        if (late) {
            return std::nullopt;
        }
        const auto found = answers.find(question.prompt.id);
        if (found == answers.end()) {
            throw protocol::UserError("the operator is away");
        }
        return found->second;
    }

private:
    std::mutex mutex_;
};

/// A simulated head unit that remembers its calls.
class HeadUnitStub : public HeadUnit
{
public:
    bool there = true;
    std::vector<std::string> told;
    std::function<void()> beforeLooking = [] {};

    bool present() override
    {
        beforeLooking();
        return there;
    }

    void set(const std::string& path, const std::string& json) override { told.push_back(path + " " + json); }
    void raise(const std::string& event, const std::string& json) override { told.push_back(event + " " + json); }
};

/// A unit that answers some commands as it should, and others as the test says.
class RunnerTest : public testing::Test
{
protected:
    /// The reaction of the unit to a command of this code; by default silence.
    std::map<unsigned, std::function<void(const Frame&)>> on;

    void reply(std::uint8_t cmdOne, std::uint8_t cmdTwo, std::vector<std::uint8_t> params)
    {
        unit.write(wireBytes(Frame{cmdOne, cmdTwo, std::move(params)}));
    }

    Plan planOf(const std::string& text)
    {
        Loaded loaded = load("schema = 1\nname = \"test\"\ntitle = \"Test\"\n" + text, path,
                             protocol::catalogue::groups(), {}, equipment);
        for (const auto& problem : loaded.problems) {
            ADD_FAILURE() << format("test.toml", problem);
        }
        return loaded.plan.value_or(Plan{});
    }

    /// Runs a plan with these steps in its one group.
    const record::Run& runSteps(const std::string& steps)
    {
        return runText("[[main]]\nname = \"G\"\nsteps = [\n" + steps + "\n]\n");
    }

    const record::Run& runText(const std::string& text)
    {
        const Plan plan = planOf(text);
        unit.start();
        result = runPlan(plan, {unit.path()},
                         {protocol::catalogue::groups(), prompter, headUnit, serialRecord, serials,
                          std::make_shared<instrument::Instruments>(equipment)},
                         control, observer, known, reconnect);
        unit.stop();
        return result.run;
    }

    /// @returns a step of the main phase's first group.
    const record::Step& step(std::size_t index) const
    {
        return result.run.phases[1].groups.at(0).tries.at(0).steps.at(index);
    }

    /// Of the plan.
    std::string path = "test.toml";
    instrument::Equipment equipment;
    /// The facts that the run begins with.
    record::Run known;
    SerialRecord serialRecord;
    std::shared_ptr<SerialsAtPorts> serials = std::make_shared<SerialsAtPorts>();
    RunResult result;
    ReadyOperator prompter;
    HeadUnitStub headUnit;
    Observer observer;
    RunControl control;
    Duration reconnect = 0ms;
    ScriptedUnit unit{[this](const Frame& frame) {
        const auto found = on.find(static_cast<unsigned>(frame.cmdOne << 8 | frame.cmdTwo));
        if (found != on.end()) {
            found->second(frame);
        }
    }};
};

}  // namespace station::plan::tests
