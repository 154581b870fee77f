#include "programs/station/ExitStatuses.h"

namespace programs::station_tool {

std::string exitStatusText()
{
    std::string text = "Exit status:";
    for (const ExitStatus& each : kExitStatuses) {
        const std::string number = std::to_string(each.status);
        text += "\n" + std::string(6 - number.size(), ' ') + number + "  " + each.meaning;
    }
    return text;
}

}  // namespace programs::station_tool
