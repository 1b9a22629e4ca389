#include "kit/real_time.h"

#include <pthread.h>
#include <sched.h>

namespace kit {

namespace {

// A sanitizer's own locks are waited for by asking again and again. Whoever did that before the thread which holds such
// a lock, on every processor, would do it for ever: there all threads come in turn.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool AllComeInTurn = true;
#elif defined(__has_feature)
constexpr bool AllComeInTurn = __has_feature(address_sanitizer) || __has_feature(thread_sanitizer);
#else
constexpr bool AllComeInTurn = false;
#endif

bool Schedule(pthread_t thread, int priority) {
    if (AllComeInTurn) return false;
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
