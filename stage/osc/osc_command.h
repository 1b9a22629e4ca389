#pragma once

#include <string>

#include "stage/control/command.h"
#include "stage/osc/osc_message.h"
#include "tavo_midi/show_data.h"

/// Which message means which press: "/tavo/" and the verb's name, for six verbs also "/" and the name.
namespace stage {

struct OscPress {
    /// Without source and moment.
    Command command;
    /// The key behind a verb without arguments was released: one argument that is 0 or false.
    bool isRelease = false;
};

/// Reads a press; places are those of the song `song`, the one that is loaded or empty. Throws std::invalid_argument
/// with one sentence without a full stop: no such verb, an argument too many, missing, of a wrong type or out of range.
[[nodiscard]] OscPress ReadOscPress(const OscMessage& message, const tavo_midi::ShowData& show,
                                    const std::string& song);

/// All verbs with their addresses, types and ranges, as the table of Markdown that docs/osc.md holds.
[[nodiscard]] std::string MakeOscVerbTable();

}  // namespace stage
