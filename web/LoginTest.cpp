#include "web/Login.h"

#include <gmock/gmock.h>

#include <thread>

namespace web {
namespace {

using namespace std::chrono_literals;
using testing::MatchesRegex;
using testing::StartsWith;

TEST(RoleTest, EachNameIsThatOfItsRole)
{
    EXPECT_EQ(roleOf("viewer"), Role::kViewer);
    EXPECT_EQ(roleOf("operator"), Role::kOperator);
    EXPECT_EQ(roleOf("engineer"), Role::kEngineer);
    EXPECT_EQ(roleOf("administrator"), Role::kAdministrator);
    for (const char* strange : {"", "none", "Viewer", "root"}) {
        EXPECT_EQ(roleOf(strange), std::nullopt) << strange;
    }
    EXPECT_EQ(nameOf(Role::kNone), "none");
    EXPECT_EQ(nameOf(Role::kAdministrator), "administrator");
}

TEST(HashTest, IsThatOfYescryptWithASaltOfItsOwn)
{
    const std::string one = hashOf("secret");

    EXPECT_THAT(one, StartsWith("$y$"));
    EXPECT_NE(one, hashOf("secret"));
    EXPECT_TRUE(isHash(one));
    for (const char* strange : {"", "secret", "$y$", "$y$j9T$mNq0JpTWjQ0BvpWvJnHo1/", "$9$abc", "*0"}) {
        EXPECT_FALSE(isHash(strange)) << strange;
    }
}

constexpr const char* kHere = "127.0.0.1";

class LoginTest : public testing::Test
{
protected:
    static std::vector<Account> accounts()
    {
        // Made once: each hash takes time.
        static const std::vector<Account> kAccounts{{{"anna", Role::kEngineer}, hashOf("blue"), ""},
                                                    {{"ben", Role::kOperator}, hashOf("1234"), hashOf("0047110815")},
                                                    {{"carl", Role::kOperator}, "", hashOf("0047110816")}};
        return kAccounts;
    }

    std::chrono::steady_clock::time_point now{1h};
    Login login{accounts(), [this] { return now; }};
};

TEST_F(LoginTest, PasswordOpensASessionOfItsUser)
{
    const auto outcome = login.enter("anna", "blue", kHere);

    EXPECT_THAT(outcome.token, MatchesRegex("[0-9a-f]{64}"));
    EXPECT_EQ(outcome.user.name, "anna");
    EXPECT_EQ(login.userOf(outcome.token).name, "anna");
    EXPECT_EQ(login.userOf(outcome.token).role, Role::kEngineer);
    EXPECT_NE(login.enter("anna", "blue", kHere).token, outcome.token);
}

TEST_F(LoginTest, BadgeOpensASessionOfItsUser)
{
    EXPECT_EQ(login.enter("", "0047110815", kHere).user.name, "ben");
    EXPECT_EQ(login.enter("", "0047110816", kHere).user.name, "carl");
}

TEST_F(LoginTest, WhatIsWrongOpensNone)
{
    const std::string none;
    for (const auto& [name, secret] :
         {std::pair<const char*, std::string>("anna", "red"), {"anna", ""}, {"Anna", "blue"}, {"", "blue"}}) {
        EXPECT_EQ(login.enter(name, secret, kHere).token, none) << name << ' ' << secret;
    }
    EXPECT_EQ(login.enter("carl", "", kHere).token, none) << "has no password";
    EXPECT_EQ(login.enter("ben", std::string("1234\0more", 9), kHere).token, none);
    EXPECT_EQ(login.enter("ben", std::string(Login::kLongestSecret + 1, '1'), kHere).token, none);
    EXPECT_EQ(login.userOf("").role, Role::kNone);
    EXPECT_EQ(login.userOf("0123").role, Role::kNone);
}

TEST_F(LoginTest, SessionEndsWithTheShift)
{
    const auto token = login.enter("anna", "blue", kHere).token;

    now += Login::kSessionLength - 1s;
    EXPECT_EQ(login.userOf(token).role, Role::kEngineer);
    now += 1s;
    EXPECT_EQ(login.userOf(token).role, Role::kNone);
}

TEST_F(LoginTest, UserWhoLeavesHasNoSession)
{
    const auto token = login.enter("anna", "blue", kHere).token;
    const auto other = login.enter("anna", "blue", kHere).token;

    login.leave(token);

    EXPECT_EQ(login.userOf(token).role, Role::kNone);
    EXPECT_EQ(login.userOf(other).role, Role::kEngineer);
}

TEST_F(LoginTest, FailuresMakeTheNextAttemptWaitLongerAndLonger)
{
    for (unsigned i = 1; i < Login::kFreeAttempts; ++i) {
        EXPECT_EQ(login.enter("anna", "red", kHere).wait, 0s);
    }
    EXPECT_EQ(login.enter("anna", "red", kHere).wait, 1s);
    EXPECT_EQ(login.enter("anna", "blue", kHere).token, "") << "is not even checked";
    EXPECT_EQ(login.enter("anna", "blue", kHere).wait, 1s);
    EXPECT_NE(login.enter("ben", "1234", kHere).token, "") << "another name is not held up";
    for (const auto wait : {2s, 4s, 8s, 16s, 32s, 60s, 60s}) {
        now += 60s;
        EXPECT_EQ(login.enter("anna", "red", kHere).wait, wait);
    }
    now += 59s;
    EXPECT_EQ(login.enter("anna", "blue", kHere).wait, 1s);
    now += 1s;
    EXPECT_NE(login.enter("anna", "blue", kHere).token, "");
    EXPECT_EQ(login.enter("anna", "red", kHere).wait, 0s) << "a success forgives";
}

TEST_F(LoginTest, UnknownNameIsHeldUpLikeAKnownOne)
{
    for (const char* name : {"anna", "zoe"}) {
        for (unsigned i = 1; i < Login::kFreeAttempts; ++i) {
            EXPECT_EQ(login.enter(name, "red", kHere).wait, 0s) << name;
        }
        EXPECT_EQ(login.enter(name, "red", kHere).wait, 1s) << name;
        EXPECT_EQ(login.enter(name, "red", "192.0.2.9").wait, 1s) << name << ", wherever it comes from";
    }
    EXPECT_NE(login.enter("", "0047110815", kHere).token, "") << "a badge is not held up";
}

TEST_F(LoginTest, WrongBadgesHoldUpTheirSourceOnly)
{
    for (unsigned i = 0; i < Login::kFreeAttempts; ++i) {
        login.enter("", "0047110817", "192.0.2.9");
    }

    EXPECT_EQ(login.enter("", "0047110815", "192.0.2.9").wait, 1s);
    EXPECT_NE(login.enter("", "0047110815", kHere).token, "");
}

TEST_F(LoginTest, OldestSessionEndsWhenThereAreTooMany)
{
    // The cheapest hash that the C library takes: 1,025 of the others take a minute.
    Login quick({{{"anna", Role::kViewer}, "$5$rounds=1000$salt$0Jwbs/JY6oCLYW3OLEmLl95GQF7Bxi51dVUlGor6eO3"}},
                [this] { return now; });
    std::string first;
    for (std::size_t i = 0; i <= Login::kSessions; ++i) {
        now += 1ms;
        const auto token = quick.enter("anna", "blue", kHere).token;
        ASSERT_NE(token, "");
        first = first.empty() ? token : first;
        ASSERT_EQ(quick.userOf(first).role, i < Login::kSessions ? Role::kViewer : Role::kNone) << i;
    }
}

TEST_F(LoginTest, WithoutAccountsEverybodyMayDoEverything)
{
    const Login open(std::vector<Account>{});

    EXPECT_FALSE(open.required());
    EXPECT_TRUE(login.required());
    EXPECT_EQ(open.userOf("").role, Role::kAdministrator);
}

}  // namespace
}  // namespace web
