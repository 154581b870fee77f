#include "platform/linux/SourceTable.h"

#include <fmt/format.h>

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
        }
        if (row.kind == Kind::kUnit) {
            followUnit(source, entry, systemBus);
        } else if (row.kind == Kind::kPlayer) {
            followPlayer(source, entry, sessionBus);
        }
    }
    status_.show();
}

void SourceTable::followUnit(int source, Entry& entry, Bus& systemBus)
{
    entry.unit = std::make_unique<SystemdUnit>(
        systemBus, entry.source.name,
        SystemdUnit::Events{
            .state =
                [this, source](const std::string& state) {
                    if (state == "active") {
                        plays(source);
                    } else if (state == "failed") {
                        lose(source);
                    }
                },
            .presence = [this, source, &entry](const std::string& reason) { setThere(source, entry, reason); }});
}

void SourceTable::followPlayer(int source, Entry& entry, Bus& sessionBus)
{
    entry.player = std::make_unique<BusObject>(
        sessionBus, addressOfPlayer(entry.source.name, "Player"),
        BusObject::Events{.presence =
                              [this, source, &entry](const std::string& reason) {
                                  setThere(source, entry, reason);
                                  if (!reason.empty()) {
                                      lose(source);
                                  }
                              },
                          .properties =
                              [this, source, &entry] {
                                  const auto status = entry.player->property("PlaybackStatus", G_VARIANT_TYPE_STRING);
                                  if (status && g_variant_get_string(status.get(), nullptr) == std::string("Playing")) {
                                      plays(source);
                                  }
                              }});
}

void SourceTable::Entry::call(bool starts, BusObject::Done done) const
{
    if (unit) {
        unit->call(starts ? "Start" : "Stop", std::move(done));
    } else if (player) {
        player->call(starts ? "Play" : "Pause", nullptr, kSourceDeadline, std::move(done));
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
        if (old->second.source != target.source) {
            old->second.call(false);
        }
        tell(from, kStopped);
    }
    target.call(true, [this, to, &target](GVariant*, const std::string& error) {
        if (!error.empty()) {
            runtime::report(fmt::format("{}: {}: {}", partOf(to), target.source.name, error));
            lose(to);
        }
    });
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
