#include "platform/runtime/TtyWire.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <termios.h>

#include <fstream>
#include <future>
#include <numeric>

#include "platform/runtime/RuntimeTestSupport.h"
#include "platform/runtime/Terminal.h"
#include "tests/support/PtyPeer.h"
#include "tests/support/TempDir.h"

namespace runtime {
namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;
using testsupport::Bytes;
using testsupport::Chunks;
using testsupport::Reports;
using testsupport::StationEnd;

/// Bytes 00 01 02 ... FF 00 ...: each terminal treatment there is would change some of them.
Bytes everyByte(std::size_t count)
{
    Bytes bytes(count);
    std::iota(bytes.begin(), bytes.end(), std::uint8_t{0});
    return bytes;
}

/// @returns what an attempt to open a line says, empty when it succeeds.
template <class Open>
std::string refusalOf(Open open)
{
    try {
        open();
        return "";
    } catch (const TerminalError& error) {
        return error.what();
    }
}

class PtyWireTest : public testing::Test
{
protected:
    std::unique_ptr<TtyWire> makeWire() { return makeWire(link_); }
    std::unique_ptr<TtyWire> makeWire(const fs::path& link)
    {
        return std::make_unique<TtyWire>(std::make_unique<PseudoTerminal>(link), reports_.reporter());
    }

    std::string refusal() const
    {
        return refusalOf([this] { PseudoTerminal terminal(link_); });
    }

    const tests::TempDir directory_;
    const fs::path link_ = directory_.path() / "uart";
    Reports reports_;
    Chunks chunks_;
};

TEST_F(PtyWireTest, BytesOfTheStationAreDeliveredAsTheyAre)
{
    const auto wire = makeWire();
    wire->attach(chunks_.receiver());
    const StationEnd station(link_);

    ASSERT_TRUE(station.write(everyByte(256)));

    EXPECT_EQ(chunks_.waitForBytes(256), everyByte(256));
}

TEST_F(PtyWireTest, FramesReachTheStationAsTheyAreAndAreNotEchoed)
{
    const auto wire = makeWire();
    wire->attach(chunks_.receiver());
    const StationEnd station(link_);

    EXPECT_TRUE(wire->send(everyByte(256)));

    EXPECT_EQ(station.read(256), everyByte(256));
    // What would have been echoed would come before this.
    ASSERT_TRUE(station.write({0x55}));
    EXPECT_EQ(chunks_.waitForBytes(1), Bytes{0x55});
    EXPECT_FALSE(station.hasInput());
}

TEST_F(PtyWireTest, BytesFromBeforeTheAttachAreKept)
{
    const auto wire = makeWire();
    {
        const StationEnd station(link_);
        ASSERT_TRUE(station.write(everyByte(1000)));
    }

    wire->attach(chunks_.receiver());

    EXPECT_EQ(chunks_.waitForBytes(1000), everyByte(1000));
}

TEST_F(PtyWireTest, AvailableBytesAreOneChunkOfUpTo4096Bytes)
{
    auto terminal = std::make_unique<PseudoTerminal>(link_);
    const int line = terminal->open()->get();
    TtyWire wire(std::move(terminal), reports_.reporter());
    const StationEnd station(link_);
    ASSERT_TRUE(station.write(everyByte(2000)));
    ASSERT_TRUE(station.write(everyByte(1000)));
    const auto deadline = std::chrono::steady_clock::now() + testsupport::kGenerous;
    int arrived = 0;
    while (arrived < 3000 && std::chrono::steady_clock::now() < deadline) {
        ioctl(line, FIONREAD, &arrived);
    }

    wire.attach(chunks_.receiver());

    chunks_.waitForBytes(3000);
    EXPECT_THAT(chunks_.chunks(), ElementsAre(SizeIs(3000)));
}

TEST_F(PtyWireTest, LongInputComesInOrderOnOneThreadInChunksOfAtMost4096Bytes)
{
    const auto wire = makeWire();
    wire->attach(chunks_.receiver());
    const StationEnd station(link_);

    ASSERT_TRUE(station.write(everyByte(50'000)));

    EXPECT_EQ(chunks_.waitForBytes(50'000), everyByte(50'000));
    EXPECT_THAT(chunks_.chunks(), Each(SizeIs(testing::Le(4096u))));
    EXPECT_THAT(chunks_.threads(), Each(chunks_.threads().front()));
    EXPECT_NE(chunks_.threads().front(), std::this_thread::get_id());
}

TEST_F(PtyWireTest, StationThatComesBackFindsTheLine)
{
    const auto wire = makeWire();
    wire->attach(chunks_.receiver());
    for (std::size_t visit = 1; visit <= 3; ++visit) {
        const StationEnd station(link_);

        ASSERT_TRUE(station.write({0x2A}));

        EXPECT_EQ(chunks_.waitForBytes(visit), Bytes(visit, 0x2A));
        EXPECT_TRUE(wire->send(Bytes{0xA2}));
        EXPECT_EQ(station.read(1), Bytes{0xA2});
    }
    EXPECT_THAT(reports_.values(), IsEmpty());
}

TEST_F(PtyWireTest, NothingIsDeliveredAfterTheDetachAndAllOfItAfterTheNextAttach)
{
    Chunks later;
    const auto wire = makeWire();
    const StationEnd station(link_);
    wire->attach(chunks_.receiver());
    ASSERT_TRUE(station.write({1}));
    chunks_.waitForBytes(1);

    wire->detach();
    ASSERT_TRUE(station.write({2}));
    wire->attach(later.receiver());

    EXPECT_EQ(later.waitForBytes(1), Bytes{2});
    EXPECT_EQ(chunks_.waitForBytes(1), Bytes{1});
}

TEST_F(PtyWireTest, ReceiverMayDetach)
{
    const auto record = chunks_.receiver();
    const auto wire = makeWire();
    const StationEnd station(link_);
    wire->attach([&](std::span<std::uint8_t> chunk) {
        wire->detach();
        record(chunk);
    });

    ASSERT_TRUE(station.write({1}));

    EXPECT_EQ(chunks_.waitForBytes(1), Bytes{1});
    wire->detach();  // waits for the thread, which must be ending
    ASSERT_TRUE(station.write({2}));
    EXPECT_EQ(chunks_.waitForBytes(1), Bytes{1});
}

TEST_F(PtyWireTest, DetachWaitsForTheChunkThatIsBeingDelivered)
{
    std::promise<void> entered;
    std::promise<void> release;
    std::atomic<bool> left = false;
    const auto wire = makeWire();
    const StationEnd station(link_);
    wire->attach([&](std::span<std::uint8_t>) {
        entered.set_value();
        release.get_future().wait();
        left = true;
    });
    ASSERT_TRUE(station.write({1}));
    entered.get_future().wait();

    auto detached = std::async(std::launch::async, [&] {
        wire->detach();
        return left.load();
    });
    release.set_value();

    EXPECT_TRUE(detached.get());
}

TEST_F(PtyWireTest, BeatsWhileNothingComesAndWhileBytesCome)
{
    const auto wire = makeWire();
    testsupport::Recorder<bool> beats;
    wire->beat(std::chrono::milliseconds(1), [&] { beats.add(true); });
    wire->attach(chunks_.receiver());

    EXPECT_GE(beats.waitFor(3).size(), 3U);
    const StationEnd station(link_);
    for (std::uint8_t i = 0; i < 3; ++i) {
        station.write({i});
        chunks_.waitForBytes(i + 1U);
        EXPECT_GE(beats.waitFor(beats.values().size() + 1).size(), 4U);
    }
    wire->detach();
}

TEST_F(PtyWireTest, ByteJustBeforeABeatDoesNotDelayTheBeat)
{
    using Clock = std::chrono::steady_clock;
    constexpr std::chrono::milliseconds kInterval(1000);
    const auto wire = makeWire();
    testsupport::Recorder<Clock::time_point> beats;
    testsupport::Recorder<Clock::time_point> deliveries;
    wire->beat(kInterval, [&] { beats.add(Clock::now()); });
    wire->attach([&](std::span<std::uint8_t>) { deliveries.add(Clock::now()); });
    const StationEnd station(link_);
    beats.waitFor(1);
    beats.waitFor(2, kInterval * 3 / 4);

    const std::size_t before = beats.values().size();
    ASSERT_TRUE(station.write({1}));
    const auto delivered = deliveries.waitFor(1);
    const auto after = beats.waitFor(before + 1);
    wire->detach();

    ASSERT_THAT(delivered, SizeIs(1));
    ASSERT_THAT(after, SizeIs(before + 1));
    EXPECT_LT(after.back() - delivered[0], kInterval);
}

TEST_F(PtyWireTest, DoesNotBeatWhileTheReceiverHangs)
{
    const auto wire = makeWire();
    testsupport::Recorder<bool> beats;
    std::promise<std::size_t> beatsBefore;
    std::promise<void> mayReturn;
    wire->beat(std::chrono::milliseconds(1), [&] { beats.add(true); });
    wire->attach([&](std::span<std::uint8_t>) {
        beatsBefore.set_value(beats.values().size());
        mayReturn.get_future().wait();
    });

    const StationEnd station(link_);
    station.write({1});
    const std::size_t before = beatsBefore.get_future().get();
    EXPECT_EQ(beats.waitFor(before + 1, std::chrono::milliseconds(50)).size(), before);
    mayReturn.set_value();

    EXPECT_GT(beats.waitFor(before + 1).size(), before);
    wire->detach();
}

TEST_F(PtyWireTest, StationThatDoesNotReadGetsWholeFramesOnceItDoes)
{
    constexpr std::size_t kSize = 251;
    const auto wire = makeWire();
    std::size_t taken = 0;
    while (wire->send(everyByte(kSize))) {
        ++taken;
    }
    EXPECT_THAT(reports_.waitFor(1), ElementsAre(AllOf(StartsWith("uart " + link_.string()), HasSubstr("not read"))));

    const StationEnd station(link_);
    const Bytes all = station.read(taken * kSize);

    EXPECT_THAT(reports_.waitFor(2), ElementsAre(testing::_, EndsWith("frames dropped: 1")));
    EXPECT_TRUE(wire->send(Bytes{0x55}));
    EXPECT_EQ(station.read(1), Bytes{0x55});
    ASSERT_EQ(all.size(), taken * kSize);
    for (auto at = all.begin(); at != all.end(); at += kSize) {
        EXPECT_EQ(Bytes(at, at + kSize), everyByte(kSize));
    }
}

TEST_F(PtyWireTest, ReceiverStillReceivesWhileTheStationDoesNotRead)
{
    const auto record = chunks_.receiver();
    const auto wire = makeWire();
    wire->attach([&](std::span<std::uint8_t> chunk) {
        for (int count = 0; count < 200; ++count) {
            wire->send(everyByte(255));
        }
        record(chunk);
    });
    const StationEnd station(link_);

    ASSERT_TRUE(station.write({1}));
    EXPECT_EQ(chunks_.waitForBytes(1), (Bytes{1}));
    ASSERT_TRUE(station.write({2}));

    EXPECT_EQ(chunks_.waitForBytes(2), (Bytes{1, 2}));
}

TEST_F(PtyWireTest, StoppedWireSendsNothingAndHasNoLink)
{
    const auto wire = makeWire();
    wire->attach(chunks_.receiver());

    wire->stop();

    EXPECT_FALSE(wire->send(Bytes{1}));
    EXPECT_FALSE(fs::exists(fs::symlink_status(link_)));
}

TEST_F(PtyWireTest, StoppedWireTakesNoReceiver)
{
    const auto wire = makeWire();
    const auto token = std::make_shared<int>();
    wire->stop();

    wire->attach([token](std::span<std::uint8_t>) {});

    EXPECT_EQ(token.use_count(), 1);
}

TEST_F(PtyWireTest, AttachAtTheMomentOfTheStopLeavesNoReceiver)
{
    for (int round = 0; round < 200; ++round) {
        const auto wire = makeWire();
        const auto token = std::make_shared<int>();
        std::promise<void> go;
        auto attached = std::async(std::launch::async, [&] {
            go.get_future().wait();
            wire->attach([token](std::span<std::uint8_t>) {});
        });

        go.set_value();
        wire->stop();

        attached.get();
        ASSERT_EQ(token.use_count(), 1) << round;
    }
}

TEST_F(PtyWireTest, LinkLeadsToATerminalOfTheOwnersOnly)
{
    const auto wire = makeWire();

    EXPECT_TRUE(fs::is_symlink(link_));
    struct stat status = {};
    ASSERT_EQ(stat(link_.c_str(), &status), 0);
    EXPECT_TRUE(S_ISCHR(status.st_mode));
    EXPECT_EQ(status.st_mode & 0777u, 0600u);
}

TEST_F(PtyWireTest, LinkIsRemovedWithTheWire)
{
    makeWire();

    EXPECT_FALSE(fs::exists(fs::symlink_status(link_)));
}

TEST_F(PtyWireTest, RelativeLinkIsKnownByItsAbsolutePath)
{
    const auto wire = makeWire(link_.lexically_relative(fs::current_path()));

    EXPECT_EQ(wire->path(), link_);
}

TEST_F(PtyWireTest, StaleLinkIsReplaced)
{
    fs::create_symlink("/dev/pts/no-such-terminal", link_);

    const auto wire = makeWire();

    EXPECT_TRUE(fs::is_character_file(link_));
    EXPECT_THAT(std::vector(fs::directory_iterator(directory_.path()), {}), SizeIs(1));
}

TEST_F(PtyWireTest, LinkOfARunningServiceIsRefusedAndStays)
{
    const auto wire = makeWire();
    const fs::path target = fs::read_symlink(link_);

    EXPECT_THAT(refusal(), AllOf(HasSubstr(link_.string()), HasSubstr("another service")));

    EXPECT_EQ(fs::read_symlink(link_), target);
}

TEST_F(PtyWireTest, LinkOfAKilledServiceIsReplacedThoughItLeadsToTheTerminalOfAnother)
{
    const auto other = makeWire(directory_.path() / "other");
    fs::create_symlink(fs::read_symlink(other->path()), link_);

    const auto wire = makeWire();

    EXPECT_NE(fs::read_symlink(link_), fs::read_symlink(other->path()));
}

TEST_F(PtyWireTest, LinkOfAKilledServiceIsReplacedThoughItLeadsToTheSameTerminal)
{
    // The next terminal mostly gets the number of the last.
    const fs::path last = fs::read_symlink(makeWire()->path());
    fs::create_symlink(last, link_);

    const auto wire = makeWire();

    wire->attach(chunks_.receiver());
    const StationEnd station(link_);
    ASSERT_TRUE(station.write({0x55}));
    EXPECT_EQ(chunks_.waitForBytes(1), Bytes{0x55});
}

TEST_F(PtyWireTest, LinkToAFileThatOnlyBeginsLikeATerminalsIsReplaced)
{
    // The file looks like a served terminal: somebody holds a lock on all of it.
    const fs::path file = directory_.path() / "x";
    const host::Descriptor locked(open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    flock64 all{};
    all.l_type = F_WRLCK;
    all.l_whence = SEEK_SET;
    ASSERT_EQ(fcntl(locked.get(), F_OFD_SETLK, &all), 0);
    fs::create_symlink("/dev/pts/../.." + file.string(), link_);

    const auto wire = makeWire();

    EXPECT_TRUE(fs::is_character_file(link_));
}

TEST_F(PtyWireTest, LockedDirectoryIsRefusedAfterASecond)
{
    const host::Descriptor locked(open(directory_.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    ASSERT_EQ(flock(locked.get(), LOCK_EX), 0);

    EXPECT_THAT(refusal(), AllOf(HasSubstr(link_.string()), HasSubstr("locks its directory")));
}

TEST_F(PtyWireTest, FileInPlaceOfTheLinkIsRefusedAndStays)
{
    std::ofstream(link_) << "mine";

    EXPECT_THAT(refusal(), AllOf(HasSubstr(link_.string()), HasSubstr("expected a symbolic link")));

    EXPECT_EQ(fs::file_size(link_), 4u);
}

TEST_F(PtyWireTest, DirectoryInPlaceOfTheLinkIsRefused)
{
    fs::create_directory(link_);

    EXPECT_THAT(refusal(), HasSubstr("expected a symbolic link"));
}

TEST_F(PtyWireTest, LinkInADirectoryThatDoesNotExistIsRefused)
{
    const fs::path link = directory_.path() / "none" / "uart";

    EXPECT_THAT(refusalOf([&] { PseudoTerminal terminal(link); }), HasSubstr(link.string()));
}

TEST_F(PtyWireTest, LinkThatHasBecomeAnothersIsLeft)
{
    const auto wire = makeWire();
    fs::remove(link_);
    fs::create_symlink("/dev/null", link_);

    wire->stop();

    EXPECT_EQ(fs::read_symlink(link_), "/dev/null");
}

class DeviceWireTest : public testing::Test
{
protected:
    std::unique_ptr<TtyWire> makeWire(const fs::path& path, unsigned baud = 115200)
    {
        return std::make_unique<TtyWire>(std::make_unique<SerialDevice>(path, baud), reports_.reporter());
    }

    static std::string refusal(const fs::path& path)
    {
        return refusalOf([&] { SerialDevice(path, 115200).open(); });
    }

    const tests::TempDir directory_;
    Reports reports_;
    Chunks chunks_;
};

TEST_F(DeviceWireTest, CarriesBytesBothWays)
{
    tests::PtyPeer peer;
    const auto wire = makeWire(peer.path());
    wire->attach(chunks_.receiver());

    peer.write({1, 2, 3});

    EXPECT_EQ(chunks_.waitForBytes(3), (Bytes{1, 2, 3}));
    EXPECT_TRUE(wire->send(Bytes{4, 5}));
    EXPECT_EQ(peer.read(2), (Bytes{4, 5}));
}

TEST_F(DeviceWireTest, BytesFromBeforeTheOpeningAreKept)
{
    tests::PtyPeer peer;
    peer.write({1, 2, 3});
    peer.waitUntilArrived(3);

    const auto wire = makeWire(peer.path());
    wire->attach(chunks_.receiver());

    EXPECT_EQ(chunks_.waitForBytes(3), (Bytes{1, 2, 3}));
}

TEST_F(DeviceWireTest, IsEightBitsWithoutParityRawAtTheGivenRate)
{
    tests::PtyPeer peer;
    const StationEnd observer(peer.path());
    const auto wire = makeWire(peer.path(), 9600);

    termios settings{};
    ASSERT_EQ(tcgetattr(observer.descriptor(), &settings), 0);

    EXPECT_EQ(cfgetospeed(&settings), static_cast<speed_t>(B9600));
    EXPECT_EQ(cfgetispeed(&settings), static_cast<speed_t>(B9600));
    EXPECT_EQ(settings.c_cflag & (CSIZE | PARENB | CSTOPB | CRTSCTS), static_cast<tcflag_t>(CS8));
    EXPECT_EQ(settings.c_lflag & (ICANON | ECHO | ISIG | IEXTEN), 0u);
    EXPECT_EQ(settings.c_iflag & (IXON | IXOFF | ICRNL | ISTRIP), 0u);
    EXPECT_EQ(settings.c_oflag & OPOST, 0u);
}

TEST_F(DeviceWireTest, IsExclusiveWhileItIsOpen)
{
    tests::PtyPeer peer;
    const auto wire = makeWire(peer.path());

    EXPECT_THAT(refusal(peer.path()), AllOf(HasSubstr(peer.path()), HasSubstr("another process uses it")));

    wire->stop();
    EXPECT_THAT(refusal(peer.path()), IsEmpty());
}

TEST_F(DeviceWireTest, IsMarkedExclusiveAndUnmarkedAtTheEnd)
{
    tests::PtyPeer peer;
    const StationEnd observer(peer.path());
    const auto wire = makeWire(peer.path());
    int exclusive = 0;

    ioctl(observer.descriptor(), TIOCGEXCL, &exclusive);
    EXPECT_NE(exclusive, 0);

    wire->stop();
    ioctl(observer.descriptor(), TIOCGEXCL, &exclusive);
    EXPECT_EQ(exclusive, 0);
}

TEST_F(DeviceWireTest, DeviceThatDoesNotExistIsRefused)
{
    const fs::path path = directory_.path() / "none";

    EXPECT_THAT(refusal(path), AllOf(HasSubstr(path.string()), HasSubstr("No such file")));
}

TEST_F(DeviceWireTest, FileThatIsNotATerminalIsRefused)
{
    const fs::path path = directory_.path() / "file";
    std::ofstream(path) << "mine";

    EXPECT_THAT(refusal(path),
                AllOf(HasSubstr(path.string()), HasSubstr("expected a serial device, got another file")));
    EXPECT_THAT(refusal("/dev/null"), HasSubstr("expected a serial device, got another file"));
}

TEST_F(DeviceWireTest, LostDeviceIsReportedAndServedAgainWhenItIsBack)
{
    const fs::path path = directory_.path() / "line";
    auto peer = std::make_unique<tests::PtyPeer>();
    fs::create_symlink(peer->path(), path);
    const auto wire = makeWire(path);
    wire->attach(chunks_.receiver());

    peer.reset();
    EXPECT_THAT(reports_.waitFor(1), ElementsAre("uart " + path.string() + ": line lost; waiting for it to return"));
    EXPECT_FALSE(wire->send(Bytes{1}));
    tests::PtyPeer back;
    fs::remove(path);
    fs::create_symlink(back.path(), path);
    EXPECT_THAT(reports_.waitFor(2), ElementsAre(testing::_, "uart " + path.string() + ": line is back"));

    back.write({2});
    EXPECT_EQ(chunks_.waitForBytes(1), Bytes{2});
    EXPECT_TRUE(wire->send(Bytes{3}));
    EXPECT_EQ(back.read(1), Bytes{3});
}

TEST_F(DeviceWireTest, BeatsWhileTheDeviceIsLost)
{
    auto peer = std::make_unique<tests::PtyPeer>();
    const auto wire = makeWire(peer->path());
    testsupport::Recorder<bool> beats;
    wire->beat(std::chrono::milliseconds(1), [&] { beats.add(true); });
    wire->attach(chunks_.receiver());
    peer.reset();
    ASSERT_THAT(reports_.waitFor(1), SizeIs(1));

    const std::size_t before = beats.values().size();
    EXPECT_GE(beats.waitFor(before + 2).size(), before + 2);

    wire->detach();
}

TEST_F(DeviceWireTest, DetachesWhileTheDeviceIsLost)
{
    auto peer = std::make_unique<tests::PtyPeer>();
    const auto wire = makeWire(peer->path());
    wire->attach(chunks_.receiver());
    peer.reset();
    ASSERT_THAT(reports_.waitFor(1), SizeIs(1));

    wire->detach();

    EXPECT_THAT(reports_.values(), SizeIs(1));
}

}  // namespace
}  // namespace runtime
