#include "service/Collection.h"

#include "config/JsonRead.h"

#include <QJsonObject>

std::optional<Collection> Collection::fromJson(const QJsonValue& value) {
    if (!value.isObject())
        return std::nullopt;
    const QJsonObject object = value.toObject();
    const auto id = JsonRead::integer(object.value(QStringLiteral("_id")));
    const QJsonValue title = object.value(QStringLiteral("title"));
    const auto count = JsonRead::integer(object.value(QStringLiteral("count")));
    if (!id || !title.isString() || !count)
        return std::nullopt;
    return Collection{*id, title.toString(), *count};
}
