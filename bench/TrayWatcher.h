#pragma once

#include <chrono>
#include <optional>
#include <sys/types.h>

struct xcb_connection_t;

// Sees a program's tray icon appear on an XEmbed tray: the moment the tray host has taken in
// the icon window of a given process and the icon is on screen.
class TrayWatcher {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    // Connects to the X server of DISPLAY.
    TrayWatcher();
    ~TrayWatcher();
    TrayWatcher(const TrayWatcher&) = delete;
    TrayWatcher& operator=(const TrayWatcher&) = delete;

    bool isConnected() const;
    // Forgets what happened so far; call it before starting the program.
    void reset();
    // When the icon of process pid was first seen on screen; none when not within timeout.
    std::optional<TimePoint> waitForIcon(pid_t pid, std::chrono::milliseconds timeout);
    // The window of the icon waitForIcon saw last.
    unsigned icon() const { return m_icon; }

private:
    bool belongsTo(unsigned window, pid_t pid);
    bool isViewable(unsigned window);

    xcb_connection_t* m_connection = nullptr;
    unsigned m_root = 0;
    unsigned m_pidAtom = 0;
    unsigned m_icon = 0;
};
