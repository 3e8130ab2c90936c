#include "service/Raindrop.h"

#include "config/JsonRead.h"

#include <QJsonObject>

namespace {

qint64 lenientCollectionId(const QJsonValue& collection) {
    if (!collection.isObject())
        return Raindrop::UnknownCollection;
    return JsonRead::integer(collection.toObject().value(QStringLiteral("$id")))
        .value_or(Raindrop::UnknownCollection);
}

} // namespace

std::optional<Raindrop> Raindrop::fromJson(const QJsonValue& value) {
    if (!value.isObject())
        return std::nullopt;
    const QJsonObject object = value.toObject();

    Raindrop raindrop;
    const auto id = JsonRead::integer(object.value(QStringLiteral("_id")));
    const QJsonValue title = object.value(QStringLiteral("title"));
    const QJsonValue link = object.value(QStringLiteral("link"));
    if (!id || !title.isString() || !link.isString())
        return std::nullopt;
    raindrop.id = *id;
    raindrop.title = title.toString();
    raindrop.link = link.toString();

    const QJsonValue excerpt = object.value(QStringLiteral("excerpt"));
    if (excerpt.isString())
        raindrop.excerpt = excerpt.toString();
    else if (!excerpt.isNull() && !excerpt.isUndefined())
        return std::nullopt;

    const QJsonValue important = object.value(QStringLiteral("important"));
    if (important.isBool())
        raindrop.important = important.toBool();
    else if (!important.isNull() && !important.isUndefined())
        return std::nullopt;

    raindrop.collectionId = lenientCollectionId(object.value(QStringLiteral("collection")));
    return raindrop;
}
