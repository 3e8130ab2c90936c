#include "config/AppConfig.h"

#include "config/JsonRead.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>

QString AppConfig::filePath() {
    static const QString path =
        QDir(QDir::homePath()).filePath(QStringLiteral(".config/quillmar/config.json"));
    return path;
}

AppConfig AppConfig::load() {
    QFile file(filePath());
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return decode(file.readAll()).value_or(AppConfig{});
}

std::optional<AppConfig> AppConfig::decode(const QByteArray& json) {
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(json, &parseError);
    if (parseError.error != QJsonParseError::NoError || !document.isObject())
        return std::nullopt;
    const QJsonObject object = document.object();

    AppConfig config;
    const QJsonValue token = object.value(QStringLiteral("token"));
    if (!token.isString())
        return std::nullopt;
    config.token = token.toString();

    const QJsonValue collections = object.value(QStringLiteral("pinned_collections"));
    if (!collections.isNull() && !collections.isUndefined()) {
        if (!collections.isArray())
            return std::nullopt;
        for (const QJsonValue& element : collections.toArray()) {
            const auto id = JsonRead::integer(element);
            if (!id)
                return std::nullopt;
            config.pinnedCollectionIds.append(*id);
        }
    }

    const QJsonValue tags = object.value(QStringLiteral("pinned_tags"));
    if (!tags.isNull() && !tags.isUndefined()) {
        if (!tags.isArray())
            return std::nullopt;
        for (const QJsonValue& element : tags.toArray()) {
            if (!element.isString())
                return std::nullopt;
            config.pinnedTags.append(element.toString());
        }
    }

    const QJsonValue shortcut = object.value(QStringLiteral("open_menu_shortcut"));
    if (!shortcut.isNull() && !shortcut.isUndefined()) {
        config.openMenuShortcut = ShortcutConfig::fromJson(shortcut);
        if (!config.openMenuShortcut)
            return std::nullopt;
    }
    return config;
}

QByteArray AppConfig::encode() const {
    // QJsonObject keeps its keys sorted, so the file always reads in key order.
    QJsonObject object;
    if (openMenuShortcut)
        object.insert(QStringLiteral("open_menu_shortcut"), openMenuShortcut->toJson());
    QJsonArray collections;
    for (qint64 id : pinnedCollectionIds)
        collections.append(id);
    object.insert(QStringLiteral("pinned_collections"), collections);
    object.insert(QStringLiteral("pinned_tags"), QJsonArray::fromStringList(pinnedTags));
    object.insert(QStringLiteral("token"), token);
    return QJsonDocument(object).toJson(QJsonDocument::Indented);
}

std::optional<QString> AppConfig::save() const {
    const QString path = filePath();
    const QString folder = QFileInfo(path).absolutePath();
    if (!QDir().mkpath(folder))
        return QStringLiteral("Could not create the folder %1.").arg(folder);

    // QSaveFile writes a temporary file and renames it over the target on commit, so a reader
    // (or a crash) never meets a half-written configuration.
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return file.errorString();
    const QByteArray bytes = encode();
    if (file.write(bytes) != bytes.size()) {
        file.cancelWriting();
        return file.errorString();
    }
    if (!file.commit())
        return file.errorString();
    return std::nullopt;
}
