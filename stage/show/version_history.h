#pragma once

#include <string>

#include "stage/show/show_directory.h"

/// Steps through the versions of a show. A version whose edits are those of an earlier one is a step back to it, or
/// forward to it again; every other one is a change made upon the one before it. Both functions block on the disk.
namespace stage {

/// The file whose edits were in force before those of `name`; std::logic_error with one sentence where it has the first
/// ones.
[[nodiscard]] std::string FindVersionBefore(const ShowDirectory& directory, const std::string& name);

/// The file whose edits the last step back left, for as long as nothing was changed since; std::logic_error with one
/// sentence where there is none.
[[nodiscard]] std::string FindVersionAfter(const ShowDirectory& directory, const std::string& name);

}  // namespace stage
