#pragma once

#include <QJsonValue>
#include <QString>

#include <optional>

// A bookmark collection as the service sends it.
struct Collection {
    qint64 id = 0;
    QString title;
    qint64 count = 0;

    static std::optional<Collection> fromJson(const QJsonValue& value);
    bool operator==(const Collection&) const = default;
};
