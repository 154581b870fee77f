// The service is killed while it writes records. What it was not writing is whole, and the next start serves.

#include <gmock/gmock.h>

#include <array>
#include <chrono>
#include <csignal>
#include <fstream>
#include <map>
#include <random>
#include <thread>

#include "protocol/Frame.h"
#include "tests/faults/Soak.h"
#include "tests/integration/BenchTest.h"
#include "tests/support/WireVectors.h"

namespace tests {
namespace {

namespace fs = std::filesystem;
using testing::AnyOf;
using testing::IsEmpty;
using wire::Bytes;
using wire::kModeOn;
using wire::kModeOnReply;

constexpr std::uint8_t kGroup = 0x0A;

/// A record, the command that writes it, and three values of it as the station sends them: one that stays, two that
/// are being written when the service is killed.
struct Record {
    std::uint8_t write;
    std::array<std::string, 3> values;
    std::map<std::string, std::array<std::string, 3>> files;  // what each of its files holds then
};

std::string storeWith(const std::string& addressLine)
{
    return "// PSKEYs\n" + addressLine + "\n&0017 = 0000 0000\n&01f6 = 0018\n&01fe = 6590\n&0205 = 0001\n";
}

const std::string kStore = "perm_data/data/bluetooth/PSConfig.psr";
const std::string kBackup = "media/backup.txt";

const std::vector<Record>& records()
{
    static const std::string first = "&0001 = 00A1 B2C3 00F5 0002";
    static const std::string second = "&0001 = 0066 7788 0055 3344";
    static const std::string third = "&0001 = 00CC DDEE 00BB 99AA";
    static const std::vector<Record> all = {
        {0x02, {"SN1", "SN-22", "SN-333"}, {{"factory_serial_num", {"SN1", "SN-22", "SN-333"}}}},
        {0x04, {"20260101", "2", "3333"}, {{"production_date", {"20260101", "2", "3333"}}}},
        {0x0E, {"0000", "11", "222"}, {{"password_num", {"0000", "11", "222"}}}},
        {0x10,
         {"0002F5A1B2C3", "334455667788", "99AABBCCDDEE"},
         {{"bt_mac_address_for_query", {first, second, third}},
          {kStore, {storeWith(first), storeWith(second), storeWith(third)}}}},
        {0x11,
         {"A0B1C2D3E4F5", "001122334455", "66778899AABB"},
         {{"cp_mac_address", {"A0:B1:C2:D3:E4:F5", "00:11:22:33:44:55", "66:77:88:99:AA:BB"}}}},
        {0x13, {"HU1", "HU-22", "HU-333"}, {{"hu_serial_num", {"HU1", "HU-22", "HU-333"}}}},
        {0x15, {"D1", std::string(200, '2'), "D-33"}, {{"drawing_code", {"D1", std::string(200, '2'), "D-33"}}}},
    };
    return all;
}

Bytes frameOf(std::uint8_t command, const std::string& value)
{
    protocol::FrameBuffer buffer;
    const Bytes params(value.begin(), value.end());
    const std::size_t length = protocol::encode(buffer, kGroup, command, params);
    return {buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(length)};
}

class KillTest : public BenchTest
{
protected:
    ChildProcess& startInTestMode(bool syncs)
    {
        // Without the sync the service is writing most of the time, with it it is mostly waiting for the disk.
        const fs::path state = directory() / "headunit.json";
        std::ofstream(state) << (syncs ? "{}" : R"({"system": {"failing_commands": ["sync"]}})");
        ChildProcess& service = startService({"--headunit", state.string()});
        RawLine(link()).expectExchange(kModeOn, kModeOnReply);
        return service;
    }

    fs::path fileOf(const std::string& name) const
    {
        return name.find('/') == std::string::npos ? root() / "perm_data/data/engineering" / name : root() / name;
    }

    std::string contentOf(const std::string& name) const
    {
        std::ifstream stream(fileOf(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }

    /// Writes a record's first value and waits until that is done.
    void writeFirst(const Record& record)
    {
        RawLine line(link());
        line.write(frameOf(record.write, record.values[0]));
        line.expectExchange(kModeOn, kModeOnReply);
        for (const auto& [name, contents] : record.files) {
            EXPECT_EQ(contentOf(name), contents[0]) << name;
        }
    }

    void expectFirst(const Record& record)
    {
        for (const auto& [name, contents] : record.files) {
            EXPECT_EQ(contentOf(name), contents[0]) << name;
        }
    }

    /// Expects one of a record's values, or nothing: a file is emptied before it is written.
    void expectOneOf(const Record& record)
    {
        for (const auto& [name, contents] : record.files) {
            const std::string content = contentOf(name);
            EXPECT_THAT(content, AnyOf(contents[0], contents[1], contents[2], IsEmpty())) << name;
            emptied_ += content.empty() ? 1 : 0;
            if (name == kStore && content.empty()) {
                EXPECT_THAT(contentOf(kBackup), AnyOf(contents[0], contents[1], contents[2]));
                fs::copy_file(fileOf(kBackup), fileOf(kStore), fs::copy_options::overwrite_existing);
            }
        }
    }

    int emptied_ = 0;
};

TEST_F(KillTest, AtAnyMomentOfAWriteDamagesNoOtherRecordAndTheNextStartServes)
{
    const std::size_t rounds = std::max<std::size_t>(lengthOf(15, 200), 3);
    const auto seed = soaking() ? std::random_device{}() : 20'26u;
    RecordProperty("seed", static_cast<int>(seed));
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    ChildProcess* service = &startInTestMode(true);
    for (const Record& record : records()) {
        writeFirst(record);
    }

    for (std::size_t round = 0; round < rounds && !HasFailure(); ++round) {
        const Record& victim = records()[round % records().size()];
        const std::chrono::microseconds moment(std::uniform_int_distribution(0, 30'000)(random));
        SCOPED_TRACE("round " + std::to_string(round) + ", killed after " + std::to_string(moment.count()) + " us");
        const bool syncs = round % 4 == 0;
        service->signal(SIGKILL);
        ASSERT_EQ(service->wait(), 128 + SIGKILL);
        service = &startInTestMode(syncs);
        {
            RawLine line(link());
            Bytes writes;
            for (int i = 0; i < 200; ++i) {
                const Bytes frame = frameOf(victim.write, victim.values[1 + static_cast<std::size_t>(i) % 2]);
                writes.insert(writes.end(), frame.begin(), frame.end());
            }
            std::jthread station([&] {
                try {
                    line.write(writes);
                } catch (const std::system_error&) {
                    // the line has gone with the service
                }
            });
            std::this_thread::sleep_for(moment);  // the moment is what is tried, nothing is waited for
            service->signal(SIGKILL);
            ASSERT_EQ(service->wait(), 128 + SIGKILL);
        }

        service = &startInTestMode(true);
        for (const Record& record : records()) {
            if (&record == &victim) {
                expectOneOf(record);
            } else {
                expectFirst(record);
            }
        }
        writeFirst(victim);
    }
    showFigure("kills", static_cast<double>(rounds), "");
    showFigure("files that were empty after one", emptied_, "");
}

}  // namespace
}  // namespace tests
