#include "kit/real_time.h"

#include <pthread.h>
#include <sched.h>

namespace kit {

namespace {

bool Schedule(pthread_t thread, int priority) {
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
