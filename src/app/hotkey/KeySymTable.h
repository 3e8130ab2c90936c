#pragma once

#include <QString>
#include <Qt>

#include <cstdint>
#include <optional>

// The X11 / xkbcommon key symbol of a Qt key: the number for xcb and the name for the shortcut
// strings of the desktop portal ("r", "F5", "Return").
class KeySymTable {
public:
    static std::optional<std::uint32_t> keysym(Qt::Key key);
    // Empty when the key has no symbol here.
    static QString name(Qt::Key key);
};
