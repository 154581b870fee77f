#pragma once

#include <KYRLocation.h>

#include <string>
#include <string_view>

#include "platform/linux/Loop.h"
#include "platform/linux/Status.h"
#include "platform/linux/UnitConfig.h"

namespace unit {

/// Location over gpsd: what it reports goes to the listeners, on the loop's thread. Latitude and longitude are in
/// 10^-7 degrees, signals in dB-Hz. A lost fix is told as latitude 0, longitude 0, so that no station takes an old
/// position for a new one.
class Location : public KYRLocation
{
public:
    /// @param loop not owned; stopped before this object is destroyed
    Location(UnitConfig::Location config, Loop& loop, StatusBoard& board);

    int InitInstance() override { return 1; }

private:
    void connect();
    void read();
    void take(std::string_view bytes);
    void report(const std::string& line);
    void lost(const std::string& reason);

    const UnitConfig::Location config_;
    Loop& loop_;
    StatusBoard& board_;

    // Of the loop.
    host::GlibPtr<GSocketConnection> connection_;
    host::GlibPtr<GSource> retry_;
    std::string received_;  // the beginning of a line
    bool hasFix_ = false;
};

}  // namespace unit
