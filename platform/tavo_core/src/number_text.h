#pragma once

#include <string>

namespace tavo_core {

/// The shortest text that reads back as the same float, always with a point or an exponent ("1.0", "0.1", "1e+20");
/// "nan" or "inf" for what is not a number.
[[nodiscard]] std::string ShortestText(float number);

}  // namespace tavo_core
