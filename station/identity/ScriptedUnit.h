#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "protocol/catalogue/Catalogue.h"
#include "station/FrameScanner.h"
#include "station/identity/IdentityGuard.h"
#include "tests/support/PtyPeer.h"
#include "tests/support/TempDir.h"

namespace station::identity {

using protocol::Frame;

/// A unit for tests that answers each frame as soon as it has been sent, on the station's thread.
class ScriptedUnit : public TraceSink
{
public:
    void on(const TraceEvent& event) override
    {
        if (event.kind == TraceEvent::Kind::kSent) {
            received.push_back(event.frame);
            if (!before || before(event.frame)) {
                handle(event.frame);
            }
        }
    }

    tests::PtyPeer line;
    bool testMode = false;
    std::map<int, std::string> stored;  // by the reader's command
    std::optional<std::vector<std::uint8_t>> controllerAddress{{0x00, 0x1A, 0x7D, 0xDA, 0x71, 0x13}};
    bool hasBluetoothAddress = false;
    /// Called with each frame; the unit ignores the frame if this returns false.
    std::function<bool(const Frame&)> before;
    /// @returns the value that the unit stores.
    std::function<std::string(std::string)> store = [](std::string value) { return value; };
    std::vector<Frame> received;

    void answer(const Frame& frame) { line.write(wireBytes(frame)); }

    /// @returns the number of frames that wrote a record.
    std::size_t writes() const
    {
        return static_cast<std::size_t>(std::ranges::count_if(
            received, [](const Frame& frame) { return frame.cmdOne == 0x0A && !frame.params.empty(); }));
    }

private:
    void handle(const Frame& frame)
    {
        const std::string text(frame.params.begin(), frame.params.end());
        if (frame.cmdOne == 0x0F && frame.cmdTwo == 0xFF) {
            answer({0x8F, 0xFF, {testMode}});
        } else if (frame.cmdOne == 0x0F && frame.cmdTwo == 0x00) {
            testMode = frame.params.at(0) == 1;
            answer({0x8F, 0x00, frame.params});
        } else if (!testMode) {
            return;
        } else if (frame.cmdOne == 0x04 && frame.cmdTwo == 0x07 && controllerAddress) {
            answer({0x84, 0x07, *controllerAddress});
        } else if (frame.cmdOne == 0x0A) {
            identity(frame, text);
        }
    }

    void identity(const Frame& frame, const std::string& text)
    {
        switch (frame.cmdTwo) {
            case 0x02:
                stored[0x03] = store(text);
                break;
            case 0x11:
                stored[0x12] = store(text);
                break;
            case 0x13:
                stored[0x14] = store(text);
                break;
            case 0x15:
                stored[0x16] = store(text);
                break;
            case 0x10:
                hasBluetoothAddress = true;
                break;
            case 0x1A:
                answer({0x8A, 0x1A, {hasBluetoothAddress}});
                break;
            default: {
                const auto found = stored.find(frame.cmdTwo);
                if (found == stored.end()) {
                    answer({0x8A, frame.cmdTwo == 0x12 ? std::uint8_t{0x0F} : frame.cmdTwo, {}});
                } else {
                    answer({0x8A, frame.cmdTwo, {found->second.begin(), found->second.end()}});
                }
            }
        }
    }
};

/// A station whose registry guards every connection.
class GuardedStationTest : public testing::Test
{
protected:
    GuardedStationTest()
    {
        Connection::guardBy([this] {
            auto made = std::make_unique<IdentityGuard>(all, rules, terms,
                                                        [this](Registry::Access access) { return open(access); });
            guard = made.get();
            return made;
        });
    }
    ~GuardedStationTest() override { Connection::guardBy({}); }

    std::unique_ptr<Registry> open(Registry::Access access = Registry::Access::kGive) const
    {
        return std::make_unique<Registry>(registry, all, rules, nullptr, access);
    }

    /// @returns "VALUE STATE" of all values of the registry.
    std::vector<std::string> values() const
    {
        std::vector<std::string> found;
        open(Registry::Access::kLook)->list([&](const Registry::Entry& entry) {
            found.push_back(entry.value + " " + name(entry.state));
        });
        return found;
    }

    tests::TempDir directory;
    std::string registry = directory.path() / "registry.sqlite";
    const std::vector<Record> all = records(protocol::catalogue::groups());
    UnitRules rules;
    GuardTerms terms;
    IdentityGuard* guard = nullptr;  ///< of the connection that was opened last
};

}  // namespace station::identity
