#include "stage/live/real_time.h"

#include <fmt/format.h>
#include <pthread.h>
#include <sched.h>
#include <sys/mman.h>

#include <cerrno>
#include <cstring>

#if defined(__SSE__)
#include <pmmintrin.h>
#include <xmmintrin.h>
#endif

namespace stage {

bool BecomeRealTime(RealTimePriority priority) {
#if defined(__SSE__)
    _MM_SET_FLUSH_ZERO_MODE(_MM_FLUSH_ZERO_ON);
    _MM_SET_DENORMALS_ZERO_MODE(_MM_DENORMALS_ZERO_ON);
#endif
    sched_param parameters{};
    parameters.sched_priority = static_cast<int>(priority);
    return pthread_setschedparam(pthread_self(), SCHED_FIFO, &parameters) == 0;
}

void BecomeOrdinary() {
    sched_param parameters{};
    pthread_setschedparam(pthread_self(), SCHED_OTHER, &parameters);
}

std::string LockMemory() {
    // What has been used once: whole stacks, most of which nobody touches, would be some 70 MB.
    if (mlockall(MCL_CURRENT | MCL_FUTURE | MCL_ONFAULT) == 0) return "";
    return fmt::format("The program's memory could not be locked ({}): see the page on sound about real-time rights.",
                       std::strerror(errno));
}

}  // namespace stage
