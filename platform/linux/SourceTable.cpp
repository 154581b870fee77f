#include "platform/linux/SourceTable.h"

#include <fmt/format.h>

#include "platform/linux/ApplicationManager.h"
#include "platform/runtime/Listeners.h"
#include "platform/runtime/Report.h"

namespace unit {
namespace {

using Kind = UnitConfig::AudioSource::Kind;

constexpr std::chrono::seconds kSourceDeadline{10};

std::string partOf(int source)
{
    return "source " + std::to_string(source);
}

std::string textOf(const BusObject& object, const char* property)
{
    const auto value = object.property(property, G_VARIANT_TYPE_STRING);
    return value ? g_variant_get_string(value.get(), nullptr) : "";
}

}  // namespace

BusObject::Address addressOfPlayer(const std::string& player, const std::string& interface)
{
    return {"org.mpris.MediaPlayer2." + player, "/org/mpris/MediaPlayer2", "org.mpris.MediaPlayer2." + interface};
}

SourceTable::SourceTable(const std::map<int, UnitConfig::AudioSource>& table, Bus& systemBus, Bus& sessionBus,
                         StatusBoard& board)
    : loop_(systemBus.loop()), status_(board, "source")
{
    for (const auto& [source, row] : table) {
        Entry& entry = entries_[source];
        entry.source = row;
        entry.isThere = row.kind == Kind::kNone;
        if (!entry.isThere) {
            status_.add(partOf(source));
            follow(source, entry, row.kind == Kind::kUnit ? systemBus : sessionBus);
        }
    }
    status_.show();
}

void SourceTable::follow(int source, Entry& entry, Bus& bus)
{
    const bool isUnit = entry.source.kind == Kind::kUnit;
    entry.object = std::make_unique<BusObject>(
        bus, isUnit ? addressOfUnit(entry.source.name) : addressOfPlayer(entry.source.name, "Player"),
        BusObject::Events{.presence =
                              [this, source, isUnit, &entry](const std::string& reason) {
                                  if (isUnit && reason.empty()) {
                                      return;  // its properties follow
                                  }
                                  setThere(source, entry, reason);
                                  if (!isUnit && !reason.empty()) {
                                      lose(source);
                                  }
                              },
                          .properties =
                              [this, source, isUnit, &entry] {
                                  if (isUnit) {
                                      readUnit(source, entry);
                                  } else if (textOf(*entry.object, "PlaybackStatus") == "Playing") {
                                      plays(source);
                                  }
                              }});
}

void SourceTable::readUnit(int source, Entry& entry)
{
    const bool isInstalled = textOf(*entry.object, "LoadState") != "not-found";
    setThere(source, entry, isInstalled ? "" : "systemd has no " + entry.source.name + ", install or write it");
    const std::string state = textOf(*entry.object, "ActiveState");
    if (state == "active") {
        plays(source);
    } else if (state == "failed") {
        lose(source);
    }
}

void SourceTable::setThere(int source, Entry& entry, const std::string& reason)
{
    entry.isThere = reason.empty();
    status_.set(partOf(source), reason);
}

int SourceTable::request(int source)
{
    const auto entry = entries_.find(source);
    if (entry == entries_.end() || !entry->second.isThere) {
        return 0;
    }
    const int from = current_.exchange(source);
    loop_.post([this, from, source] { switchOver(from, source); });
    return 1;
}

void SourceTable::switchOver(int from, int to)
{
    // Two sources may share a unit or a player.
    const auto& target = entries_.at(to);
    if (const auto old = entries_.find(from); from != to && old != entries_.end()) {
        if (old->second.object && old->second.source != target.source) {
            const bool isUnit = old->second.source.kind == Kind::kUnit;
            old->second.object->call(isUnit ? "Stop" : "Pause", isUnit ? g_variant_new("(s)", "replace") : nullptr,
                                     kSourceDeadline);
        }
        tell(from, kStopped);
    }
    if (target.object) {
        const bool isUnit = target.source.kind == Kind::kUnit;
        target.object->call(isUnit ? "Start" : "Play", isUnit ? g_variant_new("(s)", "replace") : nullptr,
                            kSourceDeadline, [this, to, &target](GVariant*, const std::string& error) {
                                if (!error.empty()) {
                                    runtime::report(fmt::format("{}: {}: {}", partOf(to), target.source.name, error));
                                    lose(to);
                                }
                            });
    }
    if (from != to) {
        tell(to, kPlays);
    }
}

/// What plays when no source was requested is the current one.
void SourceTable::plays(int source)
{
    int none = KYRSource::SOURCE_NONE;
    if (current_.compare_exchange_strong(none, source)) {
        tell(source, kPlays);
    }
}

void SourceTable::lose(int source)
{
    int lost = source;
    if (current_.compare_exchange_strong(lost, KYRSource::SOURCE_NONE)) {
        tell(source, kStopped);
    }
}

void SourceTable::tell(int source, int status)
{
    runtime::tellListeners(*this, [&](IKYRSourceListener& listener) {
        listener.OnSourceStatusChanged(static_cast<KYRSource::SourceID>(source),
                                       static_cast<KYRSource::SourceStatus>(status));
    });
}

}  // namespace unit
