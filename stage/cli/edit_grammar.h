#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <string>

#include "stage/session/edited_show.h"

/// Gives the session that an operation works on; called only when one is to be done.
using SessionProvider = std::function<stage::EditedShow&()>;

/// Adds the operations add, remove and attacca to `app`; each changes the session when it is parsed. The same grammar
/// serves the command line and the lines of a file of edits.
void AddEditOperations(CLI::App& app, const SessionProvider& session);

/// Does what the lines of the file say, one operation each; blank lines and lines that begin with '#' are passed over.
/// Throws std::runtime_error with one sentence that names file and line.
void ApplyEditFile(const std::string& path, const SessionProvider& session);
