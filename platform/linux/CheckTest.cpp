#include "platform/linux/Check.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <regex>

#include "protocol/Errors.h"
#include "tests/support/PtyPeer.h"
#include "tests/support/TempDir.h"

namespace unit {
namespace {

using testing::HasSubstr;

InterfaceStatus status(const std::string& backend, const std::string& reason, State state = State::kAbsent)
{
    return {"interface", backend, state, reason, {}};
}

class CheckTest : public testing::Test
{
protected:
    std::string helpFor(InterfaceStatus status) const
    {
        addHelp(status, {folder_.path() / "none", folder_.path()});
        return status.reason;
    }

    void install(const std::string& unit) const { std::ofstream(folder_.path() / unit) << "[Unit]"; }

    const tests::TempDir folder_;
};

TEST_F(CheckTest, DaemonThatIsNotInstalledIsToBeInstalled)
{
    EXPECT_EQ(helpFor(status("bluez", "org.bluez is not running")), "org.bluez is not running; install bluez");
    EXPECT_EQ(helpFor(status("rauc", "RAUC is not running; install rauc-service")),
              "RAUC is not running; install rauc-service");
    EXPECT_EQ(helpFor(status("gpsd", "127.0.0.1:2947: Connection refused")),
              "127.0.0.1:2947: Connection refused; install gpsd");
    EXPECT_EQ(helpFor({"session-bus", "dbus", State::kAbsent, "no bus: no such file", {}}),
              "no bus: no such file; install engineering-unit");
}

TEST_F(CheckTest, DaemonThatIsInstalledIsToBeStarted)
{
    install("bluetooth.service");
    install("rauc.service");

    EXPECT_EQ(helpFor(status("bluez", "org.bluez is not running")),
              "org.bluez is not running; 'systemctl enable --now bluetooth.service' starts it");
    EXPECT_EQ(helpFor(status("rauc", "RAUC is not running; install rauc-service")),
              "RAUC is not running; 'systemctl enable --now rauc.service' starts it");
}

TEST_F(CheckTest, OtherReasonsStay)
{
    EXPECT_EQ(helpFor(status("bluez", "there is no adapter")), "there is no adapter");
    EXPECT_EQ(helpFor(status("ofono", "no bus: no such file")), "no bus: no such file");
    EXPECT_EQ(helpFor(status("alsa", "the card is not running")), "the card is not running");
    EXPECT_EQ(helpFor(status("bluez", "", State::kUp)), "");
}

TEST_F(CheckTest, UartIsThereMissingOrAnotherFile)
{
    const tests::PtyPeer line;
    EXPECT_EQ(uartStatus(line.path() + ",9600").state, State::kUp);
    EXPECT_EQ(uartStatus("pty:/tmp/uart").state, State::kUp);

    const InterfaceStatus missing = uartStatus("/dev/ttyNone,115200");
    EXPECT_EQ(missing.state, State::kAbsent);
    EXPECT_EQ(missing.reason, "/dev/ttyNone: No such file or directory; correct 'uart' in the unit's file");
    install("file");
    EXPECT_THAT(uartStatus(folder_.path() / "file").reason, HasSubstr("expected a serial device, got another file"));
}

TEST_F(CheckTest, UartWithoutPermissionNamesTheGroup)
{
    const tests::PtyPeer line;
    chmod(line.path().c_str(), 0);

    EXPECT_EXIT(
        {
            // Root may read any file.
            if (getuid() == 0 && setuid(65534) != 0) {
                _exit(1);
            }
            std::fputs(uartStatus(line.path()).reason.c_str(), stderr);
            _exit(0);
        },
        testing::ExitedWithCode(0), line.path() + ": Permission denied; add this user to the group ");
}

// The file that the package installs: one line has to be filled in, and the parameters in comments are right, too.
TEST_F(CheckTest, PackagedFileLacksTheUartOnly)
{
    std::ifstream packaged(SOURCE_FOLDER "/packaging/unit.toml");
    std::string text{std::istreambuf_iterator<char>(packaged), {}};
    const std::string file = folder_.path() / "unit.toml";
    std::ofstream(file) << text;
    std::vector<std::string> mistakes;
    loadUnitConfig(file, mistakes);
    EXPECT_THAT(mistakes, testing::ElementsAre(HasSubstr("'uart': expected")));

    text.replace(text.find("uart = \"\""), 9, "uart = \"/dev/ttyS1\"");
    std::ofstream(file) << text;
    mistakes.clear();
    EXPECT_EQ(loadUnitConfig(file, mistakes).uart, "/dev/ttyS1");
    EXPECT_THAT(mistakes, testing::IsEmpty());

    std::ofstream(file) << std::regex_replace(text, std::regex("\n# ?([a-z-]+ = |\\[)"), "\n$1");
    EXPECT_EQ(loadUnitConfig(file, mistakes).persistence.resetUnit, "factory-reset.target");
    EXPECT_THAT(mistakes, testing::IsEmpty());
}

}  // namespace
}  // namespace unit
