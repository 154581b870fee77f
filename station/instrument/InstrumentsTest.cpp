#include "station/instrument/Instruments.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <thread>
#include <utility>

#include "protocol/Errors.h"
#include "station/instrument/SimulatedInstrument.h"

namespace station::instrument {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

constexpr auto kAmple = 20s;

/// Over TCP, or over a serial line.
class InstrumentsTest : public testing::TestWithParam<bool>
{
protected:
    Instruments& start()
    {
        simulated.start();
        Equipment equipment;
        equipment.instruments["psu"] = parseAddress(simulated.address());
        return instruments.emplace(std::move(equipment));
    }

    std::string refusal(const std::string& command, Duration timeout = kAmple)
    {
        try {
            return "no refusal, but " + instruments->ask("psu", command, timeout, interrupt).text;
        } catch (const protocol::LineError& error) {
            status = error.status();
            return error.what();
        }
    }

    std::string ask(const std::string& command) { return instruments->ask("psu", command, kAmple, interrupt).text; }

    /// What the simulated instrument has not said yet; on its thread.
    std::function<void()> late;
    Interrupt interrupt;
    SimulatedInstrument simulated{GetParam()};
    std::optional<Instruments> instruments;
    int status = 0;
};

TEST_P(InstrumentsTest, CommandAndQueryAreSentEachFollowedByAQuestionForErrors)
{
    simulated.on["MEAS:CURR?"] = [](const auto& write) { write("+7.500E-01\r\n"); };
    start();

    const auto set = instruments->ask("psu", "VOLT 13.5", kAmple, interrupt);
    const auto measured = instruments->ask("psu", "MEAS:CURR?", kAmple, interrupt);

    EXPECT_EQ(set.text, "");
    EXPECT_EQ(set.identity, "ACME,PSU-30,42,1.0");
    EXPECT_EQ(measured.text, "+7.500E-01");
    EXPECT_THAT(simulated.lines(),
                ElementsAre("*IDN?", "SYST:ERR?", "VOLT 13.5", "SYST:ERR?", "MEAS:CURR?", "SYST:ERR?"));
}

TEST_P(InstrumentsTest, ErrorsThatTheInstrumentReportsAreTheReason)
{
    // The instrument's thread ends after the test's body.
    const auto queue = std::make_shared<std::vector<std::string>>();
    simulated.on["VOLT 99"] = [queue](const auto&) { *queue = {"-222,\"Data out of range\"", "+5,\"Hot\""}; };
    simulated.on["SYST:ERR?"] = [queue](const auto& write) {
        std::string error = "+0,\"No error\"";
        if (!queue->empty()) {
            error = queue->front();
            queue->erase(queue->begin());
        }
        write(error + "\n");
    };
    start();

    EXPECT_EQ(refusal("VOLT 99"), "psu: VOLT 99: the instrument reports -222,\"Data out of range\"; +5,\"Hot\"");
    EXPECT_EQ(status, protocol::kError);
    EXPECT_EQ(ask("VOLT 9"), "");
}

TEST_P(InstrumentsTest, QueryThatItDoesNotKnowIsExplainedByItsError)
{
    const auto error = std::make_shared<std::string>("0,\"No error\"");
    simulated.on["MEAS:FOO?"] = [error](const auto&) { *error = "-113,\"Undefined header\""; };
    simulated.on["SYST:ERR?"] = [error](const auto& write) { write(std::exchange(*error, "0,\"No error\"") + "\n"); };
    start();

    EXPECT_EQ(refusal("MEAS:FOO?", 200ms), "psu: MEAS:FOO?: the instrument reports -113,\"Undefined header\"");
}

TEST_P(InstrumentsTest, SilenceEndsInTime)
{
    simulated.on["MEAS:CURR?"] = [](const auto&) {};
    simulated.on["SYST:ERR?"] = [first = true](const auto& write) mutable {
        if (std::exchange(first, false)) {
            write("0,\"No error\"\n");
        }
    };
    start();

    EXPECT_EQ(refusal("MEAS:CURR?", 100ms), "psu: MEAS:CURR?: expected an answer, got none in time");
    EXPECT_EQ(status, protocol::kNoAnswer);
}

TEST_P(InstrumentsTest, LateAnswerIsNotTakenForTheNext)
{
    simulated.on["MEAS:VOLT?"] = [this](const auto& write) {
        // Nothing answers until the station has given up and asked for errors.
        late = [write] { write("13.5\n"); };
    };
    simulated.on["SYST:ERR?"] = [this](const auto& write) {
        if (late) {
            std::exchange(late, nullptr)();
            return;
        }
        write("0,\"No error\"\n");
    };
    simulated.on["MEAS:CURR?"] = [](const auto& write) { write("0.5\n"); };
    start();

    EXPECT_EQ(refusal("MEAS:VOLT?", 100ms), "psu: MEAS:VOLT?: expected an answer, got none in time");
    EXPECT_EQ(ask("MEAS:CURR?"), "0.5");
}

TEST_P(InstrumentsTest, SecondAnswerIsRefusedAndTheNextCommandGetsItsOwn)
{
    simulated.on["MEAS:CURR?"] = [first = true](const auto& write) mutable {
        write(std::exchange(first, false) ? "0.5\n0.6\n" : "0.7\n");
    };
    start();

    EXPECT_EQ(refusal("MEAS:CURR?"),
              "psu: MEAS:CURR?: SYST:ERR?: expected an answer such as 0,\"No error\", got '0.6'");
    EXPECT_EQ(ask("MEAS:CURR?"), "0.7");
}

TEST_P(InstrumentsTest, NulIsRefused)
{
    simulated.on["MEAS:CURR?"] = [](const auto& write) { write(std::string("0.5\0\n", 5)); };
    start();

    EXPECT_THAT(refusal("MEAS:CURR?"), StartsWith("psu: MEAS:CURR?: expected one line of text, got '0.5"));
    EXPECT_EQ(status, protocol::kError);
}

TEST_P(InstrumentsTest, AnswerWithoutEndIsRefused)
{
    simulated.on["MEAS:CURR?"] = [](const auto& write) { write(std::string(100 << 10, '7')); };
    start();

    EXPECT_THAT(refusal("MEAS:CURR?"), EndsWith("expected a line of at most 65536 bytes, got more"));
}

TEST_P(InstrumentsTest, InterruptEndsTheWait)
{
    simulated.on["MEAS:CURR?"] = [this](const auto&) { interrupt.request(); };
    start();

    EXPECT_THROW(ask("MEAS:CURR?"), Interrupted);
}

TEST_P(InstrumentsTest, SeveralUnitsTakeTurns)
{
    int sent = 0;
    simulated.on["MEAS:CURR?"] = [&](const auto& write) { write(std::to_string(++sent) + "\n"); };
    start();
    std::vector<std::string> answers(8);
    {
        std::vector<std::jthread> units;
        for (std::string& answer : answers) {
            units.emplace_back([&] { answer = ask("MEAS:CURR?"); });
        }
    }

    EXPECT_THAT(answers, testing::UnorderedElementsAre("1", "2", "3", "4", "5", "6", "7", "8"));
}

INSTANTIATE_TEST_SUITE_P(Over, InstrumentsTest, testing::Values(false, true),
                         [](const auto& row) { return row.param ? "Serial" : "Tcp"; });

TEST(Instruments, OneThatIsNotThereIsNamedWithItsAddress)
{
    Equipment equipment;
    equipment.instruments["psu"] = parseAddress("tcp:127.0.0.1:1");
    equipment.instruments["dmm"] = parseAddress("serial:/dev/none");
    Instruments instruments(equipment);
    const Interrupt interrupt;

    EXPECT_THAT([&] { instruments.ask("psu", "VOLT 1", 1s, interrupt); },
                testing::ThrowsMessage<protocol::LineError>(HasSubstr("psu: VOLT 1: tcp:127.0.0.1:1: ")));
    EXPECT_THAT(
        [&] { instruments.ask("dmm", "VOLT?", 1s, interrupt); },
        testing::ThrowsMessage<protocol::LineError>("dmm: VOLT?: /dev/none: cannot open: No such file or directory"));
}

TEST(Instruments, ConnectionThatTheInstrumentClosesIsOpenedAnew)
{
    SimulatedInstrument simulated(false);
    simulated.on["BYE?"] = [&](const auto&) { simulated.hangUp(); };
    simulated.start();
    Equipment equipment;
    equipment.instruments["psu"] = parseAddress(simulated.address());
    Instruments instruments(equipment);
    const Interrupt interrupt;

    EXPECT_THROW(instruments.ask("psu", "BYE?", kAmple, interrupt), protocol::LineError);
    EXPECT_EQ(instruments.ask("psu", "*IDN?", kAmple, interrupt).text, "ACME,PSU-30,42,1.0");
}

struct AddressCase {
    const char* text;
    const char* read;
};

class AddressTest : public testing::TestWithParam<AddressCase>
{
};

TEST_P(AddressTest, IsReadOrRefused)
{
    std::string read;
    try {
        const Address address = parseAddress(GetParam().text);
        read = (address.serial ? "serial " : "tcp ") + address.target + " " + std::to_string(address.number);
    } catch (const protocol::UserError&) {
        read = "refused";
    }
    EXPECT_EQ(read, GetParam().read);
}

INSTANTIATE_TEST_SUITE_P(Instruments, AddressTest,
                         testing::Values(AddressCase{"tcp:10.0.0.5:5025", "tcp 10.0.0.5 5025"},
                                         AddressCase{"tcp:psu-3.local", "tcp psu-3.local 5025"},
                                         AddressCase{"tcp:[::1]:7", "tcp ::1 7"},
                                         AddressCase{"tcp:[::1]", "tcp ::1 5025"},
                                         AddressCase{"serial:/dev/ttyUSB0", "serial /dev/ttyUSB0 115200"},
                                         AddressCase{"serial:/dev/ttyUSB0:9600", "serial /dev/ttyUSB0 9600"},
                                         AddressCase{"serial:/dev/serial/by-path/pci-0:2:1.0",
                                                     "serial /dev/serial/by-path/pci-0:2:1.0 115200"},
                                         AddressCase{"serial:/dev/ttyUSB0:9601", "refused"},
                                         AddressCase{"tcp:", "refused"}, AddressCase{"tcp::5025", "refused"},
                                         AddressCase{"tcp:host:0", "refused"}, AddressCase{"tcp:host:65536", "refused"},
                                         AddressCase{"tcp:host:99999999999", "refused"},
                                         AddressCase{"tcp:::1", "refused"}, AddressCase{"usb:0x1234", "refused"},
                                         AddressCase{"10.0.0.5", "refused"}, AddressCase{"tcp:a\nb", "refused"}));

}  // namespace
}  // namespace station::instrument
