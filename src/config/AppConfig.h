#pragma once

#include "config/ShortcutConfig.h"

#include <QByteArray>
#include <QList>
#include <QString>

#include <optional>

// The whole persisted configuration: one JSON file under the home directory.
struct AppConfig {
    QString token;
    QList<qint64> pinnedCollectionIds;
    QStringList pinnedTags;
    std::optional<ShortcutConfig> openMenuShortcut;

    // ~/.config/quillmar/config.json, computed once per process.
    static QString filePath();

    // Never fails: a missing, unreadable or damaged file gives the default configuration.
    static AppConfig load();
    // Writes the file atomically. Returns an error text on failure, nothing on success.
    std::optional<QString> save() const;

    // The file's JSON form, shared by load and save.
    static std::optional<AppConfig> decode(const QByteArray& json);
    QByteArray encode() const;

    bool operator==(const AppConfig&) const = default;
};
