// The system update over a RAUC that installs, fails, does not answer, and goes away.

#include "platform/linux/SystemUpdate.h"

#include "platform/linux/UnitSetup.h"

namespace unit {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr const char* kInstaller = "de.pengutronix.rauc.Installer";
constexpr const char* kInstall = "InstallBundle ('/a.raucb', {})";

class SystemUpdateSetup : public UnitSetup
{
protected:
    SystemUpdateSetup() { board_.add("system-update", "rauc"); }
    ~SystemUpdateSetup() override { loop_.stop(); }

    void startRauc()
    {
        rauc_ = service("de.pengutronix.rauc");
        EXPECT_EQ(await(State::kUp), "");
    }

    /// Waits until RAUC is in `state`, for a reason that begins as told.
    std::string await(State state, const std::string& beginning = "")
    {
        std::string reason = "it did not happen";
        board_.await(
            [&](const auto& all) {
                const bool is = all[0].state == state && all[0].reason.starts_with(beginning);
                reason = is ? all[0].reason : reason;
                return is;
            },
            tests::kGenerous);
        return reason;
    }

    void setProperty(const char* name, const char* value) { rauc_->setProperty("/", kInstaller, name, value); }
    void complete(const char* result) { rauc_->emit("/", kInstaller, "Completed", result); }

    Heard lines_;
    StatusBoard board_{false};
    Loop loop_;
    Bus systemBus_{loop_, G_BUS_TYPE_SYSTEM};
    SystemUpdate update_{{{13, "/a.raucb"}, {14, "/b.raucb"}},
                         systemBus_,
                         board_,
                         [this](const std::string& line) { lines_.add(line); },
                         std::chrono::milliseconds(1)};
    std::unique_ptr<tests::ScriptedService> rauc_;
};

class SystemUpdateTest : public SystemUpdateSetup
{
protected:
    SystemUpdateTest()
    {
        loop_.run();
        startRauc();
    }
};

class AbsentRaucTest : public SystemUpdateSetup
{
};

constexpr const char* kNoService = "The name de.pengutronix.rauc was not provided by any .service files";

TEST_F(AbsentRaucTest, StartIsTriedAgainAndItsFailureIsTold)
{
    loop_.run();
    const std::string absent = "de.pengutronix.rauc is not running; install rauc-service; its start: ";
    EXPECT_EQ(await(State::kAbsent, absent), absent + kNoService);

    bus_.addService("de.pengutronix.rauc", "/bin/false");
    EXPECT_EQ(await(State::kAbsent, absent + "Process"), absent + "Process de.pengutronix.rauc exited with status 1");

    startRauc();
}

TEST_F(AbsentRaucTest, RequestStartsRaucAndTellsThatItDoesNotStart)
{
    loop_.run();
    await(State::kAbsent, "de.pengutronix.rauc is not running");

    update_.Request(13);

    EXPECT_EQ(lines_.waitFor(2)[1], std::string("system-update: /a.raucb is not installed: ") + kNoService);
}

TEST_F(SystemUpdateTest, RequestInstallsTheBundleOfItsCodeAndReportsItsProgress)
{
    update_.Request(13);
    EXPECT_THAT(rauc_->waitForCalls(1), ElementsAre(kInstall));
    setProperty("Operation", "'installing'");
    setProperty("Progress", "(20, 'Checking bundle', 2)");
    setProperty("Progress", "(20, 'Checking bundle', 3)");
    complete("(0,)");

    EXPECT_THAT(lines_.waitFor(3),
                ElementsAre("system-update: /a.raucb is being installed",
                            "system-update: /a.raucb: 20 %, Checking bundle", "system-update: /a.raucb is installed"));
}

TEST_F(SystemUpdateTest, CodeWithoutABundleIsRefused)
{
    update_.Request(7);

    EXPECT_THAT(lines_.waitFor(1), ElementsAre("system-update: expected a code of 'bundles' (13, 14), got 7"));
}

TEST_F(SystemUpdateTest, SecondRequestIsRefusedWhileOneRuns)
{
    update_.Request(13);
    update_.Request(14);
    EXPECT_THAT(lines_.waitFor(2),
                ElementsAre(HasSubstr("/a.raucb is being installed"),
                            "system-update: the request 14 is refused: /a.raucb is being installed"));
    EXPECT_THAT(rauc_->waitForCalls(1), ElementsAre(kInstall));
    complete("(0,)");
    lines_.waitFor(3);

    update_.Request(14);

    EXPECT_THAT(rauc_->waitForCalls(2), ElementsAre(kInstall, "InstallBundle ('/b.raucb', {})"));
}

TEST_F(SystemUpdateTest, ResultOfAnothersRequestIsReportedWithoutItsProgress)
{
    setProperty("Progress", "(20, 'Checking bundle', 2)");
    complete("(0,)");

    EXPECT_THAT(lines_.waitFor(1), ElementsAre("system-update: a bundle is installed"));
}

TEST_F(SystemUpdateTest, FailureIsReportedWithItsReasonInOneLine)
{
    update_.Request(13);
    EXPECT_THAT(rauc_->waitForCalls(1), ElementsAre(kInstall));
    complete("('nonsense',)");
    setProperty("LastError", "'bad\\nbundle'");
    complete("(1,)");

    EXPECT_EQ(lines_.waitFor(2)[1], "system-update: /a.raucb is not installed: bad␊bundle");
}

TEST_F(SystemUpdateTest, FailureWithoutAReasonIsReported)
{
    update_.Request(13);
    EXPECT_THAT(rauc_->waitForCalls(1), ElementsAre(kInstall));
    complete("(2,)");

    EXPECT_EQ(lines_.waitFor(2)[1], "system-update: /a.raucb is not installed: RAUC has failed with 2");
}

TEST_F(SystemUpdateTest, RefusalOfRaucIsReported)
{
    rauc_->answer("InstallBundle", "!org.freedesktop.DBus.Error.AccessDenied");

    update_.Request(13);

    EXPECT_EQ(lines_.waitFor(2)[1], "system-update: /a.raucb is not installed: as the test wants it");
}

TEST_F(SystemUpdateTest, ResultCountsAlsoWithoutAnAnswerToTheRequest)
{
    rauc_->answer("InstallBundle", "");
    const auto begun = std::chrono::steady_clock::now();
    update_.Request(13);
    EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::milliseconds(50));
    EXPECT_THAT(rauc_->waitForCalls(1), ElementsAre(kInstall));
    complete("(0,)");

    EXPECT_EQ(lines_.waitFor(2)[1], "system-update: /a.raucb is installed");
}

TEST_F(SystemUpdateTest, RaucThatGoesWhileItInstallsIsFollowed)
{
    rauc_->answer("InstallBundle", "");
    update_.Request(13);
    EXPECT_THAT(rauc_->waitForCalls(1), ElementsAre(kInstall));
    rauc_.reset();
    const std::string absent = "de.pengutronix.rauc is not running; install rauc-service; its start: ";
    EXPECT_EQ(await(State::kAbsent, absent), absent + kNoService);
    EXPECT_THAT(lines_.waitFor(2)[1], HasSubstr("/a.raucb is not installed: "));

    startRauc();
    update_.Request(13);

    EXPECT_THAT(rauc_->waitForCalls(1), ElementsAre(kInstall));
}

}  // namespace
}  // namespace unit
