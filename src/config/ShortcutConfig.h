#pragma once

#include <QJsonObject>
#include <QString>

#include <cstdint>
#include <optional>

// One key combination. Key codes and modifier bits use the same numbering on every platform
// (see KeyCodeTable), so a configuration file moves between machines unchanged.
struct ShortcutConfig {
    static constexpr std::uint64_t ControlFlag = 0x40000;
    static constexpr std::uint64_t OptionFlag = 0x80000;
    static constexpr std::uint64_t ShiftFlag = 0x20000;
    static constexpr std::uint64_t CommandFlag = 0x100000;
    static constexpr std::uint64_t ModifierMask = 0x1E0000;

    std::uint16_t keyCode = 0;
    std::uint64_t modifierFlags = 0;
    QString displayKey;

    // Option+command+R: Ctrl+Alt+R on Linux and Windows.
    static ShortcutConfig defaultShortcut() {
        return {15, OptionFlag | CommandFlag, QStringLiteral("R")};
    }

    // "⌃⌥⇧⌘" in this fixed order, each only when its bit is set, then the key.
    QString displayString() const;

    QJsonObject toJson() const;
    static std::optional<ShortcutConfig> fromJson(const QJsonValue& value);

    bool operator==(const ShortcutConfig&) const = default;
};
