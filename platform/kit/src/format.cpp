#include "kit/format.h"

#include <cstdarg>
#include <cstdio>
#include <stdexcept>

namespace kit {

std::string format(const char* pattern, ...) {
    std::va_list arguments;
    va_start(arguments, pattern);
    std::va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, pattern, arguments);
    va_end(arguments);
    std::string text;
    if (length > 0) {
        text.resize(static_cast<std::size_t>(length));
        // The terminating null overwrites the string's own, which is allowed.
        std::vsnprintf(text.data(), text.size() + 1, pattern, again);
    }
    va_end(again);
    if (length < 0) throw std::runtime_error("the format cannot be printed");
    return text;
}

}  // namespace kit
