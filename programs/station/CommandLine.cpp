#include <fmt/format.h>

#include <sstream>

#include "programs/Cli.h"
#include "programs/station/Station.h"
#include "programs/station/Tool.h"

namespace programs::station_tool {

void setUp(Tool& tool)
{
    CLI::App& app = tool.app;
    app.name(kProgram);
    setUpHelp(app);
    app.require_subcommand(1);
    app.fallthrough();
    app.add_flag("--json", tool.json, "Print data as JSON, one object per line");
    app.add_option("--config", tool.station->given,
                   "Station's file; by default $ENGINEERING_STATION, else /etc/engineering/station.toml")
        ->type_name("FILE");
    std::string footer =
        "Examples:\n"
        "  engineering-station send test.set-mode mode=on\n"
        "  engineering-station plan run smoke\n"
        "\n"
        "Exit status:";
    for (const StatusMeaning& each : kStatusMeanings) {
        footer += fmt::format("\n{:6}  {}", static_cast<int>(each.status), each.meaning);
    }
    app.footer(footer);
    for (AddVerb* const add : kVerbs) {
        add(tool);
    }
}

std::optional<int> parseCommandLine(CLI::App& app, int argc, char** argv)
{
    try {
        readCommandLine(app, argc, argv);
        return std::nullopt;
    } catch (const CLI::Success& request) {
        std::ostringstream text;
        const int status = app.exit(request, text, text);
        const bool json = app.get_option("--json")->as<bool>();
        if (json && dynamic_cast<const CLI::CallForVersion*>(&request) != nullptr) {
            printJson({{"program", kProgram}, {"version", ENGINEERING_VERSION}});
        } else {
            printText(text.str(), json);
        }
        return status;
    } catch (const CLI::ParseError& error) {
        return printError(explain(app, error), "user", kWrongUse, app.get_option("--json")->as<bool>());
    }
}

}  // namespace programs::station_tool
