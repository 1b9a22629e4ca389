#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace stage {

/// The name of a command's manual page without its section: "stage-play".
[[nodiscard]] std::string MakeManualName(const CLI::App& command);

/// The manual page (section 1, man(7)) of the program or of one of its commands, made of the same words as the help.
/// Commands below the command are on its page; those of the program have pages of their own. `version` is "0.1.0".
[[nodiscard]] std::string MakeManualPage(const CLI::App& command, const std::string& version);

}  // namespace stage
