#include "real_time.h"

#include <pthread.h>
#include <sched.h>

namespace tavo_midi {

bool MakeRealTime(std::thread& thread, int priority) {
    const sched_param parameters{.sched_priority = priority};
    return pthread_setschedparam(thread.native_handle(), SCHED_FIFO, &parameters) == 0;
}

}  // namespace tavo_midi
