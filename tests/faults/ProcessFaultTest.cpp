#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <fstream>
#include <thread>

#include "host/Descriptor.h"
#include "tests/integration/BenchTest.h"
#include "tests/support/WireVectors.h"

namespace tests {
namespace {

namespace fs = std::filesystem;
using host::Descriptor;
using testing::HasSubstr;
using testing::Not;
using wire::kAskMode;
using wire::kModeOn;
using wire::kModeOnReply;
using Stream = ChildProcess::Stream;

using Bytes = std::vector<std::uint8_t>;
// 03+8F+FF+01 = 0192
const Bytes kModeIsOn{0x2A, 0xA2, 0x00, 0x03, 0x8F, 0xFF, 0x01, 0x00, 0xFE, 0x6E};
// 03+0A+02+31 = 0040
const Bytes kWriteSerial{0x2A, 0xA2, 0x00, 0x03, 0x0A, 0x02, 0x31, 0x00, 0xFF, 0xC0};

/// What whoever starts the service may leave it with.
class ProcessFaultTest : public BenchTest
{
protected:
    /// Starts the service in a shell that has run `before`, and with its redirections; returns when the link is there.
    ChildProcess& startIn(const std::string& before, const std::string& redirections,
                          const std::vector<std::string>& arguments = {})
    {
        std::vector<std::string> all{
            "bash", "-c", before + "exec " + shellWords(ENGINEERING_SERVICE) + " --root \"$0\" \"$@\" " + redirections,
            root().string()};
        all.insert(all.end(), arguments.begin(), arguments.end());
        ChildProcess& service = start(all);
        EXPECT_TRUE(comesTrue([this] { return fs::exists(link()); }));
        return service;
    }

    template <class Condition>
    static bool comesTrue(Condition condition)
    {
        const auto deadline = std::chrono::steady_clock::now() + kGenerous;
        while (!condition()) {
            if (std::chrono::steady_clock::now() > deadline) {
                return false;
            }
            std::this_thread::yield();
        }
        return true;
    }

    std::string writeFile(const std::string& name, const std::string& text)
    {
        const fs::path file = directory() / name;
        std::ofstream(file) << text;
        return file.string();
    }

    fs::path makePipe(const std::string& name = "pipe")
    {
        const fs::path pipe = directory() / name;
        EXPECT_EQ(mkfifo(pipe.c_str(), 0600), 0);
        return pipe;
    }

    /// @returns the end to write to of a pipe whose reader waits for it.
    static std::unique_ptr<Descriptor> openAwaited(const fs::path& pipe)
    {
        int writer = -1;
        EXPECT_TRUE(comesTrue([&] { return (writer = open(pipe.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC)) >= 0; }));
        return std::make_unique<Descriptor>(writer);
    }

    std::string logText() const
    {
        std::ifstream stream(root() / "perm_data/log/log_engineering.log");
        return {std::istreambuf_iterator<char>(stream), {}};
    }
};

TEST_F(ProcessFaultTest, LimitOnTheSizeOfFilesDoesNotEndTheService)
{
    startIn("ulimit -f 8; ", "");  // blocks of 512 bytes: soon the log's next line does not fit

    RawLine line(link());
    for (int i = 0; i < 100; ++i) {
        line.expectExchange(kModeOn, kModeOnReply);
    }
}

TEST_F(ProcessFaultTest, SignalOfChildrenThatTheParentIgnoredIsNot)
{
    startIn("trap '' CHLD; ", "");
    RawLine line(link());
    line.expectExchange(kModeOn, kModeOnReply);

    line.write(kWriteSerial);
    line.expectExchange(kModeOn, kModeOnReply);

    EXPECT_TRUE(fs::exists(root() / "perm_data/data/engineering/factory_serial_num"));
    EXPECT_THAT(logText(), Not(HasSubstr("error")));
}

TEST_F(ProcessFaultTest, ClosedStandardDescriptorsLeadNowhere)
{
    ChildProcess& service = startIn("", "<&- >&- 2>&-");

    for (const char* descriptor : {"0", "1", "2"}) {
        const fs::path entry = fs::path("/proc") / std::to_string(service.pid()) / "fd" / descriptor;
        EXPECT_THAT(fs::read_symlink(entry).string(), testing::AnyOf("/dev/null", testing::StartsWith("pipe:")))
            << descriptor;
    }
    RawLine(link()).expectExchange(kModeOn, kModeOnReply);
}

TEST_F(ProcessFaultTest, SigtermEndsItWhileItWaitsForTheWriterOfTheHeadUnitsState)
{
    const fs::path pipe = makePipe();
    ChildProcess& service = start({ENGINEERING_SERVICE, "--root", root().string(), "--headunit", pipe.string()});
    const auto writer = openAwaited(pipe);

    service.signal(SIGTERM);

    expectEnd(service, 0);
}

TEST_F(ProcessFaultTest, HeadUnitsStateComesThroughAPipe)
{
    const fs::path pipe = makePipe();
    ChildProcess& service = start({ENGINEERING_SERVICE, "--root", root().string(), "--headunit", pipe.string()});

    std::ofstream(pipe) << R"({"audio": {"volume": 33}})";

    EXPECT_TRUE(service.waitForLine(Stream::kErr, "ready uart="));
    RawLine line(link());
    line.expectExchange(kModeOn, kModeOnReply);
    line.expectExchange({0x2A, 0xA2, 0x00, 0x02, 0x01, 0x01, 0xFF, 0xFC},
                        {0x2A, 0xA2, 0x00, 0x03, 0x81, 0x01, 0x21, 0x00, 0xFF, 0x5A});
}

struct Unread {
    const char* name;
    const char* stream;
    const char* logRule;
};

class UnreadOutputTest : public ProcessFaultTest, public testing::WithParamInterface<Unread>
{
};

TEST_P(UnreadOutputTest, DoesNotStopTheLine)
{
    const fs::path pipe = makePipe();
    const Descriptor reader(open(pipe.c_str(), O_RDWR | O_CLOEXEC));
    ChildProcess& service = startIn(
        "", GetParam().stream + ("'" + pipe.string() + "'"),
        {"--headunit", writeFile("state.json", R"({"config": {"/engineering/open_debug": true}})"), "--log-conf",
         writeFile("zlog.conf", std::string("[formats]\nplain = \"%V %m%n\"\n[rules]\n") + GetParam().logRule + "\n")});
    RawLine line(link());
    line.expectExchange(kModeOn, kModeOnReply);

    // More than the reader's pipe and the service's own hold.
    Bytes requests;
    Bytes replies;
    for (int i = 0; i < 50; ++i) {
        requests.insert(requests.end(), kAskMode.begin(), kAskMode.end());
        replies.insert(replies.end(), kModeIsOn.begin(), kModeIsOn.end());
    }
    for (int i = 0; i < 200 && !HasFailure(); ++i) {
        line.expectExchange(requests, replies);
    }

    service.signal(SIGTERM);
    expectEnd(service, 0);
}

INSTANTIATE_TEST_SUITE_P(ProcessFault, UnreadOutputTest,
                         testing::Values(Unread{"Traces", ">", "engineering.ERROR >stdout; plain"},
                                         Unread{"LogOnStandardOutput", ">", "engineering.DEBUG >stdout; plain"},
                                         Unread{"LogOnStandardError", "2>", "engineering.DEBUG >stderr; plain"}),
                         [](const auto& row) { return row.param.name; });

TEST_F(ProcessFaultTest, OfThreeServicesStartedOnOneStaleLinkOneRuns)
{
    hideBus();
    const fs::path stale = directory() / "uart";
    for (const char* name : {"pipe1", "pipe2", "pipe3"}) {
        makePipe(name);
    }
    for (int round = 0; round < 30; ++round) {
        fs::remove(stale);
        fs::create_symlink("/dev/pts/no-such-terminal", stale);
        std::vector<ChildProcess*> services;
        std::vector<std::unique_ptr<Descriptor>> writers;
        for (const char* name : {"pipe1", "pipe2", "pipe3"}) {
            services.push_back(&start({ENGINEERING_SERVICE, "--root", root().string(), "--uart",
                                       "pty:" + stale.string(), "--headunit", (directory() / name).string()}));
            writers.push_back(openAwaited(directory() / name));
        }
        // All three wait for their state, and then go on at once.
        for (const auto& writer : writers) {
            EXPECT_EQ(write(writer->get(), "{}", 2), 2);
        }
        writers.clear();

        // Each has got ready or has ended before the first is asked to end.
        const auto isReady = [](ChildProcess* service) {
            return service->waitForLine(Stream::kErr, "ready uart=").has_value();
        };
        const auto running = std::ranges::count_if(services, isReady);
        std::ranges::for_each(services, [](ChildProcess* service) { service->signal(SIGTERM); });
        std::ranges::for_each(services, [](ChildProcess* service) { service->wait(); });
        EXPECT_EQ(running, 1) << round;
    }
}

}  // namespace
}  // namespace tests
