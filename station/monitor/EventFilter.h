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

/// Selects frames:
///
///     filter      = alternative { "," alternative }     one of them must hold
///     alternative = term { " " term }                   all of them must hold
///     term        = [ "!" ] word                        "!": the word must not hold
///     word        = "sent" | "received" | "corrupt"     direction
///                 | GROUP                               "tuner"
///                 | GROUP.COMMAND | GROUP.NOTICE        "tuner.play": the command and its replies
///                 | HEX | HEX.HEX                       "02", "02.01": codes on the wire, without bit 7 of the group
///
/// Events without a frame pass every filter.
class EventFilter
{
public:
    /// Throws UserError with the word that is wrong.
    /// @param expression passes everything if it is empty.
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
