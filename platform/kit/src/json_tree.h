#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

namespace kit {

/// A JSON text as it was read. Values are kept one after the other, a container before what it holds, so that a text
/// takes 40 bytes for each value besides its characters, and no nesting makes anything recurse.
struct JsonTree {
    enum class Kind : std::uint8_t { Null, Flag, Integer, Fraction, Text, List, Object };
    /// Characters in `characters`.
    struct Piece {
        std::uint32_t from = 0;
        std::uint32_t length = 0;
    };
    struct Value {
        Kind kind = Kind::Null;
        /// Of the value that holds this one; of the first value itself.
        std::uint32_t parent = 0;
        /// The next in the same container; 0 after the last.
        std::uint32_t next = 0;
        Piece key;
        /// The text; of a Fraction what was written.
        Piece text;
        /// Of a Flag 0 or 1, of a container the number of its values.
        std::int64_t integer = 0;
    };

    [[nodiscard]] std::string_view See(Piece piece) const {
        return std::string_view(characters).substr(piece.from, piece.length);
    }
    /// The first value of a container; 0 of an empty one.
    [[nodiscard]] std::uint32_t FirstOf(std::uint32_t container) const {
        return values[container].integer == 0 ? 0 : container + 1;
    }
    /// "outputs[1].port"; "the outermost value" for the whole.
    [[nodiscard]] std::string NamePlace(std::uint32_t index) const;
    [[noreturn]] void Fail(std::uint32_t index, const std::string& problem) const;

    std::string name;
    std::vector<Value> values;
    /// Of all keys and texts.
    std::string characters;
};

}  // namespace kit
