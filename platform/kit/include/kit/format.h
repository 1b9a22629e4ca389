#pragma once

#include <string>

namespace kit {

/// The text that printf would write, of any length. Thread-safe. Throws std::runtime_error if the C library refuses the
/// format.
[[nodiscard]] std::string format(const char* pattern, ...) __attribute__((format(printf, 1, 2)));

}  // namespace kit
