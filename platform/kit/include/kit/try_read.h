#pragma once

#include <exception>
#include <optional>
#include <string>
#include <vector>

namespace kit {

/// What `read` gives, or nothing where it throws: its sentence is appended to `problems` then. Thread-safe as far as
/// `read` is.
template <class Read>
auto TryRead(std::vector<std::string>& problems, Read read) -> std::optional<decltype(read())> {
    try {
        return read();
    } catch (const std::exception& problem) {
        problems.emplace_back(problem.what());
        return std::nullopt;
    }
}

}  // namespace kit
