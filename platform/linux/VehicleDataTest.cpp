// Vehicle data over a CAN bus, GPIO lines and files that come, go, and say wrong things.

#include "platform/linux/VehicleData.h"

#include <linux/can.h>
#include <linux/gpio.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/linux/UnitSetup.h"

namespace unit {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using Bytes = std::vector<std::uint8_t>;

constexpr const char* kUnitInterface = "org.freedesktop.systemd1.Unit";
constexpr const char* kReset = "/org/freedesktop/systemd1/unit/reset_2eservice";

struct SignalCase {
    const char* name;
    unsigned start;
    unsigned length;
    bool isBigEndian;
    Bytes data;
    std::optional<double> value;
};

void PrintTo(const SignalCase& signal, std::ostream* out)
{
    *out << signal.name;
}

class CanSignalTest : public testing::TestWithParam<SignalCase>
{
};

TEST_P(CanSignalTest, IsTakenOutOfTheFrame)
{
    UnitConfig::CanSignal signal;
    signal.start = GetParam().start;
    signal.length = GetParam().length;
    signal.isBigEndian = GetParam().isBigEndian;

    EXPECT_EQ(signalIn(GetParam().data, signal), GetParam().value);
}

INSTANTIATE_TEST_SUITE_P(
    Signals, CanSignalTest,
    testing::Values(SignalCase{"LittleEndian", 0, 16, false, {0x34, 0x12}, 0x1234},
                    SignalCase{"LittleEndianWithinBytes", 4, 8, false, {0xA5, 0x3C}, 0xCA},
                    SignalCase{"BigEndian", 7, 16, true, {0x12, 0x34}, 0x1234},
                    SignalCase{"BigEndianWithinBytes", 3, 8, true, {0xA5, 0x3C}, 0x53},
                    SignalCase{"BigEndianInTheSecondByte", 15, 8, true, {0x12, 0x34}, 0x34},
                    SignalCase{"OneBit", 9, 1, false, {0x00, 0x02}, 1},
                    SignalCase{"SixtyFourBits", 0, 64, false, {0, 0, 0, 0, 0, 0, 0, 0x80}, 9223372036854775808.0},
                    SignalCase{"LastByteMissing", 4, 8, false, {0xA5}, std::nullopt},
                    SignalCase{"NoData", 0, 1, false, {}, std::nullopt}),
    [](const auto& row) { return row.param.name; });

TEST(CanSignal, IsScaledAndShifted)
{
    UnitConfig::CanSignal signal;
    signal.length = 8;
    signal.scale = 0.5;
    signal.offset = -3;

    EXPECT_EQ(signalIn(Bytes{200}, signal), 97.0);
}

TEST(CanSignal, InterfaceThatIsNotThereIsTold)
{
    UnitConfig::CanSignal signal;
    signal.interface = "none9";
    std::string reason;

    EXPECT_FALSE(openCan(signal, reason).valid());
    // By whether the kernel has CAN.
    EXPECT_THAT(reason, testing::AnyOf("the kernel has no CAN; load its module can_raw",
                                       "there is no interface none9; load its driver, or correct 'interface'"));
}

/// A CAN interface that the test plugs in.
class FakeCan
{
public:
    host::Descriptor open(std::string& reason)
    {
        const std::lock_guard lock(mutex_);
        if (!isThere_) {
            reason = "there is no interface can0";
            return host::Descriptor();
        }
        int ends[2] = {-1, -1};
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends), 0);
        end_.reset(ends[1]);
        changed_.notify_all();
        return host::Descriptor(ends[0]);
    }

    void plug()
    {
        const std::lock_guard lock(mutex_);
        isThere_ = true;
    }
    void unplug()
    {
        const std::lock_guard lock(mutex_);
        isThere_ = false;
        end_.reset();
    }

    /// Sends a frame once the interface is open.
    void send(const Bytes& data) { sendBytes(frameOf(data), CAN_MTU); }
    void sendBytes(const canfd_frame& frame, std::size_t size)
    {
        std::unique_lock lock(mutex_);
        ASSERT_TRUE(changed_.wait_for(lock, tests::kGenerous, [this] { return end_.valid(); }));
        EXPECT_EQ(write(end_.get(), &frame, size), static_cast<ssize_t>(size));
    }

    static canfd_frame frameOf(const Bytes& data)
    {
        canfd_frame frame{};
        frame.can_id = 0x3E9;
        frame.len = static_cast<std::uint8_t>(data.size());
        std::copy(data.begin(), data.end(), frame.data);
        return frame;
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool isThere_ = true;   // guarded by mutex_
    host::Descriptor end_;  // guarded by mutex_
};

/// The kernel's side of a GPIO line.
class FakeLine
{
public:
    int ioctl(unsigned long request, void* argument)
    {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return !isHeld_; });
        if (error_ != 0) {
            errno = error_;
            return -1;
        }
        if (request == GPIO_V2_GET_LINE_IOCTL) {
            auto* const line = static_cast<gpio_v2_line_request*>(argument);
            asked_ = *line;
            line->fd = eventfd(0, EFD_CLOEXEC);
            return 0;
        }
        if (request == GPIO_V2_GET_LINEINFO_IOCTL) {
            auto* const info = static_cast<gpio_v2_line_info*>(argument);
            EXPECT_EQ(info->offset, 7U);
            info->flags = user_.empty() ? 0 : GPIO_V2_LINE_FLAG_USED;
            user_.copy(info->consumer, sizeof info->consumer - 1);
            return 0;
        }
        EXPECT_EQ(request, GPIO_V2_LINE_GET_VALUES_IOCTL);
        auto* const values = static_cast<gpio_v2_line_values*>(argument);
        values->bits = isActive_ ? values->mask : 0;
        return 0;
    }

    void set(bool isActive, int error = 0)
    {
        const std::lock_guard lock(mutex_);
        isActive_ = isActive;
        error_ = error;
    }
    /// Empty: the line is free.
    void setUser(const std::string& user)
    {
        const std::lock_guard lock(mutex_);
        user_ = user;
    }
    /// While it is held, the driver does not answer.
    void hold(bool isHeld)
    {
        const std::lock_guard lock(mutex_);
        isHeld_ = isHeld;
        changed_.notify_all();
    }
    gpio_v2_line_request asked()
    {
        const std::lock_guard lock(mutex_);
        return asked_;
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool isActive_ = false;         // guarded by mutex_
    bool isHeld_ = false;           // guarded by mutex_
    int error_ = 0;                 // guarded by mutex_
    gpio_v2_line_request asked_{};  // guarded by mutex_
    std::string user_;              // guarded by mutex_
};

class VehicleListener : public IKYRSystemMiscListener, public Heard
{
public:
    void OnCarSpeedChange(unsigned int nSpeed) override { add("speed " + std::to_string(nSpeed)); }
    void OnRadioAntStateChange(SystemMisc::AntState eState) override { add("radio " + std::to_string(eState)); }
    void OnGpsAntStateChange(SystemMisc::AntState eState) override { add("gps " + std::to_string(eState)); }
    void OnLCarInfoChange(_LCarInfo info) override { add("info " + std::to_string(info.ucValue)); }
    void OnFactoryResetMode() override { add("reset"); }
};

class VehicleDataTest : public UnitSetup
{
protected:
    VehicleDataTest() { board_.add("system-misc", "linux"); }
    ~VehicleDataTest() override
    {
        line_.hold(false);
        loop_.stop();
        data_.reset();
    }

    void begin(const UnitConfig::VehicleData& config, bool takesLines = true)
    {
        VehicleData::Kernel kernel;
        kernel.openCan = [this](const UnitConfig::CanSignal&, std::string& reason) { return can_.open(reason); };
        kernel.ioctl = [this](int, unsigned long request, void* argument) { return line_.ioctl(request, argument); };
        kernel.period = std::chrono::milliseconds(1);
        kernel.takesLines = takesLines;
        kernel.silence = silence_;
        data_.emplace(config, systemBus_, systemd_, board_, kernel);
        data_->AddListener(&heard_);
        loop_.run();
    }

    static UnitConfig::VehicleData speed()
    {
        UnitConfig::VehicleData config;
        config.speed = UnitConfig::CanSignal();
        config.speed->interface = "can0";
        config.speed->frame = 0x3E9;
        config.speed->start = 7;
        config.speed->length = 16;
        config.speed->isBigEndian = true;
        config.speed->scale = 0.5;
        config.speed->offset = -1;
        return config;
    }

    static UnitConfig::VehicleData line()
    {
        UnitConfig::VehicleData config;
        UnitConfig::Input& input = config.inputs["radio-antenna"];
        input.gpio = "/dev/null";
        input.line = 7;
        input.isActiveLow = true;
        input.active = 4;
        input.inactive = 1;
        return config;
    }

    UnitConfig::VehicleData file()
    {
        UnitConfig::VehicleData config;
        config.inputs["gps-antenna"].file = path();
        config.inputs["gps-antenna"].values = {{"ok", 4}, {"open", 2}};
        return config;
    }
    std::string path() const { return directory_.path() / "antenna"; }
    void write(const std::string& text)
    {
        // At once, as a driver does.
        std::ofstream(path() + ".new") << text;
        std::filesystem::rename(path() + ".new", path());
    }

    /// Waits until system-misc is in `state`, for a reason that begins as told.
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

    std::chrono::milliseconds silence_ = std::chrono::hours(1);
    FakeCan can_;
    FakeLine line_;
    VehicleListener heard_;
    StatusBoard board_{false};
    Loop loop_;
    Bus systemBus_{loop_, G_BUS_TYPE_SYSTEM};
    Systemd systemd_{systemBus_, board_};
    std::optional<VehicleData> data_;
};

TEST_F(VehicleDataTest, SpeedIsToldWhenItChanges)
{
    begin(speed());
    EXPECT_EQ(await(State::kAbsent, "speed: no frame"),
              "speed: no frame 0x3e9 on can0 yet; 'candump can0' of the package can-utils shows which come");
    can_.send({0x00, 0xC8});
    EXPECT_EQ(await(State::kUp), "");
    can_.send({0x00, 0xC8, 0xFF});
    can_.send({0x01, 0x00});
    can_.send({0x00, 0x00});  // -1 is below standstill

    EXPECT_THAT(heard_.waitFor(3), ElementsAre("speed 99", "speed 127", "speed 0"));
}

TEST_F(VehicleDataTest, FrameOfCanFdCountsAndOtherSizesDoNot)
{
    begin(speed());
    can_.sendBytes(FakeCan::frameOf({0x00, 0x04}), 5);
    canfd_frame tooLong = FakeCan::frameOf({0x00, 0x06});
    tooLong.len = 65;
    can_.sendBytes(tooLong, CANFD_MTU);
    can_.sendBytes(FakeCan::frameOf({0x00, 0x08}), CANFD_MTU);

    EXPECT_THAT(heard_.waitFor(1), ElementsAre("speed 3"));
}

TEST_F(VehicleDataTest, FrameThatIsTooShortIsTold)
{
    begin(speed());
    can_.send({0x00, 0x08});
    can_.send({0x01});
    EXPECT_EQ(await(State::kAbsent, "speed: frame"),
              "speed: frame 0x3e9 of can0: expected at least 2 bytes, got 1; correct 'start' and 'length'");

    can_.send({0x00, 0x08});
    EXPECT_EQ(await(State::kUp), "");
    EXPECT_THAT(heard_.waitFor(3), ElementsAre("speed 3", "speed 0", "speed 3"));
}

TEST_F(VehicleDataTest, FramesThatAreGoodAndTooShortInTurnAreToldOnce)
{
    begin(speed());
    can_.send({0x00, 0x08});
    EXPECT_EQ(await(State::kUp), "");
    std::atomic<int> changes = 0;
    board_.watch([&](const auto&) { ++changes; });
    for (int i = 0; i < 100; ++i) {
        can_.send(i % 2 == 0 ? Bytes{0x01} : Bytes{});
        can_.send({0x00, 0x0A});
    }

    EXPECT_THAT(heard_.waitFor(3), ElementsAre("speed 3", "speed 0", "speed 4"));
    EXPECT_EQ(await(State::kUp), "");
    board_.watch({});
    EXPECT_EQ(changes, 2);
}

TEST_F(VehicleDataTest, SpeedIsNotThereOnASilentBus)
{
    silence_ = std::chrono::milliseconds(1);
    begin(speed());
    can_.send({0x00, 0x08});
    EXPECT_EQ(await(State::kAbsent, "speed: no frame 0x3e9 on can0 any more"),
              "speed: no frame 0x3e9 on can0 any more; 'candump can0' of the package can-utils shows which come");
    can_.send({0x00, 0x0A});

    EXPECT_THAT(heard_.waitFor(4), ElementsAre("speed 3", "speed 0", "speed 4", "speed 0"));
}

TEST_F(VehicleDataTest, CanInterfaceThatGoesAndComesBackIsFollowed)
{
    begin(speed());
    can_.send({0x00, 0x08});
    EXPECT_THAT(heard_.waitFor(1), ElementsAre("speed 3"));
    can_.unplug();
    EXPECT_EQ(await(State::kAbsent, "speed: there"), "speed: there is no interface can0");
    EXPECT_THAT(heard_.waitFor(2), ElementsAre("speed 3", "speed 0"));

    can_.plug();
    can_.send({0x00, 0x0A});

    EXPECT_THAT(heard_.waitFor(3), ElementsAre("speed 3", "speed 0", "speed 4"));
    EXPECT_EQ(await(State::kUp), "");
}

TEST_F(VehicleDataTest, LineOfGpioIsAnAntenna)
{
    line_.set(true);
    begin(line());
    EXPECT_THAT(heard_.waitFor(1), ElementsAre("radio 4"));
    EXPECT_EQ(data_->GetRadioAntState(), SystemMisc::ANT_STATE_OK);
    EXPECT_EQ(data_->GetGpsAntState(), 0);
    EXPECT_EQ(line_.asked().num_lines, 1U);
    EXPECT_EQ(line_.asked().offsets[0], 7U);
    EXPECT_EQ(line_.asked().config.flags, GPIO_V2_LINE_FLAG_INPUT | GPIO_V2_LINE_FLAG_ACTIVE_LOW);

    line_.set(false);

    EXPECT_THAT(heard_.waitFor(2), ElementsAre("radio 4", "radio 1"));
}

TEST_F(VehicleDataTest, LineThatIsInUseIsAskedForAgain)
{
    line_.set(true, EBUSY);
    begin(line());
    EXPECT_EQ(await(State::kAbsent, "radio-antenna: line"),
              "radio-antenna: line 7 of /dev/null: Device or resource busy; gpioinfo of the package gpiod shows who "
              "uses it");

    line_.set(true);
    EXPECT_THAT(heard_.waitFor(1), ElementsAre("radio 4"));
    line_.set(true, ENODEV);
    EXPECT_THAT(heard_.waitFor(2), ElementsAre("radio 4", "radio 0"));
    line_.set(true);

    EXPECT_THAT(heard_.waitFor(3), ElementsAre("radio 4", "radio 0", "radio 4"));
}

TEST_F(VehicleDataTest, LineThatIsFreeOrTheServicesIsThereForACheckWhichDoesNotTakeIt)
{
    const std::string busy =
        "radio-antenna: line 7 of /dev/null: Device or resource busy; gpioinfo of the package gpiod shows who uses it";
    line_.setUser("backlight");
    begin(line(), false);
    EXPECT_EQ(await(State::kAbsent, "radio-antenna: line"), busy);
    line_.setUser("engineering-unit");
    EXPECT_EQ(await(State::kUp), "");

    line_.setUser("backlight");
    EXPECT_EQ(await(State::kAbsent, "radio-antenna: line"), busy);
    line_.setUser("");
    EXPECT_EQ(await(State::kUp), "");

    line_.set(true, EINVAL);
    EXPECT_THAT(await(State::kAbsent, "radio-antenna: line"), HasSubstr("Invalid argument"));
    EXPECT_EQ(line_.asked().num_lines, 0U);
}

TEST_F(VehicleDataTest, DriverThatHangsHoldsUpNeitherTheStationNorTheLoop)
{
    line_.hold(true);
    auto config = line();
    config.speed = speed().speed;
    begin(config);

    const auto begun = std::chrono::steady_clock::now();
    EXPECT_EQ(data_->GetRadioAntState(), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::milliseconds(50));
    can_.send({0x00, 0x08});
    EXPECT_THAT(heard_.waitFor(1), ElementsAre("speed 3"));
}

TEST_F(VehicleDataTest, ChipThatIsNotThereIsTold)
{
    auto config = line();
    config.inputs["radio-antenna"].gpio = "/nowhere/gpiochip0";
    begin(config);

    EXPECT_EQ(await(State::kAbsent, "radio-antenna: line"),
              "radio-antenna: line 7 of /nowhere/gpiochip0: No such file or directory; correct 'gpio', or give the "
              "service's user access to it");
}

TEST_F(VehicleDataTest, TextOfAFileIsAnAntenna)
{
    begin(file());
    EXPECT_THAT(await(State::kAbsent, "gps-antenna: /"), HasSubstr("antenna: No such file or directory"));

    write("ok\n");
    EXPECT_THAT(heard_.waitFor(1), ElementsAre("gps 4"));
    write(" open ");
    EXPECT_THAT(heard_.waitFor(2), ElementsAre("gps 4", "gps 2"));
    EXPECT_EQ(await(State::kUp), "");
    write("burnt\x1b");

    EXPECT_THAT(heard_.waitFor(3), ElementsAre("gps 4", "gps 2", "gps 0"));
    EXPECT_THAT(await(State::kAbsent, "gps-antenna: /"),
                HasSubstr("antenna: expected a text of 'values' ('ok', 'open'), got 'burnt␛'"));
}

TEST_F(VehicleDataTest, WrongTextsOfAFileAreToldOnce)
{
    auto config = file();
    config.inputs["car-info"].value = 1;  // is told at every look
    write("burnt 1");
    begin(config);
    const std::string reason = await(State::kAbsent, "gps-antenna: /");
    EXPECT_THAT(reason, HasSubstr("got 'burnt 1'"));

    write("burnt 2");
    heard_.waitFor(heard_.waitFor(0).size() + 3);

    EXPECT_EQ(board_.all()[0].reason, reason);
}

TEST_F(VehicleDataTest, PipeWithoutAWriterIsAFileWithoutText)
{
    ASSERT_EQ(mkfifo(path().c_str(), 0600), 0);
    begin(file());

    EXPECT_THAT(await(State::kAbsent, "gps-antenna: /"), HasSubstr("got ''"));
}

TEST_F(VehicleDataTest, FixedValuesAreAnsweredAndTheInformationIsToldAgainAndAgain)
{
    UnitConfig::VehicleData config;
    config.inputs["dab-antenna"].value = 4;
    config.inputs["state"].value = 1;
    config.inputs["car-info"].value = 200;
    begin(config);

    EXPECT_THAT(heard_.waitFor(2), testing::Each("info 200"));
    EXPECT_EQ(data_->GetDabAntState(), SystemMisc::ANT_STATE_OK);
    EXPECT_EQ(data_->GetState(), 1);
    EXPECT_EQ(await(State::kUp), "");
}

TEST_F(VehicleDataTest, WithoutParametersItIsThere)
{
    begin({});

    EXPECT_EQ(await(State::kUp), "");
    data_->RestoreFactorySettings();  // reported, and nothing else
    EXPECT_EQ(data_->GetState(), 0);
}

TEST_F(VehicleDataTest, FactorySettingsAreRestoredByAUnitWhoseStartIsTold)
{
    const auto systemd = service("org.freedesktop.systemd1");
    systemd->setProperty(kReset, kUnitInterface, "ActiveState", "'inactive'");
    systemd->setSilently("LoadState", "'loaded'");
    UnitConfig::VehicleData config;
    config.resetUnit = "reset.service";
    begin(config);
    EXPECT_EQ(await(State::kUp), "");

    data_->RestoreFactorySettings();
    EXPECT_THAT(systemd->waitForCalls(2), ElementsAre("Subscribe ()", "StartUnit ('reset.service', 'replace')"));
    systemd->setProperty(kReset, kUnitInterface, "ActiveState", "'activating'");

    EXPECT_THAT(heard_.waitFor(1), ElementsAre("reset"));
}

}  // namespace
}  // namespace unit
