#pragma once

#include <CLI/CLI.hpp>

#include "stage/words/edit_grammar.h"

namespace stage {

/// The operations upon edits that are there: change, move, copy and remove. They name edits by their ids.
void AddEditChanges(CLI::App& app, const EditTargetProvider& target, bool needsSong);

}  // namespace stage
