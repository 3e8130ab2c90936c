#include "menu/BootClock.h"

#include <ctime>

std::chrono::nanoseconds BootClock::now() {
#ifdef CLOCK_BOOTTIME
    timespec time{};
    clock_gettime(CLOCK_BOOTTIME, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
#else
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
        std::chrono::system_clock::now().time_since_epoch());
#endif
}
