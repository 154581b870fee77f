#include "programs/station/plan/PlanFile.h"

#include <cstdio>
#include <system_error>

#include "protocol/catalogue/Catalogue.h"
#include "station/record/StoredFile.h"

namespace programs::station_tool {

PlanFile readPlan(const std::string& path)
{
    PlanFile file{path, {}, {}};
    try {
        const std::string text = station::plan::readFile(path);
        file.sha256 = station::record::sha256(text);
        file.loaded = station::plan::load(text, path, protocol::catalogue::groups());
    } catch (const std::system_error& error) {
        file.loaded.problems.push_back({1, 1, "cannot be read: " + error.code().message()});
    }
    return file;
}

std::string shippedPlans(const std::filesystem::path& program)
{
    const auto folder = program.parent_path();
    for (const std::filesystem::path& each : {std::filesystem::path(kShippedPlans), folder / "../../.." / kShippedPlans,
                                              folder / "../share/engineering/plans"}) {
        std::error_code error;
        if (std::filesystem::is_directory(each, error)) {
            return each.lexically_normal().string();
        }
    }
    return kShippedPlans;
}

void printProblems(const std::string& path, const protocol::toml_file::Problems& problems, const char* kind)
{
    for (auto problem : problems) {
        problem.text.insert(0, kind);
        std::fprintf(stderr, "%s\n", format(path, problem).c_str());
    }
}

}  // namespace programs::station_tool
