#include <fmt/format.h>

#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>

#include "kit/path.h"
#include "kit/try_read.h"
#include "stage/cli/commands.h"
#include "stage/cli/text_table.h"
#include "stage/import/musicxml/score_file.h"
#include "stage/import/source_scores.h"
#include "stage/show/show_check.h"
#include "stage/show/show_directory.h"
#include "stage/web/web_access.h"
#include "tavo_midi/show_data.h"

namespace {

/// What the page needs: passcodes, and the scores that songs were imported from.
void AppendPageProblems(const std::string& showPath, std::vector<std::string>& problems) {
    kit::TryRead(problems,
                 [&] { return stage::ReadPasscodes(kit::path::Join(showPath, stage::WebPasscodes::FileName)); });
    std::vector<std::string> songs;
    try {
        songs = tavo_midi::ShowData(stage::ScanShowDirectory(showPath).ShowDataPath()).GetSongNumbers();
    } catch (const std::exception&) {
        return;  // The check of the show has said so.
    }
    for (const std::string& song : songs) {
        const std::string score = stage::FindSourceScore(showPath, song);
        if (score.empty()) continue;
        kit::TryRead(problems,
                     [&] { return stage::musicxml::ReadScore(stage::ReadSourceScore(showPath, song), score); });
        kit::TryRead(problems, [&] { return stage::ReadScoreMeasures(showPath, song); });
    }
}

void PrintProblems(const stage::ShowProblems& found) {
    for (const std::string& problem : found.problems)
        std::cout << MakePrintable(problem) << '\n';
    if (found.problems.empty()) std::cout << "nothing is wrong\n";
    if (found.otherVersions.empty()) return;
    std::cout << "\nIn versions that are not in use:\n";
    for (const std::string& problem : found.otherVersions)
        std::cout << "  " << MakePrintable(problem) << '\n';
}

}  // namespace

void AddCheckCommand(CLI::App& app, int& exitCode) {
    auto showPath = std::make_shared<std::string>();
    auto asJson = std::make_shared<bool>(false);
    CLI::App* check = app.add_subcommand("check", "Reads everything in a show and names every problem");
    check->add_option("SHOW", *showPath, "The show directory")->required();
    check->add_flag("--json", *asJson, "Print it as JSON for other programs");
    check->footer(
        "Every problem is one line that names the file and the place. The program ends with 0 if there is none and "
        "with 1 otherwise; what is wrong in versions that are not in use is listed apart and does not count.\n"
        "\nExample:\n  stage check myshow");
    check->callback([showPath, asJson, &exitCode] {
        stage::ShowProblems found = stage::CheckShow(*showPath);
        AppendPageProblems(*showPath, found.problems);
        exitCode = found.problems.empty() ? 0 : 1;
        if (*asJson) {
            using Json = nlohmann::ordered_json;
            std::cout << Json{{"problems", found.problems}, {"otherVersions", found.otherVersions}}.dump(
                             -1, ' ', false, Json::error_handler_t::replace)
                      << '\n';
            return;
        }
        PrintProblems(found);
        std::cout.flush();
        if (!found.problems.empty())
            std::cerr << fmt::format("stage: the show has {} problem{}\n", found.problems.size(),
                                     found.problems.size() == 1 ? "" : "s");
    });
}
