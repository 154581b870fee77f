// The file manager and persistence over units of systemd.

#include <KYRFileMgr.h>
#include <KYRU6Persist.h>

#include "platform/linux/UnitSetup.h"

namespace unit {
namespace {

using testing::ElementsAre;

constexpr const char* kUnitInterface = "org.freedesktop.systemd1.Unit";
constexpr const char* kReset = "/org/freedesktop/systemd1/unit/reset_2etarget";
constexpr const char* kAutoReset = "/org/freedesktop/systemd1/unit/auto_2dreset_2etarget";

class Resets : public IKYRU6PersistListener, public Heard
{
public:
    void OnU6PersistFactoryResetMode() override { add("reset"); }
    void OnU6PersistAutoFactoryResetMode() override { add("automatic reset"); }
};

class FactoryResetTest : public UnitSetup
{
protected:
    void startWith(const char* state)
    {
        systemd_ = service("org.freedesktop.systemd1");
        systemd_->setProperty(kReset, kUnitInterface, "ActiveState", state);
        systemd_->setSilently("LoadState", "'loaded'");
        start();
        KYR_GetU6PersistService()->AddListener(&resets_);
        EXPECT_EQ(reasonOnce("persistence", State::kUp), "");
        EXPECT_EQ(reasonOnce("file-manager", State::kUp), "");
    }
    ~FactoryResetTest() override
    {
        if (unit_) {
            KYR_GetU6PersistService()->RemoveListener(&resets_);
        }
    }

    /// Both units have every property, and each hears of the changes of its own.
    void setState(const char* unit, const char* state)
    {
        systemd_->setProperty(unit, kUnitInterface, "ActiveState", state);
    }

    Resets resets_;
    std::unique_ptr<tests::ScriptedService> systemd_;
};

TEST_F(FactoryResetTest, StartOfAUnitIsAReset)
{
    startWith("'inactive'");

    setState(kReset, "'activating'");
    setState(kReset, "'active'");
    setState(kReset, "'inactive'");
    setState(kAutoReset, "'inactive'");
    setState(kAutoReset, "'active'");
    setState(kReset, "7");
    setState(kReset, "'active'");

    EXPECT_THAT(resets_.waitFor(3), ElementsAre("reset", "automatic reset", "reset"));
}

TEST_F(FactoryResetTest, UnitThatRunsAlreadyIsNotAReset)
{
    startWith("'active'");
    setState(kReset, "'inactive'");
    setState(kAutoReset, "'inactive'");
    setState(kAutoReset, "'activating'");

    EXPECT_THAT(resets_.waitFor(1), ElementsAre("automatic reset"));
}

TEST_F(FactoryResetTest, UserDataAreClearedByAUnit)
{
    startWith("'inactive'");

    KYR_GetFileMgr()->ClearUserData();

    EXPECT_THAT(systemd_->waitForCalls(2), ElementsAre("Subscribe ()", "StartUnit ('clear.service', 'replace')"));
}

TEST_F(FactoryResetTest, UnitThatSystemdDoesNotHaveIsTold)
{
    startWith("'inactive'");

    // systemd tells that units have changed, but not which.
    const auto emit = [this](const char* signal, const char* arguments) {
        systemd_->emit("/org/freedesktop/systemd1", "org.freedesktop.systemd1.Manager", signal, arguments);
    };
    systemd_->setSilently("LoadState", "'not-found'");
    emit("UnitFilesChanged", "()");

    const std::string missing = "systemd has no unit clear.service; install it, or correct its name";
    EXPECT_EQ(reasonOnce("file-manager", State::kAbsent), missing);
    const std::string both =
        "auto-reset-unit: systemd has no unit auto-reset.target; install it, or correct its name; "
        "reset-unit: systemd has no unit reset.target; install it, or correct its name";
    EXPECT_EQ(once([this] { return reasonOnce("persistence", State::kAbsent); }, both), both);
    systemd_->setSilently("LoadState", "'loaded'");
    emit("Reloading", "(true,)");
    emit("Reloading", "(false,)");
    EXPECT_EQ(reasonOnce("persistence", State::kUp), "");
    EXPECT_EQ(reasonOnce("file-manager", State::kUp), "");
}

TEST_F(FactoryResetTest, WithoutSystemdTheInterfacesAreThereAndSayWhatIsMissing)
{
    start();

    EXPECT_TRUE(
        once([this] { return reasonOnce("file-manager", State::kAbsent) == "org.freedesktop.systemd1 is not running"; },
             true));
    EXPECT_TRUE(once(
        [this] {
            return reasonOnce("persistence", State::kAbsent) ==
                   "auto-reset-unit: org.freedesktop.systemd1 is not running; "
                   "reset-unit: org.freedesktop.systemd1 is not running";
        },
        true));
    ASSERT_NE(KYR_GetFileMgr(), nullptr);
    KYR_GetFileMgr()->ClearUserData();  // reported, and nothing else
}

}  // namespace
}  // namespace unit
