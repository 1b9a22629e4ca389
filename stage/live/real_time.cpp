#include "stage/live/real_time.h"

#include <fmt/format.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/time.h>

#include <cerrno>
#include <cstring>

#if defined(__SSE__)
#include <pmmintrin.h>
#include <xmmintrin.h>
#endif

#include "kit/real_time.h"

namespace stage {

bool BecomeRealTime(RealTimePriority priority) {
#if defined(__SSE__)
    _MM_SET_FLUSH_ZERO_MODE(_MM_FLUSH_ZERO_ON);
    _MM_SET_DENORMALS_ZERO_MODE(_MM_DENORMALS_ZERO_ON);
#endif
    return kit::MakeThisThreadRealTime(static_cast<int>(priority));
}

void BecomeOrdinary() {
    kit::MakeThisThreadOrdinary();
}

ThreadUse GetThreadUse() {
    rusage use{};
    getrusage(RUSAGE_THREAD, &use);
    const auto toDuration = [](const timeval& time) {
        return std::chrono::seconds(time.tv_sec) + std::chrono::microseconds(time.tv_usec);
    };
    return {toDuration(use.ru_utime) + toDuration(use.ru_stime), use.ru_nvcsw};
}

std::string LockMemory() {
    // What has been used once: whole stacks, most of which nobody touches, would be some 70 MB.
    if (mlockall(MCL_CURRENT | MCL_FUTURE | MCL_ONFAULT) == 0) return "";
    return fmt::format("The program's memory could not be locked ({}): see the page on sound about real-time rights.",
                       std::strerror(errno));
}

}  // namespace stage
