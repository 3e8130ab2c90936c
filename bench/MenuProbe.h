#pragma once

#include <chrono>
#include <optional>
#include <sys/types.h>
#include <unordered_map>

struct xcb_connection_t;
using xcb_key_symbols_t = struct _XCBKeySymbols;

// Presses keys as a person would (XTest) and sees a program's menu appear on the X server: the
// moment its window is mapped and the moment its first frame has been drawn into it (the X
// server's damage report), both as this process receives them.
class MenuProbe {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    struct Shown {
        TimePoint mapped;
        TimePoint drawn;
    };

    // Connects to the X server of DISPLAY.
    MenuProbe();
    ~MenuProbe();
    MenuProbe(const MenuProbe&) = delete;
    MenuProbe& operator=(const MenuProbe&) = delete;

    // Whether the server has the XTest and Damage extensions and the keys are known.
    bool isReady() const { return m_ready; }

    // Presses and releases Ctrl+Alt+R (the default shortcut); returns the moment of the press.
    TimePoint pressHotKey();
    // Presses and releases Escape.
    void pressEscape();
    // Clicks the middle of window with a mouse button (1 left, 3 right).
    void click(unsigned window, int button);
    // Takes in what happened so far (windows made meanwhile are watched from now on).
    void drain();
    // Waits for a window of process pid to be mapped, then for its first frame.
    std::optional<Shown> waitForMenu(pid_t pid, std::chrono::milliseconds timeout);
    // Waits until the window waitForMenu saw is unmapped again.
    bool waitForMenuClosed(std::chrono::milliseconds timeout);

private:
    void press(unsigned char keycode, bool down);
    unsigned char keycodeOf(unsigned keysym);
    // Follows the creation (watched) and destruction of top-level windows; false for any other
    // event.
    bool track(const void* event);
    void watch(unsigned window);
    bool belongsTo(unsigned window, pid_t pid);
    // The next event (to be freed), or null when none came by the deadline.
    void* nextEvent(TimePoint deadline);

    xcb_connection_t* m_connection = nullptr;
    xcb_key_symbols_t* m_symbols = nullptr;
    unsigned m_root = 0;
    unsigned m_pidAtom = 0;
    unsigned char m_damageEvent = 0;
    unsigned char m_control = 0;
    unsigned char m_alt = 0;
    unsigned char m_r = 0;
    unsigned char m_escape = 0;
    bool m_ready = false;
    // The damage object of each window seen; the menu window last shown.
    std::unordered_map<unsigned, unsigned> m_damage;
    unsigned m_menu = 0;
};
