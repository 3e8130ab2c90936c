#include "service/Tag.h"

#include "config/JsonRead.h"

#include <QJsonObject>

std::optional<Tag> Tag::fromJson(const QJsonValue& value) {
    if (!value.isObject())
        return std::nullopt;
    const QJsonObject object = value.toObject();
    const QJsonValue name = object.value(QStringLiteral("_id"));
    const auto count = JsonRead::integer(object.value(QStringLiteral("count")));
    if (!name.isString() || !count)
        return std::nullopt;
    return Tag{name.toString(), *count};
}
