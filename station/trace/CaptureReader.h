#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <istream>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "protocol/Errors.h"
#include "station/DecodeInput.h"
#include "station/FrameScanner.h"
#include "station/trace/Trace.h"

namespace station {

/// A form of captures: its name for --format, and its name for people.
struct CaptureFormat {
    const char* name;
    const char* title;
};

inline constexpr std::array kCaptureFormats{
    CaptureFormat{"pcapng", "pcapng"},
    CaptureFormat{"pcap", "pcap"},
    CaptureFormat{"saleae", "Saleae CSV"},
    CaptureFormat{"sigrok", "sigrok UART annotations"},
    CaptureFormat{"xxd", "xxd"},
    CaptureFormat{"hexdump", "hexdump -C"},
    CaptureFormat{"log", "a log with TX: and RX:"},
    CaptureFormat{"hex", "hexadecimal text"},
    CaptureFormat{"raw", "raw bytes with a frame"},
};

struct CaptureTerms {
    /// One of kCaptureFormats, or "auto": the beginning of the capture tells.
    std::string format = "auto";
    /// The channel that the station sends on, such as "RX" or an analyzer's name; all others are the unit's. Empty: a
    /// channel named TX is the station's and one named RX the unit's; in others, bit 7 of cmd_one tells the direction.
    std::string stationChannel = {};
};

struct CapturePiece {
    /// Nothing for bytes outside whole frames. `at` is 1970 without a time, and counts from 1970 where the capture's
    /// times count from its own beginning.
    std::optional<TraceEvent> event;
    bool timed = false;
    /// Without an event: kGarbage or kIncomplete.
    ScannedPiece noise = {};
};

/// Reads a capture in any of the forms, from its beginning to its end, with memory that does not grow with it.
class CaptureReader
{
public:
    /// How much of a capture is read to find its form.
    static constexpr std::size_t kBeginning = 65536;

    /// Throws UserError if no form fits.
    /// @param in binary; outlives the reader. The reader makes it throw what its buffer throws.
    /// @param name of the capture, for error messages.
    CaptureReader(std::istream& in, std::string name, CaptureTerms terms);
    ~CaptureReader();

    /// @returns the next piece, nothing at the end. Throws UserError at the place where the capture is broken, after it
    /// has returned every piece before that place.
    std::optional<CapturePiece> next();

    /// @returns the name of the capture's form.
    const std::string& format() const { return format_; }

    /// @returns what the reader has ignored so far, as in "3 lines without bytes"; empty for nothing.
    std::string ignored() const;

    class Source;
    class TextForm;

private:
    struct Channel {
        std::string name;
        std::optional<TraceEvent::Kind> direction;  // kSent or kReceived
        FrameScanner scanner;
    };

    void read();
    void readLine();
    Channel& channel(const std::string& name);
    void emit(Channel& from, std::optional<std::chrono::system_clock::time_point> at);
    void emit(std::vector<ScannedPiece> pieces, std::optional<TraceEvent::Kind> direction,
              std::optional<std::chrono::system_clock::time_point> at);
    void flush();
    void finish();
    [[noreturn]] void fail(const std::string& what) const;

    std::string name_;
    CaptureTerms terms_;
    std::string format_;
    std::unique_ptr<Source> source_;
    std::unique_ptr<TextForm> text_;  // nullptr: raw bytes, packets or hexadecimal text
    HexText hex_;
    std::map<std::string, Channel> channels_;
    std::deque<CapturePiece> ready_;
    std::string line_;
    std::size_t lineNumber_ = 0;
    std::size_t linesWithoutBytes_ = 0;
    bool ended_ = false;
    std::optional<protocol::UserError> failure_;  // thrown behind the pieces in ready_
};

}  // namespace station
