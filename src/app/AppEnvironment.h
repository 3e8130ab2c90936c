#pragma once

#include "config/Environment.h"
#include "menu/MenuManager.h"

// What a run of Quillmar is given from outside, once, at its root: the addresses it talks to
// and its version, and the menu's timers and clocks. The shipped program uses the defaults;
// tests and benchmarks point the addresses at their servers and shorten the timers.
struct AppEnvironment {
    Environment environment;
    MenuManager::Timings timings;
};
