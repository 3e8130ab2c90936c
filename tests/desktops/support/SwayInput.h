#pragma once

#include "ChildProcess.h"
#include "DesktopInput.h"

#include <QFile>
#include <QSize>
#include <QString>

// Real input in a headless sway session, which has no input devices of its own: a virtual
// pointer (a small client of the wlr virtual-pointer protocol, tests/desktops/wayland) and a
// virtual keyboard (wtype). sway routes both as it would a mouse's and a keyboard's.
class SwayInput : public DesktopInput {
public:
    SwayInput() = default;
    ~SwayInput() override;
    SwayInput(const SwayInput&) = delete;
    SwayInput& operator=(const SwayInput&) = delete;

    // Creates the devices on the running compositor (WAYLAND_DISPLAY) for an output of that
    // size; folder takes the pointer's command pipe and the logs.
    bool start(QSize screen, const QString& folder);
    void stop();

    void moveTo(QPoint at) override;
    void click(QPoint at, int button = 1) override;
    void doubleClick(QPoint at) override;
    void scroll(QPoint at, bool up, int steps = 1) override;
    void pressKeys(const QString& keys) override;

private:
    bool pointerCommand(const QString& command);

    ChildProcess m_pointer;
    ChildProcess m_keyboard;
    QFile m_pointerCommands;
};
