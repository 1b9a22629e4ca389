#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <string>

#include "stage/words/edit_target.h"

namespace stage {

/// Gives what an operation works on; called only when one is to be done.
using EditTargetProvider = std::function<EditTarget&()>;

/// Adds the operations add, change, move, copy, remove and attacca to `app`; each is done when it is parsed. The same
/// grammar serves the command line, the lines of a file of edits, and the edits that are typed while a show plays.
/// Without `needsSong` the song may be left out.
void AddEditOperations(CLI::App& app, const EditTargetProvider& target, bool needsSong);

/// Does what one line says: "add vamp --song 3 --from 12 --to 15". Where the target has a song that need not be named,
/// it may be left out, and so may the names of places: "add vamp 12 15", "add caesura 17:3". Throws std::runtime_error
/// or std::logic_error with one sentence.
void DoEditLine(const std::string& line, EditTarget& target);

/// Does what the lines say, one operation each; blank lines and lines that begin with '#' are passed over. Throws
/// std::runtime_error with one sentence that names `name` and the line.
void DoEditLines(std::istream& lines, const std::string& name, EditTarget& target);

}  // namespace stage
