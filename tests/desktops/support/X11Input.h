#pragma once

#include <QPoint>
#include <QString>

// Real input on the session's X server, sent through XTest (xdotool), as a person's pointer and
// keyboard would send it.
namespace X11Input {

void moveTo(QPoint at);
// Button 1 is the left button, 2 the middle one, 3 the right one.
void click(QPoint at, int button = 1);
void doubleClick(QPoint at);
// Turns the wheel at a point: up (button 4) or down (button 5), steps times.
void scroll(QPoint at, bool up, int steps = 1);
// Key names as xdotool takes them: "ctrl+alt+r", "Escape", "Down".
void pressKeys(const QString& keys);
QPoint pointer();

} // namespace X11Input
