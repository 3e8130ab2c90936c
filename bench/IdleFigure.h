#pragma once

#include <chrono>
#include <functional>
#include <sys/types.h>

// "Idle": what a program costs while nothing happens but its own refresh, next to its floor in
// the same minutes: CPU time, context switches (each a wake-up of one of its threads) and the
// requests it sends, read every second. The seconds around each burst of requests (a refresh,
// its update check) are counted apart, as the cost of the refreshes themselves.
class IdleFigure {
public:
    struct Usage {
        double cpuMs = 0;
        long long wakeups = 0;
    };
    struct Result {
        Usage program;
        // Within the whole window, the part spent on the bursts of requests.
        Usage refreshes;
        Usage floor;
        int requests = 0;
        int bursts = 0;
    };

    // requestCount: the requests the service has answered so far.
    static Result measure(pid_t program, pid_t floor, const std::function<int()>& requestCount,
                          std::chrono::seconds duration);
};
