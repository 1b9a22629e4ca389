#pragma once

#include <compare>
#include <cstdint>
#include <string>
#include <string_view>

namespace cmn {

/// A change log's version, ordered by major, then minor. Each is 0 to 65535; adding one to 65535 wraps to 0.
struct TAVOVersion {
    std::uint16_t major_number = 0;  ///< the 2 of 2.13
    std::uint16_t minor_number = 0;  ///< the 13: a number, not a decimal fraction

    /// "major.minor" in decimal.
    [[nodiscard]] std::string GetAsString() const;
    /// Reads "major.minor"; throws std::invalid_argument with one sentence, and changes nothing, when `text` is not
    /// exactly that.
    void SetWithString(std::string_view text);
    /// Reads the version in a log's file name: what follows the last '-' of the name without directory and extension,
    /// or all of it. Throws as SetWithString does.
    void SetWithFileName(std::string_view name);

    /// By value: 1.10 comes after 1.9. With it come == and !=.
    auto operator<=>(const TAVOVersion&) const = default;
};

}  // namespace cmn
