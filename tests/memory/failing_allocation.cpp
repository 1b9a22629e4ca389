// The allocator of this program, which can be told to fail on one thread.

#include "tests/memory/failing_allocation.h"

#include <cstdlib>
#include <new>
#include <optional>

namespace {

/// The allocation of this thread that fails, counted from 0.
thread_local std::optional<std::size_t> failingAllocation;

void* Allocate(std::size_t size) {
    if (failingAllocation && (*failingAllocation)-- == 0) {
        failingAllocation.reset();
        throw std::bad_alloc();
    }
    if (void* memory = std::malloc(size == 0 ? 1 : size)) return memory;
    throw std::bad_alloc();
}

}  // namespace

void* operator new(std::size_t size) {
    return Allocate(size);
}
void* operator new[](std::size_t size) {
    return Allocate(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return std::malloc(size == 0 ? 1 : size);
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, const std::nothrow_t&) noexcept {
    std::free(memory);
}
void operator delete[](void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
    std::free(memory);
}

namespace test_support {

FailingAllocation::FailingAllocation(std::size_t number) {
    failingAllocation = number;
}

FailingAllocation::~FailingAllocation() {
    Stop();
}

void FailingAllocation::FailNext() {
    failingAllocation = 0;
}

void FailingAllocation::Stop() {
    failingAllocation.reset();
}

std::size_t FailingAllocation::CountLeft() {
    return failingAllocation.value_or(0);
}

}  // namespace test_support
