#pragma once

#include <string>
#include <thread>

namespace kit {

/// Names of the running threads, for diagnostics. Thread-safe, also while static objects are destroyed. A name is
/// forgotten when its thread ends.
class ThreadNames {
public:
    /// The system's thread gets the name too, cut to 15 bytes at the end of a UTF-8 character.
    void SetNameOfCurrentThread(const std::string& name) const;
    /// Empty if the thread was given no name.
    [[nodiscard]] std::string GetNameOfCurrentThread() const;
    /// The same of another thread; empty as well once that has ended.
    [[nodiscard]] std::string GetName(std::thread::id thread) const;
};

/// The way to the one register of the process; other objects of the class lead to the same.
inline constexpr ThreadNames threadNames;

}  // namespace kit
