#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <utility>

namespace tavo_c {

/// Objects behind handles that are numbers: which slot, and the count of objects that it has had. So a handle that was
/// closed, or made up, is told from one that is open without touching memory that is gone. Thread-safe; Use takes no
/// lock.
template <class Object>
class HandleTable {
    struct Slot;

public:
    static constexpr std::uintptr_t SlotBits = 10;
    static constexpr std::size_t MostHandles = (std::size_t{1} << SlotBits) - 1;  // slot 0 is null's

    enum class Closing : std::uint8_t { Closed, InUse, Unknown };

    /// Holds the object as long as it lives: nobody closes it meanwhile. Empty where the handle is not open.
    class Use {
    public:
        Use(HandleTable& table, std::uintptr_t handle) : slot_(table.Enter_(handle)) {}
        ~Use() {
            if (slot_ != nullptr) slot_->state.fetch_sub(1, std::memory_order_release);
        }
        Use(const Use&) = delete;
        Use& operator=(const Use&) = delete;
        explicit operator bool() const { return slot_ != nullptr; }
        Object& operator*() const { return *slot_->object; }
        Object* operator->() const { return slot_->object.get(); }

    private:
        Slot* slot_;
    };

    /// 0 where there are too many; the object is destroyed then.
    [[nodiscard]] std::uintptr_t Open(std::unique_ptr<Object> object) {
        const std::lock_guard lock(mutex_);
        for (std::uintptr_t index = 1; index < slots_.size(); ++index) {
            Slot& slot = slots_[index];
            if (slot.object != nullptr) continue;
            slot.object = std::move(object);
            const std::uint64_t generation = (slot.state.load(std::memory_order_relaxed) >> CountBits) + 1;
            slot.state.store(generation << CountBits, std::memory_order_release);
            return HandleOf_(generation, index);
        }
        return 0;
    }

    /// From here on the handle is not open; the object is still there, for Take.
    [[nodiscard]] Closing Close(std::uintptr_t handle) {
        Slot* const slot = SlotOf_(handle);
        if (slot == nullptr) return Closing::Unknown;
        std::uint64_t state = slot->state.load(std::memory_order_acquire);
        if (!IsOpenAs_(state, handle)) return Closing::Unknown;
        std::uint64_t unused = state >> CountBits << CountBits;
        const std::uint64_t closed = ((state >> CountBits) + 1) << CountBits;
        if (slot->state.compare_exchange_strong(unused, closed, std::memory_order_acq_rel)) return Closing::Closed;
        return IsOpenAs_(unused, handle) ? Closing::InUse : Closing::Unknown;
    }
    /// Takes Close back.
    void Reopen(std::uintptr_t handle) {
        Slot& slot = *SlotOf_(handle);
        const std::uint64_t closed = slot.state.load(std::memory_order_relaxed);
        slot.state.store(((closed >> CountBits) - 1) << CountBits, std::memory_order_release);
    }
    // After Close, by whoever closed it.
    [[nodiscard]] Object& Peek(std::uintptr_t handle) { return *SlotOf_(handle)->object; }
    [[nodiscard]] std::unique_ptr<Object> Take(std::uintptr_t handle) {
        const std::lock_guard lock(mutex_);
        return std::move(SlotOf_(handle)->object);
    }

private:
    /// The upper half counts objects and their ends, so that it is odd while one is open; the lower one its uses.
    static constexpr unsigned int CountBits = 32;
    /// Of a handle on a computer with 32-bit addresses.
    static constexpr std::uint64_t GenerationMask = (std::uint64_t{1} << (32 - SlotBits)) - 1;

    struct Slot {
        std::atomic<std::uint64_t> state{0};
        std::unique_ptr<Object> object;  // changed under mutex_, while it is not open
    };

    [[nodiscard]] static std::uintptr_t HandleOf_(std::uint64_t generation, std::uintptr_t index) {
        return static_cast<std::uintptr_t>(generation & GenerationMask) << SlotBits | index;
    }
    [[nodiscard]] Slot* SlotOf_(std::uintptr_t handle) {
        const std::uintptr_t index = handle & MostHandles;
        return index == 0 ? nullptr : &slots_[index];
    }
    [[nodiscard]] static bool IsOpenAs_(std::uint64_t state, std::uintptr_t handle) {
        const std::uint64_t generation = state >> CountBits;
        return generation % 2 == 1 && (generation & GenerationMask) == handle >> SlotBits;
    }
    [[nodiscard]] Slot* Enter_(std::uintptr_t handle) {
        Slot* const slot = SlotOf_(handle);
        if (slot == nullptr) return nullptr;
        std::uint64_t state = slot->state.load(std::memory_order_acquire);
        do {
            if (!IsOpenAs_(state, handle)) return nullptr;
        } while (!slot->state.compare_exchange_weak(state, state + 1, std::memory_order_acquire));
        return slot;
    }

    std::mutex mutex_;
    std::array<Slot, MostHandles + 1> slots_;
};

}  // namespace tavo_c
