#pragma once

#include <functional>
#include <memory>
#include <string>

namespace line {

class Line;

/// The line on the session bus. Everything runs in the default main context.
class LineBus
{
public:
    /// @param line not owned, outlives this object
    /// @param report gets a line for the user if the bus is lost later
    LineBus(Line& line, std::function<void(const std::string&)> report);
    ~LineBus();
    LineBus(const LineBus&) = delete;
    LineBus& operator=(const LineBus&) = delete;

    /// @returns why the line is not on the bus, in one line; empty if it is.
    std::string start();

private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace line
