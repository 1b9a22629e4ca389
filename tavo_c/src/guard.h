#pragma once

#include <cstring>
#include <exception>
#include <new>
#include <stdexcept>
#include <string>

#include "tavo/tavo.h"

/// What stands between C and the inside: results, sentences, and text that goes out.
namespace tavo_c {

/// Ends a call with a result of its own; what() is the sentence.
class Problem : public std::runtime_error {
public:
    Problem(tavo_result result, const std::string& sentence) : std::runtime_error(sentence), result_(result) {}
    [[nodiscard]] tavo_result GetResult() const { return result_; }

private:
    tavo_result result_;
};

/// Notes the thread's sentence and returns `result`. What there is no memory for is left out.
tavo_result Fail(tavo_result result, const char* sentence) noexcept;
/// The same for the exception that is being handled.
tavo_result FailWithException() noexcept;

/// Runs the body of a call; nothing that it throws gets out.
template <class Body>
tavo_result Guard(Body&& body) noexcept {
    try {
        return body();
    } catch (...) {
        return FailWithException();
    }
}

/// Throws where the pointer is null; `name` is the parameter's.
inline void Require(const void* pointer, const char* name) {
    if (pointer == nullptr) throw Problem(TAVO_BAD_ARGUMENT, std::string(name) + " is a null pointer");
}

/// Text for tavo_free.
[[nodiscard]] char* CopyText(const std::string& text);

/// The lines with their ends, for tavo_free.
template <class Lines>
[[nodiscard]] char* CopyLines(const Lines& lines) {
    std::string text;
    for (const std::string& line : lines)
        text += line + '\n';
    return CopyText(text);
}

inline std::string TextOrEmpty(const char* text) {
    return text == nullptr ? std::string() : std::string(text);
}

/// The options of the caller, of whatever version of the header: what it does not know is 0. Throws where they say a
/// size that no version has had.
template <class Options>
Options ReadOptions(const Options* options) {
    Options read{};
    if (options == nullptr) return read;
    if (options->size < sizeof(read.size) || options->size > sizeof(Options))
        throw Problem(TAVO_BAD_ARGUMENT, "the options' size is " + std::to_string(options->size) +
                                             ", and this library knows " + std::to_string(sizeof(Options)) +
                                             ": set it to sizeof the struct");
    std::memcpy(&read, options, options->size);
    return read;
}

}  // namespace tavo_c
