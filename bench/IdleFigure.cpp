#include "IdleFigure.h"

#include "ProcessMeter.h"

#include <QList>

#include <thread>

namespace {

// A burst's work goes on for a little while after its last request is answered (the menu
// built from the answers, the connections closed).
constexpr int secondsAfterBurst = 3;

} // namespace

IdleFigure::Result IdleFigure::measure(pid_t program, pid_t floor,
                                       const std::function<int()>& requestCount,
                                       std::chrono::seconds duration) {
    ProcessMeter programMeter(program);
    ProcessMeter floorMeter(floor);
    struct Sample {
        ProcessMeter::Reading program;
        ProcessMeter::Reading floor;
        int requests = 0;
    };
    QList<Sample> samples;
    const auto start = std::chrono::steady_clock::now();
    for (int second = 0; second <= duration.count(); ++second) {
        std::this_thread::sleep_until(start + std::chrono::seconds(second));
        samples.append({programMeter.read(), floorMeter.read(), requestCount()});
    }

    Result result;
    const Sample& first = samples.constFirst();
    const Sample& last = samples.constLast();
    result.program = {last.program.cpuMs - first.program.cpuMs,
                      last.program.contextSwitches - first.program.contextSwitches};
    result.floor = {last.floor.cpuMs - first.floor.cpuMs,
                    last.floor.contextSwitches - first.floor.contextSwitches};
    result.requests = last.requests - first.requests;
    int burstLeft = 0;
    for (qsizetype i = 1; i < samples.size(); ++i) {
        const bool asked = samples[i].requests > samples[i - 1].requests;
        if (asked && burstLeft == 0)
            ++result.bursts;
        if (asked)
            burstLeft = secondsAfterBurst + 1;
        if (burstLeft > 0) {
            --burstLeft;
            result.refreshes.cpuMs += samples[i].program.cpuMs - samples[i - 1].program.cpuMs;
            result.refreshes.wakeups +=
                samples[i].program.contextSwitches - samples[i - 1].program.contextSwitches;
        }
    }
    return result;
}
