#include "station/trace/Secrets.h"

#include <gmock/gmock.h>

#include "protocol/catalogue/Catalogue.h"
#include "station/FrameScanner.h"
#include "station/trace/Attribution.h"
#include "station/trace/Describe.h"

namespace station {
namespace {

using Kind = TraceEvent::Kind;
using protocol::Frame;
using protocol::catalogue::groups;
using testing::HasSubstr;
using testing::Not;

TraceEvent event(Kind kind, Frame frame)
{
    TraceEvent made{kind, {}, {}, std::move(frame), {}};
    if (kind == Kind::kCorrupt) {
        made.bytes = wireBytes(made.frame);
        made.bytes.back() ^= 1;
    }
    return made;
}

TEST(SecretMask, SecretKeepsItsLengthAndIsMarked)
{
    SecretMask mask(groups());

    const TraceEvent written = mask(event(Kind::kSent, {0x0A, 0x0E, {'1', '2', '3', '4'}}));
    const TraceEvent read = mask(event(Kind::kReceived, {0x8A, 0x0F, {'1', '2'}}));

    EXPECT_EQ(written.frame, (Frame{0x0A, 0x0E, {'*', '*', '*', '*'}}));
    EXPECT_TRUE(written.masked);
    EXPECT_EQ(bytesText(written), "0A 0E [** ** ** **]");
    EXPECT_EQ(bytesText(read), "8A 0F [** **]");
    EXPECT_EQ(describe(groups(), read, Attribution(groups()).on(read).decoded),
              "identity.password-number: value=** (masked)");
}

TEST(SecretMask, WhatIsNoSecretStays)
{
    SecretMask mask(groups());

    for (const TraceEvent& each :
         {event(Kind::kReceived, {0x8A, 0x0F, {}}), event(Kind::kReceived, {0x8A, 0x14, {'H', 'U', '*'}}),
          event(Kind::kCorrupt, {0x82, 0x01, {0x24, 0xFE}}), event(Kind::kSent, {0x0A, 0x0F, {}}),
          event(Kind::kLost, {})}) {
        EXPECT_EQ(mask(each), each);
    }
}

TEST(SecretMask, DamagedFrameAfterASecretCommandIsMaskedWhateverItsCode)
{
    SecretMask mask(groups());
    mask(event(Kind::kSent, {0x0A, 0x0F, {}}));

    const TraceEvent damaged = mask(event(Kind::kCorrupt, {0x8B, 0x0F, {'1', '2', '3', '4'}}));

    EXPECT_EQ(damaged.kind, Kind::kCorrupt);
    EXPECT_EQ(bytesText(damaged), "2A A2 00 06 8B 0F ** ** ** ** ** **");
    EXPECT_EQ(describe(groups(), damaged, {}), "8B 0F [** ** ** **]: wrong checksum");
}

TEST(SecretMask, FrameOfTheSecretsCodeIsMaskedWhenDamaged)
{
    const TraceEvent damaged = SecretMask(groups())(event(Kind::kCorrupt, {0x8A, 0x0F, {'1', '2'}}));

    EXPECT_EQ(bytesText(damaged), "2A A2 00 04 8A 0F ** ** ** **");
}

}  // namespace
}  // namespace station
