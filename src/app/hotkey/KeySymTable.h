#pragma once

#include <QString>

#include <cstdint>
#include <optional>

// The X11 / xkbcommon key symbol of a configuration key code: the number for xcb and the name for
// the shortcut strings of the desktop portal ("r", "F5", "Return").
class KeySymTable {
public:
    static std::optional<std::uint32_t> keysym(std::uint16_t keyCode);
    // Empty when the key has no symbol here.
    static QString name(std::uint16_t keyCode);
};
