#include <fmt/format.h>

#include <cstdio>
#include <exception>
#include <filesystem>
#include <iostream>
#include <new>
#include <string>
#include <system_error>
#include <utility>

#include "stage/cli/commands.h"
#include "stage/cli/text_table.h"
#include "stage/words/help_text.h"
#include "stage/words/usage_problem.h"

namespace {

constexpr int Failed = 1;
constexpr int WrongUsage = 2;

// What files hold may stand in it.
void PrintProblem(std::string sentence) {
    std::cerr << "stage: " << MakePrintable(std::move(sentence)) << std::endl;
}

int PrintUsageProblem(const CLI::App& app, const CLI::ParseError& problem) {
    const std::string sentence = stage::DescribeUsageProblem(app, problem);
    PrintProblem(fmt::format("{}{} `{} --help`", sentence, sentence.ends_with('?') ? " See" : "; see",
                             stage::DescribePathTo(stage::FindChosenCommand(app))));
    return WrongUsage;
}

/// What the libraries throw has texts for engineers; everything of our own says in one sentence what is wrong.
std::string DescribeProblem(const std::exception& problem) {
    if (const auto* const file = dynamic_cast<const std::filesystem::filesystem_error*>(&problem))
        return fmt::format("\"{}\" cannot be used: {}", file->path1().string(), file->code().message());
    if (const auto* const system = dynamic_cast<const std::system_error*>(&problem)) {
        // A thread needs memory for its stack.
        if (system->code() == std::errc::resource_unavailable_try_again)
            return "the memory, or the number of threads that are allowed, is not enough for this";
        return fmt::format("the system refuses: {}", system->code().message());
    }
    if (dynamic_cast<const std::bad_alloc*>(&problem) != nullptr) return "the memory is not enough for this";
    return problem.what();
}

}  // namespace

int RunStageProgram(int argc, const char* const* argv) {
    CLI::App app("Plays the music of a show in step with the people on stage", "stage");
    app.set_version_flag("--version", "stage " STAGE_VERSION, "Print the version and end");
    int exitCode = 0;
    AddAllCommands(app, exitCode);

    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& asked) {
        return app.exit(asked);
    } catch (const CLI::ParseError& problem) {
        return PrintUsageProblem(app, problem);
    } catch (const std::exception& problem) {
        PrintProblem(DescribeProblem(problem));
        return Failed;
    }
    if (!std::cout.flush() || std::fflush(stdout) != 0) {
        PrintProblem("the output could not be written");
        return Failed;
    }
    return exitCode;
}
