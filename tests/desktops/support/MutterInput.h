#pragma once

#include "DesktopInput.h"

#include <QDBusConnection>
#include <QSize>
#include <QString>
#include <QVariantList>

// Real input in a headless GNOME Shell session, which has no input devices of its own: the
// virtual pointer and keyboard of a remote-desktop session of mutter's (what GNOME's own remote
// desktop service uses). The compositor routes them as it would a mouse's and a keyboard's.
class MutterInput : public DesktopInput {
public:
    // The session is bound to the bus connection that made it and ends with it: this object
    // keeps its own.
    explicit MutterInput(const QString& busAddress);
    ~MutterInput() override;
    MutterInput(const MutterInput&) = delete;
    MutterInput& operator=(const MutterInput&) = delete;

    // Starts the session on a screen of that size, with the pointer at its bottom right corner
    // (away from the hot corner at the top left) and a keyboard that programs have been given.
    bool start(QSize screen);
    void stop();

    void moveTo(QPoint at) override;
    void click(QPoint at, int button = 1) override;
    void doubleClick(QPoint at) override;
    void scroll(QPoint at, bool up, int steps = 1) override;
    void pressKeys(const QString& keys) override;

private:
    bool notify(const QString& method, const QVariantList& arguments);
    void button(int button);

    QDBusConnection m_bus;
    QString m_session;
    QSize m_screen;
    // Where the pointer is: the session moves it by relative motions only (absolute ones need
    // a screen cast stream, and so PipeWire).
    QPoint m_pointer;
};
