#pragma once

#include <QDeadlineTimer>
#include <QSignalSpy>
#include <QTimer>

#include <chrono>

// Waits that are about the order of timers, not about wall-clock time. Qt fires the timers that
// are due in the order of their deadlines, so once a precise timer has fired, every timer of the
// code under test that fell due earlier has fired too, however loaded the machine. (A coarse
// timer may fall due up to 5 % of its interval early or late.)
namespace Timers {

// Runs the event loop until a precise timer of duration, started now, has fired.
inline bool runPast(std::chrono::milliseconds duration) {
    QTimer timer;
    timer.setSingleShot(true);
    timer.setTimerType(Qt::PreciseTimer);
    QSignalSpy fired(&timer, &QTimer::timeout);
    timer.start(duration);
    // The spy's own limit only ends a wait that would otherwise hang.
    return fired.wait(int((duration + std::chrono::minutes(1)).count()));
}

// The same, until deadline.
inline bool runUntil(const QDeadlineTimer& deadline) {
    return runPast(std::chrono::milliseconds(deadline.remainingTime()));
}

} // namespace Timers
