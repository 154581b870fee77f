#pragma once

#include <memory>

#include "station/plan/Surroundings.h"

namespace programs::station_tool {

/// The simulated head unit on the session bus, com.zent.linux.headunit. Connects when it is asked for first.
class HeadUnitClient : public station::plan::HeadUnit
{
public:
    HeadUnitClient();
    ~HeadUnitClient() override;

    bool present() override;
    void set(const std::string& path, const std::string& json) override;
    void raise(const std::string& event, const std::string& json) override;

private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace programs::station_tool
