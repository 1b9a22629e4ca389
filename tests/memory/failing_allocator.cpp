#include "tests/memory/failing_allocator.h"

#include <cstdlib>
#include <new>

namespace test_support {

constinit thread_local std::optional<std::size_t> failingAllocation;

}  // namespace test_support

namespace {

using test_support::failingAllocation;

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
