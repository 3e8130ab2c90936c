#pragma once

#include "DesktopInput.h"

// Real input on the session's X server, sent through XTest (xdotool).
class X11Input : public DesktopInput {
public:
    void moveTo(QPoint at) override;
    void click(QPoint at, int button = 1) override;
    void doubleClick(QPoint at) override;
    void scroll(QPoint at, bool up, int steps = 1) override;
    void pressKeys(const QString& keys) override;
};
