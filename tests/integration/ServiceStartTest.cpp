#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <fstream>

#include "tests/integration/BenchTest.h"
#include "tests/support/PtyPeer.h"
#include "tests/support/WireVectors.h"

namespace tests {
namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;
using testing::StartsWith;
using wire::kModeOn;
using wire::kModeOnReply;
using Stream = ChildProcess::Stream;

class ServiceStartTest : public BenchTest
{
protected:
    /// Expects that the service refuses to start: `status`, and one line that contains `part`.
    void expectRefused(const std::vector<std::string>& arguments, int status, const std::string& part)
    {
        std::vector<std::string> all{ENGINEERING_SERVICE, "--root", root().string()};
        all.insert(all.end(), arguments.begin(), arguments.end());
        const auto outcome = run(all);
        EXPECT_EQ(outcome.status, status) << outcome.err;
        EXPECT_THAT(linesOf(outcome.err), ElementsAre(AllOf(StartsWith("engineering-service: "), HasSubstr(part))));
    }

    std::string writeFile(const std::string& name, const std::string& text)
    {
        const fs::path file = directory() / name;
        std::ofstream(file) << text;
        return file.string();
    }

    void expectAnswers(const fs::path& line) { RawLine(line).expectExchange(kModeOn, kModeOnReply); }
};

TEST_F(ServiceStartTest, ReadyLineNamesTheLinkAndIsTheOnlyOne)
{
    ChildProcess& service = startService();

    EXPECT_THAT(service.lines(Stream::kErr), ElementsAre("ready uart=" + link().string()));
}

TEST_F(ServiceStartTest, LinkLeadsToATerminalForItsOwnerOnly)
{
    startService();

    EXPECT_TRUE(fs::is_symlink(link()));
    struct stat status {
    };
    ASSERT_EQ(stat(link().c_str(), &status), 0);
    EXPECT_TRUE(S_ISCHR(status.st_mode));
    EXPECT_EQ(status.st_mode & 0777u, 0600u);
}

TEST_F(ServiceStartTest, RunDirectoryIsForItsOwnerOnly)
{
    startService();

    EXPECT_EQ(fs::status(link().parent_path()).permissions(), fs::perms::owner_all);
}

TEST_F(ServiceStartTest, RelativeLinkIsReportedAbsolute)
{
    const fs::path wanted = directory() / "line";
    const auto relative = wanted.lexically_relative(fs::current_path());

    ChildProcess& service = startService({"--uart", "pty:" + relative.string()});

    const auto ready = service.waitForLine(Stream::kErr, "ready uart=").value();
    const fs::path reported = ready.substr(std::string("ready uart=").size());
    EXPECT_TRUE(reported.is_absolute()) << ready;
    expectAnswers(reported);
}

TEST_F(ServiceStartTest, StaleLinkIsReplaced)
{
    fs::create_directory(directory() / "lines");
    const fs::path stale = directory() / "lines" / "uart";
    fs::create_symlink("/dev/pts/no-such-terminal", stale);

    startService({"--uart", "pty:" + stale.string()});

    expectAnswers(stale);
}

TEST_F(ServiceStartTest, FileInTheLinksPlaceIsRefusedAndLeftAsItIs)
{
    const std::string file = writeFile("uart", "mine");

    expectRefused({"--uart", "pty:" + file}, 1, file);

    std::string text;
    std::ifstream(file) >> text;
    EXPECT_EQ(text, "mine");
}

TEST_F(ServiceStartTest, DeviceThatDoesNotExistIsRefused)
{
    expectRefused({"--uart", "/dev/no-such-line"}, 1, "/dev/no-such-line");
}

TEST_F(ServiceStartTest, DeviceIsServedAndReportedByItsPath)
{
    PtyPeer peer;

    ChildProcess& service = startService({"--uart", peer.path()});
    peer.write(kModeOn);

    EXPECT_EQ(peer.read(kModeOnReply.size()), kModeOnReply);
    EXPECT_THAT(service.lines(Stream::kErr), ElementsAre("ready uart=" + peer.path()));
}

TEST_F(ServiceStartTest, SecondServiceOnADeviceIsRefusedAndTheFirstGoesOn)
{
    PtyPeer peer;
    startService({"--uart", peer.path()});

    expectRefused({"--uart", peer.path()}, 1, peer.path());

    peer.write(kModeOn);
    EXPECT_EQ(peer.read(kModeOnReply.size()), kModeOnReply);
}

TEST_F(ServiceStartTest, BytesFromBeforeTheStartAreDelivered)
{
    PtyPeer peer;
    peer.write(kModeOn);
    peer.waitUntilArrived(static_cast<int>(kModeOn.size()));

    startService({"--uart", peer.path()});

    EXPECT_EQ(peer.read(kModeOnReply.size()), kModeOnReply);
}

TEST_F(ServiceStartTest, WithoutABusSaysSoInOneLineAndServesTheStation)
{
    hideBus();

    ChildProcess& service = startService();

    EXPECT_THAT(service.lines(Stream::kErr), ElementsAre(HasSubstr("bus"), StartsWith("ready uart=")));
    expectAnswers(link());
}

TEST_F(ServiceStartTest, WithABusThatIsGoneSaysSoInOneLineAndServesTheStation)
{
    bus().kill();

    ChildProcess& service = startService();

    EXPECT_THAT(service.lines(Stream::kErr), ElementsAre(HasSubstr("bus"), StartsWith("ready uart=")));
    expectAnswers(link());
}

TEST_F(ServiceStartTest, WithTheNameTakenSaysSoInOneLineAndServesTheStation)
{
    startService();
    const auto other = directory() / "other";

    ChildProcess& second = startService({"--uart", "pty:" + other.string()});

    EXPECT_THAT(second.lines(Stream::kErr), Contains(HasSubstr("com.zent.linux.engineering")));
    EXPECT_THAT(second.lines(Stream::kErr).back(), StartsWith("ready uart="));
    expectAnswers(other);
    expectAnswers(link());
}

TEST_F(ServiceStartTest, SupervisorIsToldThatItIsReady)
{
    const fs::path path = directory() / "notify";
    const int socketDescriptor = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.string().copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(bind(socketDescriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    const timeval limit{20, 0};
    setsockopt(socketDescriptor, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    environment()["NOTIFY_SOCKET"] = path.string();

    startService();

    std::array<char, 256> message{};
    const ssize_t length = recv(socketDescriptor, message.data(), message.size(), 0);
    close(socketDescriptor);
    ASSERT_GT(length, 0);
    EXPECT_THAT(std::string(message.data(), static_cast<std::size_t>(length)), HasSubstr("READY=1"));
}

TEST_F(ServiceStartTest, RootGetsTheDirectoriesOfAHeadUnit)
{
    startService();

    for (const char* name : {"perm_data/data/bluetooth", "perm_data/data/engineering", "perm_data/log", "media"}) {
        EXPECT_TRUE(fs::is_directory(root() / name)) << name;
    }
    std::ifstream records(root() / "kyr/etc/bluetooth/bin/PSConfig.psr");
    std::vector<std::string> lines;
    for (std::string line; std::getline(records, line);) {
        lines.push_back(line);
    }
    EXPECT_THAT(lines, SizeIs(testing::Gt(1u)));
}

TEST_F(ServiceStartTest, WhatTheRootHoldsIsLeftAsItIs)
{
    const fs::path file = root() / "kyr/etc/bluetooth/bin/PSConfig.psr";
    fs::create_directories(file.parent_path());
    std::ofstream(file) << "mine\n";

    startService();

    std::string text;
    std::ifstream(file) >> text;
    EXPECT_EQ(text, "mine");
}

TEST_F(ServiceStartTest, RootThatCannotBeMadeIsRefused)
{
    std::ofstream(root()) << "a file where a directory must be\n";

    expectRefused({}, 1, "--root " + root().string() + ": cannot make the directory: ");
}

TEST_F(ServiceStartTest, RootThatCannotBeWrittenDoesNotKeepItFromServing)
{
    fs::create_directories(root());
    std::ofstream(root() / "perm_data") << "a file where a directory must be\n";

    startService();

    expectAnswers(link());
}

struct BadDocument {
    const char* name;
    const char* text;
};

class HeadUnitFileTest : public ServiceStartTest, public testing::WithParamInterface<BadDocument>
{
};

TEST_P(HeadUnitFileTest, IsRefusedInOneLineThatNamesTheFile)
{
    const std::string file = writeFile("headunit.json", GetParam().text);

    expectRefused({"--headunit", file}, 2, file);
}

INSTANTIATE_TEST_SUITE_P(ServiceStart, HeadUnitFileTest,
                         testing::Values(BadDocument{"NotJson", "volume = 12"}, BadDocument{"Empty", ""},
                                         BadDocument{"NoObject", "[1, 2]"},
                                         BadDocument{"UnknownKey", R"({"audio": {"loudness": 3}})"},
                                         BadDocument{"WrongType", R"({"audio": {"volume": "loud"}})"},
                                         BadDocument{"BrokenOff", R"({"audio": {"volume": 3})"}),
                         [](const auto& row) { return row.param.name; });

TEST_F(ServiceStartTest, HeadUnitFileThatDoesNotExistIsRefused)
{
    expectRefused({"--headunit", "/no/such/file.json"}, 2, "/no/such/file.json");
}

TEST_F(ServiceStartTest, HeadUnitFileMayBeADescriptorWhichStaysOpen)
{
    const std::string file = writeFile("headunit.json", R"({"audio": {"volume": 7}})");
    expectRefused({"--headunit", "/proc/self/fd/abc"}, 2, "/proc/self/fd/abc: no such file");
    // Not a number behind the folder, and yet a file.
    startService({"--headunit", "/proc/self/fd/../../.." + file, "--uart", "pty:" + (directory() / "other").string()});

    auto& service = start({"sh", "-c",
                           "exec " + shellWords(ENGINEERING_SERVICE) + " --root " + root().string() + " --uart pty:" +
                               (directory() / "line").string() + " --headunit /proc/self/fd/0 <" + file});

    ASSERT_TRUE(service.waitForLine(ChildProcess::Stream::kErr, "ready uart="))
        << service.output(ChildProcess::Stream::kErr);
    EXPECT_EQ(fs::read_symlink("/proc/" + std::to_string(service.pid()) + "/fd/0"), file);
}

TEST_F(ServiceStartTest, LogConfigurationThatDoesNotExistIsRefused)
{
    expectRefused({"--log-conf", "/no/such/zlog.conf"}, 2, "/no/such/zlog.conf");
}

TEST_F(ServiceStartTest, UnknownBaudIsRefused)
{
    PtyPeer peer;

    expectRefused({"--uart", peer.path() + ",12345"}, 2, "12345");
}

TEST_F(ServiceStartTest, EndsUponSigtermWithinASecondAndRemovesItsLink)
{
    ChildProcess& service = startService();
    const auto before = std::chrono::steady_clock::now();

    service.signal(SIGTERM);

    expectEnd(service, 0);
    // One second of the service's own, one for a loaded machine.
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(2));
    EXPECT_FALSE(fs::exists(fs::symlink_status(link())));
}

TEST_F(ServiceStartTest, EndsUponSigintAndRemovesItsLink)
{
    ChildProcess& service = startService();

    service.signal(SIGINT);

    expectEnd(service, 0);
    EXPECT_FALSE(fs::exists(fs::symlink_status(link())));
}

TEST_F(ServiceStartTest, EndsUponSigtermWhileTheBusStandsStill)
{
    ChildProcess& service = startService();
    bus().stop();
    const auto before = std::chrono::steady_clock::now();

    service.signal(SIGTERM);

    expectEnd(service, 0);
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(2));
}

}  // namespace
}  // namespace tests
