#pragma once

#include <QObject>

#include <cstdint>

// One way of getting a system-wide key press on one kind of desktop. HotKeyManager holds one
// backend and at most one registration on it; the backend reports presses through `pressed`.
class HotKeyBackend : public QObject {
    Q_OBJECT
public:
    // Modifier mask bits of a registration: the configuration's four modifiers, one bit each.
    static constexpr std::uint32_t CommandMask = 0x100;
    static constexpr std::uint32_t ShiftMask = 0x200;
    static constexpr std::uint32_t OptionMask = 0x800;
    static constexpr std::uint32_t ControlMask = 0x1000;

    struct Registration {
        std::uint16_t keyCode = 0;      // the configuration's key code
        std::uint32_t modifierMask = 0; // the bits above
        std::uint32_t signature = 0;    // who registers, as a four-character code
        std::uint32_t id = 0;           // which of its hot keys
    };

    using QObject::QObject;

    // Asks the desktop for the key. A refusal (another program holds it, no facility at all) is
    // not reported: the key then simply never fires.
    virtual void registerHotKey(const Registration& registration) = 0;
    // Gives the key back; harmless when nothing is registered.
    virtual void unregisterHotKey() = 0;

Q_SIGNALS:
    void pressed();
};
