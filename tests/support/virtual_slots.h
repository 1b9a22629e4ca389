#pragma once

#include <cstddef>
#include <cstring>
#include <vector>

namespace test_support {

/// Index of a virtual operation in its class's table. Itanium C++ ABI: a pointer to a virtual member function holds the
/// offset in the table plus one.
template <class Class, class Result, class... Arguments>
std::ptrdiff_t SlotOf(Result (Class::*operation)(Arguments...)) {
    struct {
        std::ptrdiff_t offsetPlusOne;
        std::ptrdiff_t adjustment;
    } representation{};
    static_assert(sizeof(representation) == sizeof(operation));
    std::memcpy(&representation, &operation, sizeof(operation));
    return (representation.offsetPlusOne - 1) / static_cast<std::ptrdiff_t>(sizeof(void*));
}

template <class Class, class Result, class... Arguments>
std::ptrdiff_t SlotOf(Result (Class::*operation)(Arguments...) const) {
    // The same representation, whatever the qualifier.
    Result (Class::*unqualified)(Arguments...) = nullptr;
    std::memcpy(&unqualified, &operation, sizeof(operation));
    return SlotOf(unqualified);
}

/// Whether each slot is the one behind the slot before it.
inline bool AreConsecutive(const std::vector<std::ptrdiff_t>& slots) {
    for (std::size_t i = 1; i < slots.size(); ++i) {
        if (slots[i] != slots[i - 1] + 1) return false;
    }
    return true;
}

}  // namespace test_support
