#include <cstdio>
#include <exception>
#include <iostream>
#include <string>

#include "stage/cli/commands.h"

namespace {

constexpr int Failed = 1;
constexpr int WrongUsage = 2;

void PrintProblem(std::string sentence) {
    for (char& c : sentence) {
        if (c == '\n' || c == '\r') c = ' ';
    }
    std::cerr << "stage: " << sentence << std::endl;
}

/// The innermost subcommand on the command line, so that the hint leads to the help that fits.
std::string FindChosenCommand(const CLI::App& app) {
    std::string words = "stage";
    for (const CLI::App* level = &app; !level->get_subcommands().empty();) {
        level = level->get_subcommands().front();
        words += ' ' + level->get_name();
    }
    return words;
}

int PrintUsageProblem(const CLI::App& app, const CLI::ParseError& problem) {
    std::string sentence = problem.what();
    while (!sentence.empty() && (sentence.back() == '.' || sentence.back() == '\n'))
        sentence.pop_back();
    PrintProblem(sentence + ", see `" + FindChosenCommand(app) + " --help`.");
    return WrongUsage;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app("Plays the music of a show in step with the people on stage.", "stage");
    app.set_version_flag("--version", "stage " STAGE_VERSION, "Print the version and end");
    app.set_help_flag("-h,--help", "Print this help and end");
    app.require_subcommand(1);
    app.failure_message(CLI::FailureMessage::simple);
    app.footer(
        "A show is a directory: the music in a .showdata file, the production's edits in .logdata files, one a\n"
        "version, and settings.json. Every subcommand explains itself: stage edit --help\n\n"
        "Examples:\n"
        "  stage import songs/ -o myshow --title \"My Show\"\n"
        "  stage edit myshow add vamp --song 3 --from 12 --to 15\n"
        "  stage info myshow --song 3\n"
        "  stage render myshow --song 3 --out song3.wav");

    int exitCode = 0;
    AddImportCommand(app, exitCode);
    AddEditCommand(app, exitCode);
    AddInfoCommand(app, exitCode);
    AddCheckCommand(app, exitCode);
    AddRenderCommand(app, exitCode);
    AddPlayCommand(app, exitCode);
    AddTakeCommand(app, exitCode);
    AddDevicesCommand(app, exitCode);
    AddPlotCommand(app, exitCode);
    AddLogCommand(app, exitCode);
    AddComposeCommand(app, exitCode);
    AddMidiCommand(app, exitCode);
    AddScoreCommand(app, exitCode);

    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& asked) {
        return app.exit(asked);
    } catch (const CLI::ParseError& problem) {
        return PrintUsageProblem(app, problem);
    } catch (const std::exception& problem) {
        PrintProblem(problem.what());
        return Failed;
    }
    if (!std::cout.flush() || std::fflush(stdout) != 0) {
        PrintProblem("the output could not be written");
        return Failed;
    }
    return exitCode;
}
