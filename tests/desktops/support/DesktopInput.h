#pragma once

#include <QPoint>
#include <QString>

// Real input on a desktop session, as a person's pointer and keyboard send it: the display
// server routes it to whatever is under the pointer or has the keyboard. One implementation per
// kind of display server (X11, sway, GNOME on Wayland).
class DesktopInput {
public:
    virtual ~DesktopInput() = default;

    virtual void moveTo(QPoint at) = 0;
    // Button 1 is the left button, 2 the middle one, 3 the right one.
    virtual void click(QPoint at, int button = 1) = 0;
    virtual void doubleClick(QPoint at) = 0;
    // Turns the wheel at a point: up or down, steps notches.
    virtual void scroll(QPoint at, bool up, int steps = 1) = 0;
    // A key, or keys held together, named as xdotool names them: "ctrl+alt+r", "Escape",
    // "Down".
    virtual void pressKeys(const QString& keys) = 0;

protected:
    // The Linux input code of the button X numbers button.
    static int linuxButton(int button) {
        constexpr int left = 272, right = 273, middle = 274;
        return button == 2 ? middle : button == 3 ? right : left;
    }
};
