#pragma once

#include <thread>

namespace kit {

/// Have a thread, or the calling one, run before all ordinary ones (POSIX SCHED_FIFO) at `priority`, 1 to 99. False
/// where the system does not permit it: the thread stays as it was, as punctual as the machine is idle. Any thread;
/// block for microseconds.
bool MakeRealTime(std::thread& thread, int priority);
bool MakeThisThreadRealTime(int priority);
/// Takes that back for the calling thread.
void MakeThisThreadOrdinary();

}  // namespace kit
