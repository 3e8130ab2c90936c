#pragma once

#include <QList>

#include <optional>
#include <sys/types.h>

class MenuProbe;

// "Hot key to menu": the default shortcut pressed as a person presses it (XTest), until a
// running program's menu window is mapped and until its first frame is drawn.
class HotKeyFigure {
public:
    struct Press {
        double mappedMs = 0;
        double drawnMs = 0;
    };

    // Presses the key presses times, closing the menu with Escape after each; none when a menu
    // did not show.
    static std::optional<QList<Press>> measure(MenuProbe& probe, pid_t pid, int presses);
};
