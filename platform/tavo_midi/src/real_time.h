#pragma once

#include <thread>

namespace tavo_midi {

/// Has the thread run before all ordinary ones (SCHED_FIFO). False where the system does not permit it: it is then as
/// punctual as the machine is idle.
bool MakeRealTime(std::thread& thread, int priority);

}  // namespace tavo_midi
