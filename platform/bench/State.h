#pragma once

#include <array>
#include <nlohmann/json.hpp>
#include <optional>
#include <shared_mutex>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "platform/bench/Announcer.h"

namespace bench {

/// Types of values in the state. Integers have 32 bits and a sign.
enum class StateType {
    kBool,
    kInt,
    kText,
    kIntArray,
    kTextArray,
    kVersions,     ///< exactly 11 texts
    kIntMap,       ///< integers by decimal number; open: a new number may be set
    kTextMap,      ///< texts by decimal number; open
    kIntArrayMap,  ///< arrays of integers by decimal number; open
    kConfig,       ///< true or false, integers and texts by keys that begin with '/'; open; a key keeps its type
};

struct StateRow {
    std::string_view path;     ///< JSON Pointer
    StateType type;            ///< type of the value
    std::string_view initial;  ///< JSON of the built-in value
};

/// The state of the simulated head unit. This is the only list; everything else follows from it.
inline constexpr auto kStateRows = std::to_array<StateRow>({
    // The application manager: whether it is available; the modules that it starts once the service is ready; whether a
    // request starts Wi-Fi, and after how many milliseconds.
    {"/app_manager/available", StateType::kBool, "true"},
    {"/app_manager/boot_modules", StateType::kIntArray, "[1,2,3,5,7,8,9,15,20]"},
    {"/app_manager/starts_on_request", StateType::kBool, "true"},
    {"/app_manager/start_delay_ms", StateType::kInt, "200"},

    // Commands, and paths to remove, that begin with one of these fail and are not carried out.
    {"/system/failing_commands", StateType::kTextArray, "[]"},
    {"/system/failing_removals", StateType::kTextArray, "[]"},

    {"/source/current", StateType::kInt, "1"},
    {"/source/available", StateType::kIntArray, "[1,3,6,7,9,10,14,16,25,30,44]"},

    // While `available` is false, the getter of the service returns null. Mute is by channel.
    {"/audio/available", StateType::kBool, "true"},
    {"/audio/volume_limit", StateType::kInt, "40"},
    {"/audio/volume", StateType::kInt, "12"},
    {"/audio/mute", StateType::kIntMap, R"({"6":0})"},

    // Frequencies and stations are by band, in the tuner's unit for the band (FM: 10 kHz).
    {"/tuner/available", StateType::kBool, "true"},
    {"/tuner/band", StateType::kInt, "1"},
    {"/tuner/frequency", StateType::kIntMap, R"({"0":990,"1":8750,"3":0,"4":0})"},
    {"/tuner/stations", StateType::kIntArrayMap, R"({"0":[639,990],"1":[8750,9470,10110]})"},
    {"/tuner/rds_af", StateType::kInt, "0"},
    {"/tuner/rds_ta", StateType::kInt, "0"},

    // An antenna in state 4 is good.
    {"/system_misc/available", StateType::kBool, "true"},
    {"/system_misc/radio_antenna", StateType::kInt, "4"},
    {"/system_misc/dab_antenna", StateType::kInt, "4"},
    {"/system_misc/gps_antenna", StateType::kInt, "4"},
    {"/system_misc/state", StateType::kInt, "0"},

    {"/bluetooth/attributes", StateType::kTextMap, R"({"2":"5.2","3":"00:1A:7D:DA:71:13","4":"HeadUnit"})"},
    {"/bluetooth/capabilities", StateType::kIntMap, R"({"0":1,"9":0})"},
    {"/bluetooth/media_connection/state", StateType::kInt, "0"},
    {"/bluetooth/media_connection/text", StateType::kText, R"("")"},
    {"/bluetooth/phone_connection/state", StateType::kInt, "0"},
    {"/bluetooth/phone_connection/text", StateType::kText, R"("")"},
    {"/bluetooth/music_status", StateType::kInt, "0"},
    {"/bluetooth/call_state", StateType::kInt, "0"},
    {"/bluetooth/delete_pairings_result", StateType::kInt, "1"},

    {"/power/available", StateType::kBool, "true"},
    {"/power/screen_light_type", StateType::kInt, "1"},
    {"/power/status", StateType::kInt, "16"},
    {"/power/state", StateType::kInt, "0"},
    {"/power/shut_down", StateType::kBool, "false"},

    {"/system_info/versions", StateType::kVersions,
     R"(["field0","field1","field2","field3","field4","field5","field6","field7","field8","field9","field10"])"},

    {"/wifi/available", StateType::kBool, "true"},
    {"/wifi/text", StateType::kText, R"("HeadUnit-WLAN")"},

    {"/android_auto/state", StateType::kInt, "0"},

    {"/config", StateType::kConfig,
     R"({"/engineering/open_debug":false,"/system/enable_cp_test":false,"/project/project_name":"bench"})"},
});

/// One row of the state by its path. A path that is not in the table does not compile.
class StateKey
{
public:
    // Implicit, so that fakes can write state.number("/audio/volume").
    consteval StateKey(const char* path) : index_(find(path)) {}

    constexpr std::size_t index() const { return index_; }

private:
    static consteval std::size_t find(std::string_view path)
    {
        for (std::size_t index = 0; index < kStateRows.size(); ++index) {
            if (kStateRows[index].path == path) {
                return index;
            }
        }
        throw "no such path in kStateRows";
    }

    std::size_t index_;
};

/// A refused query or change of the state. The message is one line: the path, the reason, and what is expected.
class StateError : public std::runtime_error
{
public:
    enum class Kind { kUnknownPath, kInvalidValue };

    StateError(Kind kind, const std::string& message) : std::runtime_error(message), kind_(kind) {}

    Kind kind() const { return kind_; }

private:
    Kind kind_;
};

/// A change of the state.
struct StateChange {
    std::string path;
    nlohmann::json value;
};

/// The state of the simulated head unit as one JSON document, which always fits kStateRows. Any thread.
class State
{
public:
    State();
    State(const State&) = delete;
    State& operator=(const State&) = delete;

    /// @param path JSON Pointer; empty: the whole state
    /// @throws StateError (UnknownPath), also if the pointer is malformed.
    nlohmann::json get(const std::string& path) const;

    /// Replaces the value at `path`: a single value, an element of an array, or a branch.
    /// @throws StateError; nothing has changed then.
    void set(const std::string& path, const nlohmann::json& value);

    /// Merges `patch` over the state (RFC 7396). Observers get the whole state.
    /// @throws StateError; nothing has changed then.
    void merge(const nlohmann::json& patch);

    /// Announces each change, in the order of the changes.
    Announcer<StateChange>& changes() { return changes_; }

    // For the fakes. The row must have the type of the result.
    bool flag(StateKey key) const;
    int number(StateKey key) const;
    std::string text(StateKey key) const;
    std::vector<int> numbers(StateKey key) const;
    std::vector<std::string> texts(StateKey key) const;

    // The value at a number in an open object; nothing, or an empty array, if the number is not there.
    std::optional<int> numberAt(StateKey key, int number) const;
    std::optional<std::string> textAt(StateKey key, int number) const;
    std::vector<int> numbersAt(StateKey key, int number) const;

    /// @returns the boolean at `key` in the configuration; nothing if there is none.
    std::optional<bool> configFlag(const char* key) const;

    /// @returns the text at `key` in the configuration; nothing if there is none.
    std::optional<std::string> configText(const char* key) const;

private:
    const nlohmann::json& rowLocked(StateKey key) const { return *rows_[key.index()]; }
    template <class Value>
    Value read(StateKey key) const;
    template <class Value>
    std::optional<Value> readAt(StateKey key, int number) const;
    void replaceLocked(nlohmann::json candidate);

    mutable std::shared_mutex mutex_;
    nlohmann::json document_;                                      // guarded by mutex_
    std::array<const nlohmann::json*, kStateRows.size()> rows_{};  // into document_; guarded by mutex_
    Announcer<StateChange> changes_;
};

}  // namespace bench
