#pragma once

#include <thread>

namespace kit {

/// Has a thread run before all ordinary ones (POSIX SCHED_FIFO) at `priority`, 1 to 99. False
/// where the system does not permit it, and in builds with an address or thread sanitizer: the thread stays as it was,
/// as punctual as the machine is idle. Any thread; blocks for microseconds.
bool MakeRealTime(std::thread& thread, int priority);
/// The same for the calling thread.
bool MakeThisThreadRealTime(int priority);
/// Takes that back for the calling thread.
void MakeThisThreadOrdinary();

}  // namespace kit
