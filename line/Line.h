#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "host/Glib.h"
#include "line/Faults.h"
#include "line/Lane.h"
#include "platform/runtime/Terminal.h"
#include "protocol/catalogue/Catalogue.h"
#include "station/Connection.h"
#include "station/SerialLink.h"
#include "station/trace/Pcapng.h"
#include "station/trace/Secrets.h"

namespace line {

/// A line between a unit's port and a link that a station opens, with faults. When the port goes, the line hangs up the
/// station's end, and is there again with the port. Everything runs in the main context of the thread that made it.
class Line
{
public:
    struct Options {
        station::PortSpec from;
        std::string to;
        std::uint64_t seed = 0;
        Script script;
        Change change;        ///< after the beginning of the script
        std::string capture;  ///< file to write; empty for none
        std::string program;  ///< in the capture: "engineering-line 1.0.0"
        /// Gets a line for the user when an end goes or comes back, or the capture cannot be written.
        std::function<void(const std::string&)> report;
    };

    /// Opens both ends and begins. Throws std::runtime_error with one line that names the end or the file.
    explicit Line(Options options);
    ~Line();
    Line(const Line&) = delete;
    Line& operator=(const Line&) = delete;

    /// @returns the link's absolute path.
    const std::string& path() const { return path_; }

    const LineFaults& faults() const { return faults_; }
    void change(const Change& change);
    void clearFaults();

    /// Takes the station's end away for this time.
    void hangUp(double seconds);

    /// @returns {"to_unit": {"frames": 12, …}, "to_station": {…}, "hang_ups": 0}.
    nlohmann::ordered_json counts() const;
    void clearCounts();

    /// @returns why the capture is not complete; empty if it is.
    const std::string& captureFailure() const { return captureFailure_; }

private:
    using Clock = Lane::Clock;

    /// What GLib watches for us.
    struct Watch {
        int descriptor = -1;
        gpointer tag = nullptr;  // null: nothing
    };

    static gboolean onReady(GSource* source, GSourceFunc, gpointer);
    std::unique_ptr<station::SerialLink> openPort() const;
    void step();
    void runScript(Clock::time_point now);
    void restoreEnds(Clock::time_point now);
    void readPort(Clock::time_point now);
    void readLink(Clock::time_point now);
    void writePort(Clock::time_point now);
    void writeLink(Clock::time_point now);
    void losePort(const std::string& reason);
    void hangUpFor(double seconds);
    void takeLinkAway(const std::string& reason);
    void arm();
    void watch(Watch& watch, int descriptor, bool full, bool writes);
    void setFaults();
    void trace(Direction direction, const station::ScannedPiece& piece, const std::string& deed);
    void trace(const station::TraceEvent& event);

    const Options options_;
    Lane toUnit_;
    Lane toStation_;
    LineFaults faults_;
    std::unique_ptr<station::pcapng::File> capture_;
    std::string captureFailure_;
    station::SecretMask mask_{protocol::catalogue::groups()};
    std::unique_ptr<station::SerialLink> port_;          // null: lost
    std::unique_ptr<runtime::PseudoTerminal> terminal_;  // null: hung up
    std::shared_ptr<const host::Descriptor> link_;       // the line's end of terminal_
    const std::string path_;
    std::optional<Clock::time_point> awayUntil_;  // of a terminal that is hung up on purpose
    Clock::time_point tryAgain_;                  // when to look for an end that is away
    bool complained_ = false;                     // that the link cannot be made again
    std::uint64_t hangUps_ = 0;
    const Clock::time_point began_ = Clock::now();
    std::size_t nextEvent_ = 0;  // of the script
    host::GlibPtr<GSource> source_;
    Watch portWatch_;
    Watch linkWatch_;
};

}  // namespace line
