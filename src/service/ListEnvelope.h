#pragma once

#include "service/Collection.h"
#include "service/Raindrop.h"
#include "service/Tag.h"

#include <QByteArray>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QList>

#include <optional>

// The service's list answers: {"items": [...], ...}. One element that does not decode fails
// the whole list; other keys are ignored.
template <typename Item> struct ListEnvelope {
    QList<Item> items;

    static std::optional<ListEnvelope> decode(const QByteArray& body) {
        QJsonParseError parseError;
        const QJsonDocument document = QJsonDocument::fromJson(body, &parseError);
        if (parseError.error != QJsonParseError::NoError || !document.isObject())
            return std::nullopt;
        const QJsonValue items = document.object().value(QStringLiteral("items"));
        if (!items.isArray())
            return std::nullopt;
        const QJsonArray array = items.toArray();
        ListEnvelope envelope;
        envelope.items.reserve(array.size());
        for (const QJsonValue& element : array) {
            auto item = Item::fromJson(element);
            if (!item)
                return std::nullopt;
            envelope.items.append(std::move(*item));
        }
        return envelope;
    }
};

using CollectionsResponse = ListEnvelope<Collection>;
using TagsResponse = ListEnvelope<Tag>;
using RaindropsResponse = ListEnvelope<Raindrop>;
