#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "station/trace/Trace.h"

namespace station {

/// The last frame of each command on a line, what changed in it, and how often it comes. Its size is bounded.
class Changes
{
public:
    using Time = std::chrono::system_clock::time_point;

    /// Of more commands, those that came last are kept.
    static constexpr std::size_t kMostRows = 256;

    struct Row {
        TraceEvent event;  ///< the last one
        std::string meaning;
        std::size_t count = 0;
        /// The parameter bytes that differ from the value before, and since when.
        std::vector<std::size_t> changed;
        Time changedAt;
        /// Whether the last frame brought a value that the frame before did not have.
        bool fresh = false;

        /// @returns frames per second, of the last ones; falls while none comes. 0 for a single frame.
        double rate(Time now) const;

    private:
        friend Changes;
        std::deque<Time> times_;
    };

    /// In this order the rows are shown: group without bit 7, command, whether the unit sent it, meaning of the code.
    using Key = std::tuple<std::uint8_t, std::uint8_t, bool, std::string>;

    /// @param event with a good frame
    /// @param name of its command, empty if unknown; two commands may share the code of their reply.
    const Row& on(const TraceEvent& event, const std::string& name, std::string meaning);

    const std::map<Key, Row>& rows() const { return rows_; }

private:
    std::map<Key, Row> rows_;
};

}  // namespace station
