#include <algorithm>
#include <filesystem>
#include <iostream>
#include <memory>
#include <stdexcept>

#include "kit/file.h"
#include "kit/path.h"
#include "kit/words.h"
#include "stage/cli/commands.h"
#include "stage/words/manual_page.h"

namespace {

void WritePages(const CLI::App& program, const std::string& folder) {
    std::filesystem::create_directories(folder);
    std::vector<const CLI::App*> commands = program.get_subcommands([](const CLI::App*) { return true; });
    commands.push_back(&program);
    for (const CLI::App* command : commands)
        kit::ReplaceFileDurably(kit::path::Join(folder, stage::MakeManualName(*command) + ".1"),
                                stage::MakeManualPage(*command, STAGE_VERSION));
}

const CLI::App& FindCommand(const CLI::App& program, const std::string& name) {
    if (name.empty()) return program;
    for (const CLI::App* command : program.get_subcommands([](const CLI::App*) { return true; }))
        if (command->get_name() == name) return *command;
    throw std::invalid_argument("there is no command " + kit::Quote(name));
}

}  // namespace

void AddManualCommand(CLI::App& app, int& /*exitCode*/) {
    auto name = std::make_shared<std::string>();
    auto folder = std::make_shared<std::string>();
    CLI::App* manual = app.add_subcommand("manual", "Prints a manual page, made of what --help says");
    manual->add_option("COMMAND", *name, "The command; without it the page of stage itself")->type_name("COMMAND");
    manual->add_option("--write", *folder, "Write all pages into a directory instead, for a package")->type_name("DIR");
    manual->footer("\nExamples:\n  stage manual --write build/man\n  stage manual play | man -l -");
    manual->callback([name, folder, &app] {
        if (folder->empty()) {
            std::cout << stage::MakeManualPage(FindCommand(app, *name), STAGE_VERSION);
        } else {
            WritePages(app, *folder);
        }
    });
}
