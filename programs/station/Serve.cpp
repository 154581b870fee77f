#include <fmt/format.h>
#include <poll.h>

#include <cstdio>

#include "programs/Cli.h"
#include "programs/station/Station.h"
#include "programs/station/Tool.h"
#include "programs/station/plan/HeadUnitClient.h"
#include "protocol/catalogue/Catalogue.h"
#include "station/serve/Api.h"

namespace programs::station_tool {

namespace {

/// Every question goes to a browser: see station::serve::Slots.
class NobodyToAsk : public station::plan::Prompter
{
public:
    std::optional<std::string> ask(const station::plan::Question&, station::Interrupt&) override { return {}; }
};

int serve(Tool& tool)
{
    const station::StationConfig& config = tool.station->config();
    if (config.slots.empty() || config.products.empty()) {
        throw protocol::UserError(fmt::format("{}: expected sections [[slot]] and [[product]], got {}",
                                              config.file.empty() ? "station.toml" : config.file,
                                              config.file.empty() ? "no file" : "none"));
    }
    station::serve::Slots* shown = nullptr;
    web::Events events(1024, [&shown] { return shown->snapshot().dump(); });
    NobodyToAsk prompter;
    HeadUnitClient headUnit;
    station::plan::Surroundings surroundings{protocol::catalogue::groups(), prompter, headUnit, config.unit.serial};
    surroundings.instruments = std::make_shared<station::instrument::Instruments>(config.equipment);
    station::serve::SlotsSettings settings;
    settings.slots = config.slots;
    settings.products = config.products;
    settings.values = {config.parameters};
    settings.equipment = config.equipment;
    settings.results = resultsFolder(tool, "");
    settings.station = tool.station->info("");
    settings.catalogueSha256 = protocol::catalogue::hash();
    settings.findPlan = [&tool](const std::string& plan) { return tool.station->findPlan(plan); };
    settings.publish = [&events](const std::string& type, const station::serve::Json& data) {
        events.publish(type, data.dump(-1, ' ', false, station::serve::Json::error_handler_t::replace));
    };
    station::serve::Slots slots(std::move(settings), surroundings);
    shown = &slots;
    station::serve::Api api(slots, events);
    web::Login login(config.accounts);
    web::ServerSettings face;
    face.address = config.web.address;
    face.port = config.web.port;
    face.names = config.web.names;
    if (!config.web.certificate.empty()) {
        face.certificate = readInput(config.web.certificate, tool.interrupt);
        face.key = readInput(config.web.key, tool.interrupt);
    }
    face.log = [](const std::string& line) { complain(kProgram, line); };
    const web::Server server(std::move(face), api.routes(), login);
    if (tool.json) {
        printJson({{"url", server.url()}});
    } else {
        std::puts(fmt::format("serving {}", server.url()).c_str());
    }
    std::fflush(stdout);
    pollfd end{tool.interrupt.descriptor(), POLLIN, 0};
    while (!tool.interrupt.requested()) {
        poll(&end, 1, -1);
    }
    return kPassed;
}

}  // namespace

void addServe(Tool& tool)
{
    CLI::App* const verb = tool.app.add_subcommand(
        "serve",
        "Serve the station to a browser: scan a unit, test it, see the verdict\n"
        "Slots, products, operators and the address stand in the station's file. SIGTERM and Ctrl-C end the runs with "
        "their teardown, then the server.");
    verb->footer("Examples:\n  engineering-station serve --config station.toml");
    verb->callback([&tool] { tool.action = [&tool] { return serve(tool); }; });
}

}  // namespace programs::station_tool
