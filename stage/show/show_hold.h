#pragma once

#include <chrono>
#include <stdexcept>
#include <string>

#include "kit/lock_file.h"

namespace stage {

/// The show is held by another program.
class ShowHeldError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Who this program runs for, and where: "anna@lx-pit".
[[nodiscard]] std::string DescribeUser();

/// The right to change a show: one program has it at a time, from reading what it changes to saving it. It ends with
/// its owner, however that ends. Reading and playing a show never needs it. `show.lock` in the show directory is locked
/// for it, and says meanwhile who has it; what that relies on is at kit::LockFile. Not thread-safe.
class ShowHold {
public:
    /// How long somebody at a keyboard waits for another who saves.
    static constexpr std::chrono::milliseconds Wait{5000};

    /// Takes it, waiting at most `wait`. `purpose` is what it is for, "an edit", "a session". Throws ShowHeldError with
    /// a sentence that says who has it and since when, and std::runtime_error where the directory cannot be written.
    ShowHold(const std::string& showPath, const std::string& purpose, std::chrono::milliseconds wait = Wait);

    /// To be called before something is saved: throws std::runtime_error where somebody removed the lock's file, so
    /// that another could take the right as well.
    void RequireStillHeld() const { lock_.RequireStillThere(); }

    /// "anna on lx-pit since 19:02, for a session (process 4711)"; empty where nobody holds the show.
    [[nodiscard]] static std::string DescribeHolder(const std::string& showPath);

private:
    kit::LockFile lock_;
};

}  // namespace stage
