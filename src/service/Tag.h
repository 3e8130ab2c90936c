#pragma once

#include <QJsonValue>
#include <QString>

#include <optional>

// A tag: the service sends its text under "_id".
struct Tag {
    QString name;
    qint64 count = 0;

    static std::optional<Tag> fromJson(const QJsonValue& value);
    bool operator==(const Tag&) const = default;
};
