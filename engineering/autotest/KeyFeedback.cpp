#include <array>

#include "engineering/autotest/KYRAutoTest.h"

namespace {

constexpr unsigned char kUnknownKey = 0xFF;
constexpr unsigned char kKeyReport = 0x11;
constexpr unsigned char kLongPress = 0x04;

/// The station's key codes by the platform's key.
constexpr std::array<unsigned char, 65> MakeKeyCodes()
{
    std::array<unsigned char, 65> codes{};
    codes.fill(kUnknownKey);
    constexpr unsigned char kKnown[][2] = {
        {0, 15},  {1, 16},  {2, 6},   {3, 7},   {4, 9},   {5, 18},  {6, 17},  {7, 5},   {9, 30},
        {10, 19}, {13, 20}, {14, 23}, {50, 12}, {51, 11}, {52, 4},  {53, 3},  {54, 10}, {55, 13},
        {56, 14}, {57, 31}, {58, 32}, {59, 2},  {60, 33}, {61, 34}, {62, 35}, {63, 36}, {64, 37},
    };
    for (const auto& [key, code] : kKnown)
        codes[key] = code;
    return codes;
}

constexpr auto kKeyCodes = MakeKeyCodes();

}  // namespace

void KYRAutoTest::FeedBackKeyEvent(E_KeyVKey key, E_KeyStatus status)
{
    if (m_ucKeyFeedback == 0)
        return;
    std::vector<unsigned char> params = {ChangeKeyTypeToAutoTestKey(key)};
    if (status == KEY_STATUS_LONG)
        params.push_back(kLongPress);
    Reply(kHardKeyAndDisplay, kKeyReport, params);
}

unsigned char KYRAutoTest::ChangeKeyTypeToAutoTestKey(E_KeyVKey key)
{
    const auto nIndex = static_cast<std::size_t>(key);  // a negative key is beyond the table, too
    return nIndex < kKeyCodes.size() ? kKeyCodes[nIndex] : kUnknownKey;
}
