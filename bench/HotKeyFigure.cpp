#include "HotKeyFigure.h"

#include "MenuProbe.h"

#include <thread>

using namespace std::chrono_literals;

namespace {

double millisecondsBetween(MenuProbe::TimePoint from, MenuProbe::TimePoint to) {
    return std::chrono::duration<double, std::milli>(to - from).count();
}

} // namespace

std::optional<QList<HotKeyFigure::Press>> HotKeyFigure::measure(MenuProbe& probe, pid_t pid,
                                                                int presses) {
    QList<Press> results;
    for (int i = 0; i < presses; ++i) {
        probe.drain();
        const MenuProbe::TimePoint pressed = probe.pressHotKey();
        const auto shown = probe.waitForMenu(pid, 10s);
        if (!shown)
            return std::nullopt;
        results.append({millisecondsBetween(pressed, shown->mapped),
                        millisecondsBetween(pressed, shown->drawn)});
        probe.pressEscape();
        if (!probe.waitForMenuClosed(10s))
            return std::nullopt;
        // The program comes to rest before the next press, as between a person's presses.
        std::this_thread::sleep_for(200ms);
    }
    return results;
}
