#include <fmt/format.h>

#include <iostream>
#include <memory>

#include "stage/cli/commands.h"
#include "stage/cli/text_table.h"
#include "stage/show/show_check.h"

void AddCheckCommand(CLI::App& app, int& exitCode) {
    auto showPath = std::make_shared<std::string>();
    CLI::App* check = app.add_subcommand("check", "Reads everything in a show and names every problem");
    check->add_option("SHOW", *showPath, "The show directory")->required();
    check->footer(
        "\nEvery problem is one line that names the file and the place. The program ends with 0 if there is none and\n"
        "with 1 otherwise.\n"
        "\nExample:\n  stage check myshow");
    check->callback([showPath, &exitCode] {
        const std::vector<std::string> problems = stage::CheckShow(*showPath);
        for (const std::string& problem : problems)
            std::cout << MakePrintable(problem) << '\n';
        if (problems.empty()) {
            std::cout << "nothing is wrong\n";
            return;
        }
        std::cout.flush();
        std::cerr << fmt::format("stage: the show has {} problem{}\n", problems.size(),
                                 problems.size() == 1 ? "" : "s");
        exitCode = 1;
    });
}
