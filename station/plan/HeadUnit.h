#pragma once

#include <stdexcept>
#include <string>

namespace station::plan {

/// The simulated head unit refused or did not answer; one line.
class HeadUnitError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// The simulated head unit, where there is one. All functions may be called from any thread and return within seconds.
class HeadUnit
{
public:
    virtual ~HeadUnit() = default;

    virtual bool present() = 0;
    /// Replaces a value of the state. Throws HeadUnitError.
    virtual void set(const std::string& path, const std::string& json) = 0;
    /// Raises an event and returns after it has been delivered. Throws HeadUnitError.
    virtual void raise(const std::string& event, const std::string& json) = 0;
};

}  // namespace station::plan
