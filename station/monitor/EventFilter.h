#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "protocol/catalogue/Codec.h"
#include "protocol/catalogue/Model.h"
#include "station/trace/Trace.h"

namespace station {

/// Says which frames somebody wants to see:
///
///     filter      = alternative { "," alternative }     one of them holds
///     alternative = term { " " term }                   all of them hold
///     term        = [ "!" ] word                        "!": the word does not hold
///     word        = "sent" | "received" | "corrupt"     direction
///                 | GROUP                               "tuner"
///                 | GROUP.COMMAND | GROUP.NOTICE        "tuner.play": the command and what answers it
///                 | HEX | HEX.HEX                       "02", "02.01": codes on the wire, bit 7 of the group aside
///
/// That the device went or came back passes every filter.
class EventFilter
{
public:
    /// Passes everything.
    EventFilter() = default;

    /// Throws std::invalid_argument with one line that says which word is wrong.
    /// @param groups outlive the filter.
    EventFilter(protocol::catalogue::Groups groups, std::string_view expression);

    bool passes(const TraceEvent& event, const protocol::catalogue::Decoded& decoded) const;

private:
    struct Term {
        bool negated = false;
        std::optional<TraceEvent::Kind> kind;
        const protocol::catalogue::Group* group = nullptr;
        const protocol::catalogue::Command* command = nullptr;
        const protocol::catalogue::Notice* notice = nullptr;
        std::optional<std::uint8_t> cmdOne;  // without bit 7
        std::optional<std::uint8_t> cmdTwo;
    };
    using Alternative = std::vector<Term>;

    static Term parse(protocol::catalogue::Groups groups, std::string_view word);
    static bool holds(const Term& term, const TraceEvent& event, const protocol::catalogue::Decoded& decoded);

    std::vector<Alternative> alternatives_;
};

}  // namespace station
