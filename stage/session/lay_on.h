#pragma once

#include <string>
#include <vector>

#include "tavo_core/editor.h"
#include "tavo_core/log_change.h"
#include "tavo_core/log_holder.h"

namespace stage {

/// Makes the changes of one version's journal again, upon whatever log the editor has. What they come to is laid on:
/// edits that were added and are not there, edits that were removed and still are, attacca states that nobody else
/// changed. So doing it twice changes nothing more, and nothing that was made since is taken away. `base` is the log
/// that the changes were made to, null where it is not known. Returns a sentence for each edit that could not be laid
/// on, without a full stop; what is there already is none of them.
[[nodiscard]] std::vector<std::string> LayOn(const std::vector<CL::LogChange>& changes, const CL::ChangeLog* base,
                                             CL::Editor& editor, CL::LogHolder& holder,
                                             const TL::ShowTimelines& timelines);

}  // namespace stage
