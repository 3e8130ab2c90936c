#pragma once

#include <QString>
#include <Qt>

#include <cstdint>
#include <optional>

class QKeyEvent;
struct ShortcutConfig;

// Translates between the configuration's key codes and modifier bits and Qt's keys and modifiers.
// The configuration keeps one numbering on every platform (the virtual key numbers of Apple
// keyboards, R = 15), so a configuration file moves between machines unchanged.
class KeyCodeTable {
public:
    // Qt::Key -> the configuration's key code; nothing for keys without a code.
    static std::optional<std::uint16_t> keyCode(int qtKey);
    // The configuration's key code -> Qt::Key; nothing for unknown codes.
    static std::optional<int> qtKey(std::uint16_t keyCode);
    // The XKB keycode of a physical key (the Linux evdev code + 8, which X11 and Wayland report
    // as QKeyEvent::nativeScanCode) -> the configuration's key code of the key at that place,
    // whatever the keyboard layout prints on it; nothing for keys without a code.
    static std::optional<std::uint16_t> keyCodeForXkbKeycode(std::uint32_t xkbKeycode);
    // The reverse: the XKB keycode of the physical key a key code names; nothing for keys that
    // have no place of their own (keypad keys other than Enter).
    static std::optional<std::uint32_t> xkbKeycode(std::uint16_t keyCode);
    // The key a key event was pressed on: the physical key where the platform reports it (Linux),
    // otherwise the key the event names. Nothing for keys without a code.
    static std::optional<std::uint16_t> keyCode(const QKeyEvent& event);

    // Ctrl -> command, Alt -> option, Shift -> shift, Meta -> control; other modifiers dropped.
    // Qt already maps macOS's Command key to ControlModifier, so "command" means the same key
    // to the user on every platform.
    static std::uint64_t modifierFlags(Qt::KeyboardModifiers mods);
    // The reverse; only the four modifier bits are read.
    static Qt::KeyboardModifiers qtModifiers(std::uint64_t flags);

    // A shortcut as shown to a person: the symbols of the record ("⌥⌘K") on macOS, the
    // platform's names of the mapped keys ("Ctrl+Alt+K") elsewhere. The record is not changed.
    static QString displayText(const ShortcutConfig& shortcut);
};
