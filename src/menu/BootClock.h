#pragma once

#include <chrono>

// Time that keeps counting while the machine sleeps. QTimer and std::chrono::steady_clock stop
// during a suspend, so a menu built before a night's sleep would look minutes old after it.
class BootClock {
public:
    // Time since the system started, suspended time included. Where the system has no such
    // clock, the wall-clock time (which a suspend also advances).
    static std::chrono::nanoseconds now();
};
