#pragma once

#include <string_view>

namespace kit {

/// Orders texts as people order numbered things: runs of digits compare by value, whatever their length, everything
/// else by byte ("2" < "2a" < "10"). Texts that differ only in leading zeros are ordered by byte ("02" < "2"), so that
/// distinct texts are never equivalent. A strict total order.
struct NumericStringCompare {
    /// A map or set with this order can be asked for a std::string_view without making a string of it.
    using is_transparent = void;
    /// Whether `left` comes before `right`; linear in the shorter one, allocates nothing.
    [[nodiscard]] bool operator()(std::string_view left, std::string_view right) const;
};

}  // namespace kit
