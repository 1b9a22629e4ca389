#pragma once

#include <string>
#include <string_view>

#include "tavo_core/log_change.h"

namespace CL {

/// The change as one line of JSON (RFC 8259) without a line end: an object whose "removed" and "added" are change logs
/// that hold nothing but the edits that go and come. Any thread; allocates.
[[nodiscard]] std::string WriteLogChange(const LogChange& change);

/// Reads what WriteLogChange wrote. Throws std::runtime_error with one sentence, in which `name` stands for where the
/// text comes from, for anything else.
[[nodiscard]] LogChange ReadLogChange(std::string_view text, const std::string& name);

}  // namespace CL
