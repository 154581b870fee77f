#pragma once

#include <filesystem>
#include <memory>
#include <stdexcept>

#include "platform/runtime/Descriptor.h"

namespace runtime {

/// A terminal that cannot be had; what() says in one line which and why.
class TerminalError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// Where a line comes from: opened anew whenever it was lost.
class Terminal
{
public:
    virtual ~Terminal() = default;

    /// Opens the line, raw and non-blocking. Whoever holds what it returns keeps the line open.
    /// @throws TerminalError
    virtual std::shared_ptr<const Descriptor> open() = 0;

    /// Removes what leads the station to the line. May be called more than once and from any thread.
    virtual void withdraw() = 0;

    /// @returns the absolute path under which the line is known.
    virtual const std::filesystem::path& path() const = 0;
};

}  // namespace runtime
