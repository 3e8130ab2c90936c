#include "update/UpdateManifest.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>

using namespace Qt::StringLiterals;

std::optional<UpdateManifest> UpdateManifest::parse(const QByteArray& body) {
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(body, &error);
    if (error.error != QJsonParseError::NoError || !document.isObject())
        return std::nullopt;
    const QJsonObject object = document.object();
    for (auto it = object.constBegin(); it != object.constEnd(); ++it) {
        if (!it.value().isString())
            return std::nullopt;
    }
    const auto version = object.constFind(u"version"_s);
    const auto downloadUrl = object.constFind(u"download_url"_s);
    if (version == object.constEnd() || downloadUrl == object.constEnd())
        return std::nullopt;
    return UpdateManifest{version->toString(), downloadUrl->toString()};
}
