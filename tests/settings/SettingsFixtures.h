#pragma once

#include "TestHttpServer.h"
#include "config/AppConfig.h"
#include "config/Environment.h"
#include "service/Collection.h"
#include "service/Tag.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QList>

// Shared set-up of the settings tests: the configuration file in the test's own home folder and
// an account served by the recording test server.
namespace SettingsFixtures {

inline Environment environmentFor(const TestHttpServer& server) {
    Environment environment;
    environment.apiBase = server.baseUrl() + QStringLiteral("/rest/v1");
    environment.webApp = server.baseUrl();
    return environment;
}

inline void writeConfig(const QByteArray& bytes) {
    QDir().mkpath(QFileInfo(AppConfig::filePath()).absolutePath());
    QFile file(AppConfig::filePath());
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
        qFatal("cannot write the configuration file");
}

inline QByteArray readConfig() {
    QFile file(AppConfig::filePath());
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

inline bool configExists() {
    return QFileInfo::exists(AppConfig::filePath());
}

inline void removeConfig() {
    const QFileInfo info(AppConfig::filePath());
    if (info.isDir())
        QDir(info.absoluteFilePath()).removeRecursively();
    else
        QFile::remove(info.absoluteFilePath());
}

inline QByteArray collectionsBody(const QList<Collection>& collections) {
    QJsonArray items;
    for (const Collection& collection : collections)
        items.append(QJsonObject{{QStringLiteral("_id"), collection.id},
                                 {QStringLiteral("title"), collection.title},
                                 {QStringLiteral("count"), collection.count}});
    return QJsonDocument(
               QJsonObject{{QStringLiteral("result"), true}, {QStringLiteral("items"), items}})
        .toJson(QJsonDocument::Compact);
}

inline QByteArray tagsBody(const QList<Tag>& tags) {
    QJsonArray items;
    for (const Tag& tag : tags)
        items.append(
            QJsonObject{{QStringLiteral("_id"), tag.name}, {QStringLiteral("count"), tag.count}});
    return QJsonDocument(
               QJsonObject{{QStringLiteral("result"), true}, {QStringLiteral("items"), items}})
        .toJson(QJsonDocument::Compact);
}

inline void serveAccount(TestHttpServer& server, const QList<Collection>& collections,
                         const QList<Tag>& tags,
                         std::chrono::milliseconds delay = std::chrono::milliseconds(0)) {
    server.on("GET", QStringLiteral("/rest/v1/collections"),
              TestHttpServer::Response::json(collectionsBody(collections)).after(delay));
    server.on("GET", QStringLiteral("/rest/v1/tags"),
              TestHttpServer::Response::json(tagsBody(tags)).after(delay));
}

} // namespace SettingsFixtures
