#include "service/HttpSession.h"

#include <QCoreApplication>
#include <QNetworkReply>
#include <QPointer>

#include <algorithm>

namespace {

QPointer<QNetworkAccessManager>& instance() {
    static QPointer<QNetworkAccessManager> manager;
    return manager;
}

std::function<bool()>& inUse() {
    static std::function<bool()> predicate;
    return predicate;
}

bool isRequestInFlight(const QNetworkAccessManager& manager) {
    const QList<QNetworkReply*> replies =
        manager.findChildren<QNetworkReply*>(Qt::FindDirectChildrenOnly);
    return std::any_of(replies.cbegin(), replies.cend(),
                       [](const QNetworkReply* reply) { return !reply->isFinished(); });
}

} // namespace

QNetworkAccessManager& HttpSession::shared() {
    QPointer<QNetworkAccessManager>& manager = instance();
    if (!manager) {
        manager = new QNetworkAccessManager(QCoreApplication::instance());
        // Queued: the code that awaited the answer has sent its next request by then (the
        // menu's second round trip), which keeps the connection.
        QObject::connect(
            manager, &QNetworkAccessManager::finished, manager,
            [] {
                if (!inUse() || !inUse()())
                    closeIdleConnections();
            },
            Qt::QueuedConnection);
    }
    return *manager;
}

void HttpSession::keepConnectionsWhile(std::function<bool()> predicate) {
    inUse() = std::move(predicate);
}

void HttpSession::closeIdleConnections() {
    const QPointer<QNetworkAccessManager>& manager = instance();
    // The requests in flight close them when their answers are in.
    if (manager && !isRequestInFlight(*manager))
        manager->clearConnectionCache();
}
