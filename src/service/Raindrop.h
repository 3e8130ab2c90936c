#pragma once

#include <QJsonValue>
#include <QMetaType>
#include <QString>

#include <optional>

// One bookmark.
struct Raindrop {
    static constexpr qint64 UnknownCollection = -1;

    qint64 id = 0;
    QString title;
    QString link;
    std::optional<QString> excerpt;
    bool important = false;
    // Read leniently from "collection"."$id"; UnknownCollection when it cannot be read.
    qint64 collectionId = UnknownCollection;

    static std::optional<Raindrop> fromJson(const QJsonValue& value);
    bool operator==(const Raindrop&) const = default;
};

Q_DECLARE_METATYPE(Raindrop)
