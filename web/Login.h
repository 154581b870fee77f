#pragma once

#include <array>
#include <chrono>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace web {

/// What a user may do; each role includes those before it.
enum class Role { kNone, kViewer, kOperator, kEngineer, kAdministrator };

/// The roles' names in files and JSON, in the order of Role.
inline constexpr std::array<std::string_view, 5> kRoleNames{"none", "viewer", "operator", "engineer", "administrator"};

inline std::string_view nameOf(Role role)
{
    return kRoleNames[static_cast<std::size_t>(role)];
}

/// @returns the role of this name; nothing for none and for "none".
std::optional<Role> roleOf(std::string_view name);

struct User {
    std::string name;
    Role role = Role::kNone;
};

struct Account {
    User user;
    /// Of the password or PIN, in the form of crypt(5); empty for neither.
    std::string passwordHash = {};
    /// Of the number of the badge, likewise.
    std::string badgeHash = {};
};

/// @returns 32 random bytes as 64 hexadecimal digits.
std::string randomToken();

/// @returns the hash of a secret, by yescrypt with a salt of its own. Throws std::runtime_error if the system has none.
std::string hashOf(const std::string& secret);

/// @returns whether the C library can check a secret against `hash`.
bool isHash(const std::string& hash);

/// Who is logged in. Without accounts everybody is an administrator. Any thread may call it.
/// A check of a secret takes tens of milliseconds of a processor; one is made at a time.
class Login
{
public:
    using Clock = std::function<std::chrono::steady_clock::time_point()>;

    /// As long as the longest shift.
    static constexpr std::chrono::hours kSessionLength{12};
    /// The session that began first ends when there would be more.
    static constexpr std::size_t kSessions = 1024;
    /// Failed attempts for one name before the next has to wait: 1 s, then twice as long each time, up to a minute.
    static constexpr unsigned kFreeAttempts = 5;
    static constexpr std::chrono::seconds kLongestWait{60};
    /// Longer secrets are refused: the work grows with the length.
    static constexpr std::size_t kLongestSecret = 256;

    explicit Login(std::vector<Account> accounts, Clock clock = std::chrono::steady_clock::now);

    bool required() const { return !accounts_.empty(); }

    struct Outcome {
        std::string token;  ///< of the session; empty if it was refused
        User user = {};
        std::chrono::seconds wait{0};  ///< until another attempt is checked
    };

    /// Checks a password, or the number of a badge if `name` is empty. Failures are counted by name, whether it is
    /// known or not, and those of badges by where they come from.
    /// @param source address of the client
    Outcome enter(const std::string& name, const std::string& secret, const std::string& source);

    /// @returns who holds the session; a user without name and role if it has ended or `token` is none.
    User userOf(const std::string& token) const;

    void leave(const std::string& token);

private:
    struct Session {
        User user;
        std::chrono::steady_clock::time_point begun;
    };
    struct Failures {
        unsigned count = 0;
        std::chrono::steady_clock::time_point next;
    };

    const Account* accountOf(const std::string& name, const std::string& secret) const;

    const std::vector<Account> accounts_;
    const Clock clock_;
    std::mutex checking_;
    mutable std::mutex mutex_;
    std::map<std::string, Session> sessions_;  // guarded by mutex_
    std::array<Failures, 1024> failures_;      // guarded by checking_; by the hash of what they are counted by
};

}  // namespace web
