#include "web/Login.h"

#include <crypt.h>
#include <sys/random.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <utility>

namespace web {

namespace {

/// Of no secret: an unknown name takes as long as a known one with a wrong password.
const std::string& anyHash()
{
    static const std::string kHash = hashOf(randomToken());
    return kHash;
}

bool matches(const std::string& secret, const std::string& hash)
{
    const auto work = std::make_unique<crypt_data>();
    const char* made = crypt_r(secret.c_str(), hash.c_str(), work.get());
    return made != nullptr && made == hash;
}

}  // namespace

std::optional<Role> roleOf(std::string_view name)
{
    const auto* found = std::ranges::find(kRoleNames, name);
    if (found == kRoleNames.end() || found == kRoleNames.begin()) {
        return {};
    }
    return static_cast<Role>(found - kRoleNames.begin());
}

std::string randomToken()
{
    std::array<unsigned char, 32> bytes{};
    if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
        throw std::runtime_error("the system gives no random bytes");
    }
    std::string text;
    for (const unsigned char byte : bytes) {
        text += "0123456789abcdef"[byte >> 4U];
        text += "0123456789abcdef"[byte & 15U];
    }
    return text;
}

std::string hashOf(const std::string& secret)
{
    std::array<char, CRYPT_GENSALT_OUTPUT_SIZE> setting{};
    const auto work = std::make_unique<crypt_data>();
    const char* made = crypt_gensalt_rn("$y$", 0, nullptr, 0, setting.data(), setting.size()) == nullptr
                           ? nullptr
                           : crypt_r(secret.c_str(), setting.data(), work.get());
    if (made == nullptr || *made == '*') {
        throw std::runtime_error("the C library cannot hash by yescrypt");
    }
    return made;
}

bool isHash(const std::string& hash)
{
    const auto work = std::make_unique<crypt_data>();
    const char* made = crypt_r("any", hash.c_str(), work.get());
    return made != nullptr && *made != '*' && std::strlen(made) == hash.size();
}

Login::Login(std::vector<Account> accounts, Clock clock) : accounts_(std::move(accounts)), clock_(std::move(clock)) {}

const Account* Login::accountOf(const std::string& name, const std::string& secret) const
{
    if (name.empty()) {
        const auto found = std::ranges::find_if(accounts_, [&](const Account& account) {
            return !account.badgeHash.empty() && matches(secret, account.badgeHash);
        });
        return found == accounts_.end() ? nullptr : &*found;
    }
    const auto found = std::ranges::find_if(accounts_, [&](const Account& each) { return each.user.name == name; });
    const bool canEnter = found != accounts_.end() && !found->passwordHash.empty();
    return matches(secret, canEnter ? found->passwordHash : anyHash()) && canEnter ? &*found : nullptr;
}

Login::Outcome Login::enter(const std::string& name, const std::string& secret, const std::string& source)
{
    Outcome outcome;
    const std::lock_guard checking(checking_);
    const std::string countedBy = name.empty() ? '\n' + source : name;
    Failures& failures = failures_.at(std::hash<std::string>()(countedBy) % failures_.size());
    const auto now = clock_();
    if (now < failures.next) {
        outcome.wait = std::chrono::ceil<std::chrono::seconds>(failures.next - now);
        return outcome;
    }
    const Account* account = nullptr;
    if (secret.size() <= kLongestSecret && secret.find('\0') == std::string::npos) {
        account = accountOf(name, secret);
    }
    if (account == nullptr) {
        ++failures.count;
        if (failures.count >= kFreeAttempts) {
            const unsigned doublings = std::min(failures.count - kFreeAttempts, 6U);
            outcome.wait = std::min(std::chrono::seconds(1U << doublings), kLongestWait);
            failures.next = now + outcome.wait;
        }
        return outcome;
    }
    failures = {};
    outcome.token = randomToken();
    outcome.user = account->user;
    const std::lock_guard lock(mutex_);
    if (sessions_.size() >= kSessions) {
        sessions_.erase(std::ranges::min_element(sessions_, {}, [](const auto& each) { return each.second.begun; }));
    }
    sessions_[outcome.token] = {account->user, now};
    return outcome;
}

User Login::userOf(const std::string& token) const
{
    if (!required()) {
        return {"", Role::kAdministrator};
    }
    const std::lock_guard lock(mutex_);
    const auto found = sessions_.find(token);
    return found == sessions_.end() || clock_() - found->second.begun >= kSessionLength ? User{} : found->second.user;
}

void Login::leave(const std::string& token)
{
    const std::lock_guard lock(mutex_);
    sessions_.erase(token);
}

}  // namespace web
