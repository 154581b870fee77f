// Walks the catalogue along the running service: what the one says, the other does.

#include <gmock/gmock.h>

#include <algorithm>
#include <map>
#include <utility>

#include "protocol/catalogue/Catalogue.h"
#include "protocol/catalogue/Codec.h"
#include "station/Connection.h"
#include "tests/integration/BenchTest.h"
#include "tests/support/BusClient.h"

namespace tests {
namespace {

using protocol::Frame;
using namespace protocol::catalogue;
using testing::ElementsAre;
using testing::IsEmpty;

std::vector<Argument> examplesOf(std::span<const Field> fields)
{
    std::vector<Argument> arguments;
    for (const Field& field : fields) {
        arguments.emplace_back(field.name, field.example);
    }
    return arguments;
}

std::string textOf(const Frame& frame)
{
    return format(groups(), decodeFromUnit(groups(), frame), frame);
}

/// Whether the frame may come at any time: a late answer or a notice.
bool mayComeAnyTime(const Frame& frame)
{
    const auto same = [&](const auto& entry) { return entry.cmdOne == frame.cmdOne && entry.cmdTwo == frame.cmdTwo; };
    for (const Group& group : groups()) {
        if (std::ranges::any_of(group.notices, same) ||
            std::ranges::any_of(group.commands,
                                [&](const Command& command) { return std::ranges::any_of(command.later, same); })) {
            return true;
        }
    }
    return false;
}

/// Values as they are shown, by name.
using Values = std::map<std::string_view, std::string>;

Values valuesOf(const Decoded& decoded)
{
    Values values;
    for (const DecodedField& field : decoded.fields) {
        values.emplace(field.field->name, format(field));
    }
    return values;
}

class CatalogueWalkTest : public BenchTest
{
protected:
    CatalogueWalkTest()
    {
        startService();
        line_ =
            std::make_unique<station::Connection>(station::PortSpec{link().string()}, station::Connection::Options{});
        line_->send({0x0F, 0x00, {0x01}});
        EXPECT_EQ(next(), (Frame{0x8F, 0x00, {0x01}}));
    }

    /// Starts the HMI, so that what it answers later comes, and the Wi-Fi service, so that its group answers.
    void wakeEverything()
    {
        ChildProcess& hmi = start({ENGINEERING_HMI});
        EXPECT_TRUE(hmi.waitForLine(ChildProcess::Stream::kErr, "ready"));
        EXPECT_EQ(run({HEADUNITCTL, "event", "OnModuleStatusChanged", R"({"module":17})"}).status, 0);
    }

    station::Connection& line() { return *line_; }

    Frame next()
    {
        const auto frame = line_->receive(std::chrono::steady_clock::now() + kGenerous);
        fellSilent_ = !frame;
        EXPECT_TRUE(frame) << "nothing came";
        return frame.value_or(Frame{});
    }

    /// Sends `command` and a mark behind it.
    /// @returns what came before the mark's echo: the answers to the command, since the service works one frame off
    /// after the other. What may come at any time is left for `waitFor`.
    std::vector<Frame> answersTo(const Frame& command)
    {
        line_->send(command);
        return untilMark();
    }

    std::vector<Frame> untilMark()
    {
        mark_ ^= 1;
        const auto mark = static_cast<std::uint8_t>(0x60 | mark_);  // no example has it
        line_->send({0x06, 0x12, {mark}});
        std::vector<Frame> answers;
        for (;;) {
            const Frame frame = next();
            if (frame == Frame{0x86, 0x12, {mark}} || fellSilent_) {
                return answers;
            }
            (mayComeAnyTime(frame) ? atAnyTime_ : answers).push_back(frame);
        }
    }

    /// Waits for a frame that comes on its own.
    Frame waitFor(std::uint8_t cmdOne, std::uint8_t cmdTwo)
    {
        for (;;) {
            while (!atAnyTime_.empty()) {
                const Frame frame = atAnyTime_.front();
                atAnyTime_.erase(atAnyTime_.begin());
                if (frame.cmdOne == cmdOne && frame.cmdTwo == cmdTwo) {
                    return frame;
                }
            }
            atAnyTime_.push_back(next());
            if (fellSilent_) {
                return {};
            }
        }
    }

    /// Checks everything that the catalogue says of the command's answers.
    void expectAsTheCatalogueSays(const Command& command)
    {
        SCOPED_TRACE(fullKey(groups(), command));
        const std::vector<Frame> answers = answersTo(encode(command, examplesOf(command.params)));

        ASSERT_EQ(answers.size(), command.replies.empty() ? 0u : 1u) << (answers.empty() ? "" : textOf(answers[0]));
        if (!answers.empty()) {
            expectShape(command, command.replies, answers[0]);
        }
        for (const Reply& later : command.later) {
            expectShape(command, command.later, waitFor(later.cmdOne, later.cmdTwo));
        }
    }

    void expectShape(const Command& command, std::span<const Reply> replies, const Frame& frame)
    {
        const Decoded decoded = decodeFromUnit(groups(), frame, &command);
        EXPECT_EQ(decoded.command, &command) << textOf(frame);
        EXPECT_TRUE(std::ranges::any_of(replies, [&](const Reply& reply) { return &reply == decoded.reply; }));
        EXPECT_THAT(decoded.problems, IsEmpty()) << textOf(frame);
    }

    /// Writes the command's example, then reads with its partner until that says the same.
    /// @returns how many values both have, and so were compared.
    std::size_t expectReadBack(const Command& command)
    {
        SCOPED_TRACE(fullKey(groups(), command));
        const Command* const partner = findCommand(groups(), command.readBack);
        if (partner == nullptr) {
            ADD_FAILURE() << "there is no " << command.readBack;
            return 0;
        }
        const Frame written = encode(command, examplesOf(command.params));
        answersTo(written);
        const Values wanted = valuesOf(decodeRequest(groups(), written));
        const auto deadline = std::chrono::steady_clock::now() + kGenerous;
        for (;;) {
            const std::vector<Frame> answers = answersTo(encode(*partner, examplesOf(partner->params)));
            const Frame read =
                !answers.empty() ? answers[0] : waitFor(partner->later[0].cmdOne, partner->later[0].cmdTwo);
            const Values got = valuesOf(decodeFromUnit(groups(), read, partner));
            std::size_t compared = 0;
            bool same = true;
            for (const auto& [name, value] : wanted) {
                const auto found = got.find(name);
                compared += found != got.end();
                same = same && (found == got.end() || found->second == value);
            }
            if (same || std::chrono::steady_clock::now() >= deadline) {
                EXPECT_TRUE(same) << textOf(read);
                return compared;
            }
        }
    }

    void expectSilenceWhenShort(const Command& command)
    {
        SCOPED_TRACE(fullKey(groups(), command));
        for (std::size_t count = 0; count < command.minimumParams; ++count) {
            Frame frame = encode(command, examplesOf(command.params));
            frame.params.resize(count);
            EXPECT_THAT(answersTo(frame), IsEmpty()) << count << " bytes";
        }
    }

private:
    std::unique_ptr<station::Connection> line_;
    std::vector<Frame> atAnyTime_;
    std::uint8_t mark_ = 0;
    bool fellSilent_ = false;
};

TEST_F(CatalogueWalkTest, EveryCommandIsAnsweredAsTheCatalogueSays)
{
    wakeEverything();
    for (const Group& group : groups()) {
        for (const Command& command : group.commands) {
            ASSERT_NO_FATAL_FAILURE(expectAsTheCatalogueSays(command));
        }
    }
}

TEST_F(CatalogueWalkTest, WhatWasWrittenIsReadBackWithTheCommandThatTheCatalogueNames)
{
    wakeEverything();
    std::vector<std::string> notCompared;
    for (const Group& group : groups()) {
        for (const Command& command : group.commands) {
            if (!command.readBack.empty() && expectReadBack(command) == 0) {
                notCompared.push_back(fullKey(groups(), command));
            }
        }
    }
    // These start something that the other command only looks at.
    EXPECT_THAT(notCompared, ElementsAre("tuner.tune", "media.select-track-1", "media.select-track-3", "bluetooth.call",
                                         "identity.write-bluetooth-address", "other.aging-test", "wifi.start"));
}

TEST_F(CatalogueWalkTest, ACommandWithTooFewParametersIsSilent)
{
    for (const Group& group : groups()) {
        for (const Command& command : group.commands) {
            ASSERT_NO_FATAL_FAILURE(expectSilenceWhenShort(command));
        }
    }
    EXPECT_EQ(run({HEADUNITCTL, "calls"}).out.find("RestoreFactorySettings"), std::string::npos);
}

TEST_F(CatalogueWalkTest, EveryCommandWithoutAnEntryIsSilent)
{
    for (int group = 0; group <= 0xFF; ++group) {
        for (int code = 0; code <= 0xFF; ++code) {
            const auto one = static_cast<std::uint8_t>(group);
            const auto two = static_cast<std::uint8_t>(code);
            if (findCommand(groups(), one, two) == nullptr) {
                line().send({one, two, {0x01, 0x01}});
            }
        }
        EXPECT_THAT(untilMark(), IsEmpty()) << "group " << group;
    }
}

TEST_F(CatalogueWalkTest, ACommandThatStaysSilentSaysSoInTheCatalogue)
{
    const std::vector<std::pair<std::string, std::string>> missing{
        {"/audio/available", "audio"}, {"/tuner/available", "tuner"}, {"/system_misc/available", ""},
        {"/power/available", ""},      {"/wifi/available", ""},
    };
    for (const auto& [path, group] : missing) {
        EXPECT_EQ(run({HEADUNITCTL, "set", path, "false"}).status, 0);
        for (const Group& each : groups()) {
            for (const Command& command : each.commands) {
                if (command.replies.empty() || command.destructive) {
                    continue;
                }
                const auto answers = answersTo(encode(command, examplesOf(command.params)));
                EXPECT_TRUE(!answers.empty() || !command.silentWhen.empty())
                    << fullKey(groups(), command) << " is silent without " << path;
            }
        }
        EXPECT_EQ(run({HEADUNITCTL, "set", path, "true"}).status, 0);
    }
}

TEST_F(CatalogueWalkTest, AMissingCarPlayRecordIsAnsweredUnderThePasswordNumbersCode)
{
    const Command& command = *findCommand(groups(), "identity.carplay-mac");

    const auto answers = answersTo({command.cmdOne, command.cmdTwo, {}});

    ASSERT_EQ(answers, (std::vector<Frame>{{0x8A, 0x0F, {}}}));
    expectShape(command, command.replies, answers[0]);
}

TEST_F(CatalogueWalkTest, EveryNoticeHasTheCataloguesShape)
{
    BusClient hmi(bus().address());
    answersTo({0x06, 0x0B, {0x01}});
    hmi.callEngineering("auto_test_feedback_key_event", "(byte 64, byte 16)");
    const Frame key = waitFor(0x86, 0x11);
    run({HEADUNITCTL, "event", "OnFactoryResetMode", "{}"});
    const Frame reset = waitFor(0x86, 0x13);

    for (const Frame& frame : {key, reset}) {
        const Decoded decoded = decodeFromUnit(groups(), frame);
        EXPECT_NE(decoded.notice, nullptr) << textOf(frame);
        EXPECT_THAT(decoded.problems, IsEmpty());
    }
}

}  // namespace
}  // namespace tests
