#pragma once

#include <random>
#include <string>

#include "tavo_core/change_log.h"

namespace change_log_samples {

/// One song with one edit of each kind, and one without edits.
CL::ChangeLog MakeOneOfEachKind();

/// A change log with random songs and edits over the whole of what a file may hold.
CL::ChangeLog MakeRandom(std::mt19937& random);

}  // namespace change_log_samples
