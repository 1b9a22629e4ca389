#pragma once

#include <string>
#include <string_view>

namespace tavo_midi {

/// Whether `text` is well-formed UTF-8 (RFC 3629).
[[nodiscard]] bool IsUtf8(std::string_view text);

/// A text of a music file as one line of UTF-8: one that is not UTF-8 is taken as Latin-1; control characters become
/// blanks, and blanks at both ends go.
[[nodiscard]] std::string ToUtf8Line(std::string_view text);

}  // namespace tavo_midi
