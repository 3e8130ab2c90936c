#pragma once

#include <Qt>

#include <cstdint>
#include <optional>

// Translates between the configuration's key codes and modifier bits and Qt's keys and modifiers.
// The configuration keeps one numbering on every platform (the virtual key numbers of Apple
// keyboards, R = 15), so a configuration file moves between machines unchanged.
class KeyCodeTable {
public:
    // Qt::Key -> the configuration's key code; nothing for keys without a code.
    static std::optional<std::uint16_t> keyCode(int qtKey);
    // The configuration's key code -> Qt::Key; nothing for unknown codes.
    static std::optional<int> qtKey(std::uint16_t keyCode);

    // Ctrl -> command, Alt -> option, Shift -> shift, Meta -> control; other modifiers dropped.
    // Qt already maps macOS's Command key to ControlModifier, so "command" means the same key
    // to the user on every platform.
    static std::uint64_t modifierFlags(Qt::KeyboardModifiers mods);
    // The reverse; only the four modifier bits are read.
    static Qt::KeyboardModifiers qtModifiers(std::uint64_t flags);
};
