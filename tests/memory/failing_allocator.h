#pragma once

#include <cstddef>
#include <optional>

/// The allocator of this program, which can be told to fail on one thread.
namespace test_support {

/// The allocation of this thread that fails, counted from 0; nothing once it has.
extern constinit thread_local std::optional<std::size_t> failingAllocation;

}  // namespace test_support
