#pragma once

#include <string>

#include "protocol/catalogue/Model.h"
#include "station/trace/Trace.h"

/// Masks the values that the catalogue calls secret before they are shown or recorded: each byte becomes '*'.
namespace station {

/// Masks the events of one line; needs all of them, in order.
class SecretMask
{
public:
    /// @param groups outlive the object.
    explicit SecretMask(protocol::catalogue::Groups groups) : groups_(groups) {}

    /// @returns the event as it may be shown: the same length, with a good checksum where it had one. Of a damaged
    /// frame, whose code may be damaged too, all parameters are masked when it comes after a command with a secret.
    TraceEvent operator()(TraceEvent event);

private:
    protocol::catalogue::Groups groups_;
    bool afterSecret_ = false;
};

/// @returns the frame as people read it, `8A 0F [** **]` where it holds a secret.
std::string formatMasked(protocol::catalogue::Groups groups, const protocol::Frame& frame);

}  // namespace station
