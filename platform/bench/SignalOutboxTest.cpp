#include "platform/bench/SignalOutbox.h"

#include <gtest/gtest.h>

namespace bench {
namespace {

TEST(SignalOutbox, GivesSignalsInTheirOrder)
{
    SignalOutbox outbox;
    outbox.push({"Called", "", "1"});
    outbox.push({"StateChanged", "/audio/volume", "2"});

    EXPECT_EQ(outbox.take()->json, "1");
    EXPECT_EQ(outbox.take()->path, "/audio/volume");
    EXPECT_FALSE(outbox.take());
}

TEST(SignalOutbox, DropsTheOldestWhenThereIsNoSpace)
{
    SignalOutbox outbox;
    const std::size_t pushed = 3 * SignalOutbox::kMostBytes / 1000;

    for (std::size_t number = 0; number < pushed; ++number) {
        outbox.push({"Called", std::to_string(number), std::string(1000, 'x')});
    }

    std::size_t kept = 0;
    std::string last;
    while (const auto signal = outbox.take()) {
        ++kept;
        last = signal->path;
    }
    EXPECT_LE(kept * 1000, SignalOutbox::kMostBytes);
    EXPECT_GE(kept * 1000, SignalOutbox::kMostBytes / 2);
    EXPECT_EQ(last, std::to_string(pushed - 1));
}

TEST(SignalOutbox, KeepsASingleSignalOfAnySize)
{
    SignalOutbox outbox;

    outbox.push({"StateChanged", "", std::string(2 * SignalOutbox::kMostBytes, 'x')});

    EXPECT_TRUE(outbox.take());
    EXPECT_FALSE(outbox.take());
}

}  // namespace
}  // namespace bench
