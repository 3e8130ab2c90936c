#pragma once

#include <QKeyCombination>
#include <QObject>

// One way of getting a system-wide key press on one kind of desktop. HotKeyManager holds one
// backend and at most one registration on it; the backend reports presses through `pressed`.
class HotKeyBackend : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;

    // Asks the desktop for the key: a Qt key, named as on a US layout, with any of the Ctrl,
    // Alt, Shift and Meta (Super) modifiers. Qt::Key_unknown stands for a key Qt has no name
    // for, which only a desktop that lets the user choose can take. A refusal (another program
    // holds the key, no facility at all) is not reported: the key then simply never fires.
    virtual void registerHotKey(QKeyCombination key) = 0;
    // Gives the key back; harmless when nothing is registered.
    virtual void unregisterHotKey() = 0;

Q_SIGNALS:
    void pressed();
};
