#pragma once

#include <map>
#include <memory>
#include <string>

#include "station/Interrupt.h"
#include "station/instrument/Equipment.h"

namespace station::instrument {

/// The instruments of a station, which speak SCPI: a line of text for a command, and one for its answer. Opens each at
/// its first use and keeps it open. Any thread; an instrument serves one command at a time.
class Instruments
{
public:
    explicit Instruments(Equipment equipment);
    ~Instruments();
    Instruments(const Instruments&) = delete;
    Instruments& operator=(const Instruments&) = delete;

    const Equipment& equipment() const { return equipment_; }

    struct Answer {
        /// Empty if the command is not a query.
        std::string text;
        /// The answer to *IDN?.
        std::string identity;
    };

    /// Sends a command and asks for the instrument's errors. After a failure, the next call opens the instrument anew,
    /// so that a late answer is not taken for the next one's.
    /// @param name one of `equipment().instruments`
    /// Throws Interrupted, and protocol::LineError: kNoAnswer if no answer comes within `timeout`, else kError.
    Answer ask(const std::string& name, const std::string& command, Duration timeout, const Interrupt& interrupt);

private:
    struct Instrument;

    const Equipment equipment_;
    std::map<std::string, std::unique_ptr<Instrument>, std::less<>> instruments_;
};

/// @returns whether a command asks for an answer.
bool isQuery(std::string_view command);

}  // namespace station::instrument
