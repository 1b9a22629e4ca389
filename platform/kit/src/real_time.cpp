#include "kit/real_time.h"

#include <pthread.h>
#include <sched.h>

#include "sanitizers.h"

namespace kit {

namespace {

bool Schedule(pthread_t thread, int priority) {
    // A sanitizer's own locks are waited for by asking again and again. Whoever did that before the thread which holds
    // such a lock, on every processor, would do it for ever: there all threads come in turn.
    if (IsSanitized) return false;
    const sched_param parameters{.sched_priority = priority};
    return pthread_setschedparam(thread, SCHED_FIFO, &parameters) == 0;
}

}  // namespace

bool MakeRealTime(std::thread& thread, int priority) {
    return Schedule(thread.native_handle(), priority);
}

bool MakeThisThreadRealTime(int priority) {
    return Schedule(pthread_self(), priority);
}

void MakeThisThreadOrdinary() {
    const sched_param parameters{};
    pthread_setschedparam(pthread_self(), SCHED_OTHER, &parameters);
}

}  // namespace kit
