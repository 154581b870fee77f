#include "tests/support/PrivateBus.h"

#include <csignal>
#include <fstream>
#include <stdexcept>

namespace tests {

namespace {

std::filesystem::path writeConfiguration(const std::filesystem::path& directory)
{
    const auto file = directory / "bus.conf";
    std::ofstream(file) << "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
                           "  \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
                           "<busconfig>\n"
                           "  <type>session</type>\n"
                           "  <listen>unix:path="
                        << (directory / "bus").string()
                        << "</listen>\n"
                           "  <servicedir>"
                        << directory.string()
                        << "</servicedir>\n"
                           "  <auth>EXTERNAL</auth>\n"
                           "  <policy context=\"default\">\n"
                           "    <allow send_destination=\"*\" eavesdrop=\"true\"/>\n"
                           "    <allow eavesdrop=\"true\"/>\n"
                           "    <allow own=\"*\"/>\n"
                           "  </policy>\n"
                           "</busconfig>\n";
    return file;
}

}  // namespace

PrivateBus::PrivateBus()
{
    startAgain();
}

void PrivateBus::startAgain()
{
    const auto file = writeConfiguration(directory_.path());
    daemon_ = std::make_unique<ChildProcess>(std::vector<std::string>{
        "dbus-daemon", "--nofork", "--nopidfile", "--print-address=1", "--config-file=" + file.string()});
    const auto address = daemon_->waitForLine(ChildProcess::Stream::kOut, "unix:");
    if (!address) {
        throw std::runtime_error("no bus daemon: " + daemon_->output(ChildProcess::Stream::kErr));
    }
    address_ = *address;
}

PrivateBus::~PrivateBus() = default;

void PrivateBus::addService(const std::string& name, const std::string& command)
{
    std::ofstream(directory_.path() / (name + ".service"))
        << "[D-BUS Service]\nName=" << name << "\nExec=" << command << "\n";
}

void PrivateBus::kill()
{
    daemon_.reset();
}

void PrivateBus::stop()
{
    daemon_->signal(SIGSTOP);
}

void PrivateBus::cont()
{
    daemon_->signal(SIGCONT);
}

}  // namespace tests
