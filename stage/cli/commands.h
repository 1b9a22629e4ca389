#pragma once

#include <CLI/CLI.hpp>

/// The subcommands of the `stage` program. Each function adds one to `app` with its options, help and examples, and
/// sets the work to be done when it is chosen. The work runs inside CLI::App::parse, on the calling thread. It fails by
/// throwing an exception of the standard library whose text is one sentence without the program's name: the program
/// prints it and ends with 1. CLI::Error stands for wrong usage: it ends with 2. Work that ends well but not with 0
/// sets `exitCode`. `app` and `exitCode` must outlive the parsing.

/// The whole program: does what the words say, prints what is wrong and returns the exit code. Once in a process:
/// tables and ports of the process are set up by it.
int RunStageProgram(int argc, const char* const* argv);

/// What stands on the command line for it in the place of a file.
inline constexpr const char* StandardOutput = "-";

/// All of them, with the form of their help.
void AddAllCommands(CLI::App& app, int& exitCode);

void AddImportCommand(CLI::App& app, int& exitCode);
void AddEditCommand(CLI::App& app, int& exitCode);
void AddInfoCommand(CLI::App& app, int& exitCode);
void AddCheckCommand(CLI::App& app, int& exitCode);
void AddComposeCommand(CLI::App& app, int& exitCode);
void AddRenderCommand(CLI::App& app, int& exitCode);
void AddScoreCommand(CLI::App& app, int& exitCode);
void AddPlotCommand(CLI::App& app, int& exitCode);
void AddLogCommand(CLI::App& app, int& exitCode);
void AddMidiCommand(CLI::App& app, int& exitCode);
void AddPlayCommand(CLI::App& app, int& exitCode);
void AddPasscodeCommand(CLI::App& app, int& exitCode);
void AddTakeCommand(CLI::App& app, int& exitCode);
void AddCompletionCommand(CLI::App& app, int& exitCode);
void AddManualCommand(CLI::App& app, int& exitCode);
void AddDevicesCommand(CLI::App& app, int& exitCode);
