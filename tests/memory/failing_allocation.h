#pragma once

#include <cstddef>

namespace test_support {

/// While it lives, one allocation of this thread fails: the one with this number, counted from 0. One at a time.
class FailingAllocation {
public:
    explicit FailingAllocation(std::size_t number);
    ~FailingAllocation();
    FailingAllocation(const FailingAllocation&) = delete;
    FailingAllocation& operator=(const FailingAllocation&) = delete;

    /// The next one of this thread fails, whoever makes it.
    static void FailNext();
    /// None fails any more.
    static void Stop();
    /// How many more there are to come before the one that fails.
    [[nodiscard]] static std::size_t CountLeft();
};

}  // namespace test_support
