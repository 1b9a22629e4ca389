#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace stage {

/// A command line that cannot be done as it is written; the text is one sentence.
class UsageError : public CLI::ParseError {
public:
    explicit UsageError(const std::string& sentence)
        : CLI::ParseError("UsageError", sentence, CLI::ExitCodes::InvalidError) {}
};

/// The innermost command that the words have reached.
[[nodiscard]] const CLI::App& FindChosenCommand(const CLI::App& app);

/// Throws UsageError where the words of `app` begin with the name of one of its commands: the show was left out.
void RequireShowFirst(const CLI::App& app);

/// Why `app` did not take the words, in one sentence that names the word and, where one is near, the right one. `app`
/// has just thrown the problem.
[[nodiscard]] std::string DescribeUsageProblem(const CLI::App& app, const CLI::ParseError& problem);

}  // namespace stage
