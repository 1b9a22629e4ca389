#pragma once

#include <chrono>
#include <string>

namespace stage {

/// Among the threads of this program; devices come first, for whoever waits for them is too late otherwise.
enum class RealTimePriority : int {
    /// The host's thread and, as they inherit it, those that a session starts: they share locks with the rendering
    /// thread, which would wait as long as another program held them up.
    Host = 10,
    Rendering = 60,
    Device = 68,
};

/// Has the calling thread scheduled before all ordinary ones (POSIX SCHED_FIFO) and treats numbers too small to be
/// heard as zero, which some processors compute slowly with. False where this user may not: the thread is then an
/// ordinary one. Blocks for microseconds.
bool BecomeRealTime(RealTimePriority priority);

/// Takes that back for the calling thread.
void BecomeOrdinary();

/// What a thread has used so far.
struct ThreadUse {
    std::chrono::nanoseconds processor{0};
    long waits = 0;  ///< times that it gave the processor up by itself: for a lock, a device, a moment
};
/// Of the calling thread. A call of the system, under a microsecond.
[[nodiscard]] ThreadUse GetThreadUse();

/// Keeps the program's memory from being paged out, now and later. Returns why it cannot be, one sentence; empty where
/// it is done.
[[nodiscard]] std::string LockMemory();

}  // namespace stage
