#pragma once

#include <QImage>
#include <QList>
#include <QRect>
#include <QStringList>

// The session's X server as a test looks at it: the menus that programs show there, each a
// window of its own, and the pixels on the screen. Programs whose menus no screen reader sees
// (Qt 5 leaves its popups out of the accessible objects) are read this way.
class X11Screen {
public:
    // The places of the menus shown by the programs whose window class is one of classes, one
    // rectangle per menu window, lowest first (a submenu lies above the menu it opened from).
    static QList<QRect> menuWindows(const QStringList& classes);
    // The pixels of that part of the screen; a null image when they cannot be read.
    static QImage grab(QRect part);
};
