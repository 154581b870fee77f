#include "platform/linux/BoardHmi.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "platform/linux/SourceTable.h"
#include "platform/runtime/Report.h"

namespace unit {
namespace {

constexpr std::chrono::seconds kHmiDeadline{5};
constexpr int kShortPress = 0;
constexpr int kLongPress = 16;

const BusObject::Address kEngineering{"com.zent.linux.engineering", "/com/zent/linux/engineering",
                                      "com.zent.linux.engineering"};

}  // namespace

BoardHmi::BoardHmi(UnitConfig config, std::unique_ptr<Mixer> mixer, std::function<void()> ready)
    : config_(std::move(config)), ready_(std::move(ready))
{
    board_.add("service", "dbus");
    bus_.add(*this);
    service_.emplace(bus_, kEngineering,
                     BusObject::Events{.presence =
                                           [this](const std::string& reason) {
                                               isServed_ = reason.empty();
                                               setState("service", reason);
                                               if (connection_ != nullptr && !std::exchange(isReady_, true)) {
                                                   ready_();
                                               }
                                           },
                                       .signal = [this](const std::string& name,
                                                        GVariant* arguments) { onSignal(name, arguments); }});
    for (const auto& [mediaType, name] : config_.hmi->players) {
        const std::string part = fmt::format("player {}", mediaType);
        board_.add(part, "mpris");
        players_[mediaType] = {
            name, std::make_unique<BusObject>(
                      bus_, addressOfPlayer(name, "Player"),
                      BusObject::Events{.presence = [this, part](const auto& reason) { setState(part, reason); }})};
    }
    if (mixer) {
        board_.add("audio", "alsa");
        mixer_.emplace(config_.audio, std::move(mixer), loop_,
                       [this](const auto&, const std::string& reason) { setState("audio", reason); });
    }
    if (!config_.hmi->keyboard.empty()) {
        board_.add("keyboard", "evdev");
        keyboard_.emplace(config_.hmi->keyboard, loop_, board_,
                          [this](int code, std::chrono::microseconds held) { reportKey(code, held); });
    }
    loop_.run();
}

BoardHmi::~BoardHmi()
{
    loop_.stop();
    bus_.remove(*this);
}

void BoardHmi::onBus(GDBusConnection* connection, const std::string&)
{
    connection_ = connection;
}

void BoardHmi::setState(const std::string& part, const std::string& reason)
{
    board_.set(part, reason.empty() ? State::kUp : State::kAbsent, reason);
}

void BoardHmi::onSignal(const std::string& signal, GVariant* arguments)
{
    guchar first = 0;
    guchar second = 0;
    gboolean isOn = FALSE;
    if (g_variant_is_of_type(arguments, G_VARIANT_TYPE("(b)"))) {
        g_variant_get(arguments, "(b)", &isOn);
    } else if (g_variant_is_of_type(arguments, G_VARIANT_TYPE("(y)"))) {
        g_variant_get(arguments, "(y)", &first);
    } else if (g_variant_is_of_type(arguments, G_VARIANT_TYPE("(yy)"))) {
        g_variant_get(arguments, "(yy)", &first, &second);
    } else {
        return;
    }
    if (signal == "OnAutoTestVolumeChangeSignal") {
        setVolume(first);
    } else if (signal == "OnAutoTestSetEqSwitchSignal") {
        setEqualizer(isOn != FALSE);
    } else if (signal == "OnAutoTestMediaPlayActionSignal") {
        act(first, second);
    } else if (signal == "OnAutoTestMediaSelectTrackSignal") {
        select(first, second);
    } else if (signal == "OnAutoTestGetMediaTrackIndexSignal") {
        reportTrack(first);
    }
}

void BoardHmi::setVolume(int steps)
{
    if (mixer_) {
        mixer_->setVolume(steps);
    } else {
        runtime::report(fmt::format("volume {}: the section [audio] is off", steps));
    }
}

void BoardHmi::setEqualizer(bool isOn)
{
    if (mixer_ && !config_.hmi->eqSwitch.empty()) {
        mixer_->setSwitch(config_.hmi->eqSwitch, isOn);
    } else {
        runtime::report("equalizer: the section [audio] is off, or 'eq-switch' of the section [hmi] is missing");
    }
}

const BoardHmi::Player* BoardHmi::playerOf(int mediaType) const
{
    const auto found = players_.find(mediaType);
    if (found == players_.end()) {
        runtime::report(fmt::format("media type {}: 'players' of the section [hmi] names no player", mediaType));
        return nullptr;
    }
    return &found->second;
}

void BoardHmi::act(int mediaType, int action)
{
    const Player* const player = playerOf(mediaType);
    const auto& actions = config_.hmi->actions;
    if (player != nullptr && 1 <= action && action <= std::ssize(actions)) {
        player->object->call(actions[static_cast<std::size_t>(action - 1)], nullptr, kHmiDeadline);
    }
}

void BoardHmi::withTracks(const Player& player, std::function<void(const std::vector<std::string>& tracks)> action)
{
    auto address = addressOfPlayer(player.name, "TrackList");
    GVariant* const property = g_variant_new("(ss)", address.interface.c_str(), "Tracks");
    address.interface = "org.freedesktop.DBus.Properties";
    // Asked for each time: players only say that the list has changed.
    callService(loop_, connection_, address, "Get", property, kHmiDeadline,
                [action = std::move(action)](GVariant* result, const std::string&) {
                    std::vector<std::string> tracks;
                    GVariant* value = nullptr;
                    if (result != nullptr && g_variant_is_of_type(result, G_VARIANT_TYPE("(v)"))) {
                        g_variant_get(result, "(v)", &value);
                    }
                    const host::GlibPtr<GVariant> owner(value);
                    if (value != nullptr && g_variant_is_of_type(value, G_VARIANT_TYPE_OBJECT_PATH_ARRAY)) {
                        const gchar** const all = g_variant_get_objv(value, nullptr);
                        for (const gchar** each = all; *each != nullptr; ++each) {
                            tracks.emplace_back(*each);
                        }
                        g_free(all);
                    }
                    action(tracks);
                });
}

void BoardHmi::select(int mediaType, std::size_t track)
{
    const Player* const player = playerOf(mediaType);
    if (player == nullptr) {
        return;
    }
    withTracks(*player, [this, player, track](const std::vector<std::string>& tracks) {
        if (track >= tracks.size()) {
            runtime::report(
                fmt::format("{}: expected one of its {} tracks, got the index {}", player->name, tracks.size(), track));
            return;
        }
        callService(loop_, connection_, addressOfPlayer(player->name, "TrackList"), "GoTo",
                    g_variant_new("(o)", tracks[track].c_str()), kHmiDeadline, {});
    });
}

void BoardHmi::reportTrack(int mediaType)
{
    const Player* const player = playerOf(mediaType);
    if (player == nullptr) {
        return;
    }
    const auto metadata = player->object->property("Metadata", G_VARIANT_TYPE_VARDICT);
    std::string id;
    std::int32_t number = -1;
    if (metadata) {
        const char* text = nullptr;
        if (g_variant_lookup(metadata.get(), "mpris:trackid", "&o", &text) ||
            g_variant_lookup(metadata.get(), "mpris:trackid", "&s", &text)) {
            id = text;
        }
        g_variant_lookup(metadata.get(), "xesam:trackNumber", "i", &number);
    }
    withTracks(*player, [this, player, mediaType, id, number](const std::vector<std::string>& tracks) {
        const auto found = std::ranges::find(tracks, id);
        const auto track = found == tracks.end() ? number : found - tracks.begin();
        constexpr int kMostTracks = 255;
        if (track < 0 || track > kMostTracks) {
            runtime::report(fmt::format("{}: expected a track from 0 to {} in its list or metadata, got {}",
                                        player->name, kMostTracks, track < 0 ? "none" : std::to_string(track)));
            return;
        }
        callEngineering("auto_test_set_track_index", mediaType, static_cast<std::size_t>(track));
    });
}

void BoardHmi::reportKey(int code, std::chrono::microseconds held)
{
    const auto key = config_.hmi->keys.find(code);
    if (key != config_.hmi->keys.end() && isServed_) {
        callEngineering("auto_test_feedback_key_event", key->second,
                        held >= config_.hmi->longPress ? kLongPress : kShortPress);
    }
}

void BoardHmi::callEngineering(const char* method, int first, std::size_t second)
{
    callService(loop_, connection_, kEngineering, method,
                g_variant_new("(yy)", static_cast<guchar>(first), static_cast<guchar>(second)), kHmiDeadline, {});
}

}  // namespace unit
