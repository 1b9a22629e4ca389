#include "stage/cli/commands.h"
#include "stage/cli/text_table.h"
#include "stage/words/help_text.h"

namespace {

/// For the commands that print tables.
void AddWideFlag(CLI::App& command) {
    const std::vector<std::string> withTables{"import",  "edit list", "info",     "take list", "take show",
                                              "devices", "log list",  "log show", "midi list", "score list"};
    for (const std::string& words : withTables) {
        std::string name = command.get_name();
        if (command.get_parent()->get_parent() != nullptr) name = command.get_parent()->get_name() + ' ' + name;
        if (name == words)
            command.add_flag_callback("--wide", SetWideTables, "Print tables whole, however wide they are");
    }
    for (CLI::App* sub : command.get_subcommands({}))
        AddWideFlag(*sub);
}

}  // namespace

void AddAllCommands(CLI::App& app, int& exitCode) {
    app.set_help_flag("-h,--help", "Print this help and end");
    app.require_subcommand(1);
    app.formatter(std::make_shared<stage::HelpFormatter>());
    AddImportCommand(app, exitCode);
    AddEditCommand(app, exitCode);
    AddInfoCommand(app, exitCode);
    AddCheckCommand(app, exitCode);
    AddRenderCommand(app, exitCode);
    AddPlayCommand(app, exitCode);
    AddPasscodeCommand(app, exitCode);
    AddTakeCommand(app, exitCode);
    AddDevicesCommand(app, exitCode);
    AddPlotCommand(app, exitCode);
    AddLogCommand(app, exitCode);
    AddComposeCommand(app, exitCode);
    AddMidiCommand(app, exitCode);
    AddScoreCommand(app, exitCode);
    AddCompletionCommand(app, exitCode);
    AddManualCommand(app, exitCode);
    for (CLI::App* command : app.get_subcommands({}))
        AddWideFlag(*command);
    // Last: a command begins with the footer of the one above it.
    app.footer(
        "A show is a directory: the music in a .showdata file, the production's edits in .logdata files, one a "
        "version, and settings.json.\n\n"
        "Examples:\n"
        "  stage import songs/ -o myshow --title \"My Show\"\n"
        "  stage edit myshow add vamp --song 3 --from 12 --to 15\n"
        "  stage info myshow --song 3\n"
        "  stage render myshow --song 3 --out song3.wav");
}
