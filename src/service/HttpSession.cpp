#include "service/HttpSession.h"

#include <QCoreApplication>
#include <QPointer>

QNetworkAccessManager& HttpSession::shared() {
    static QPointer<QNetworkAccessManager> manager;
    if (!manager)
        manager = new QNetworkAccessManager(QCoreApplication::instance());
    return *manager;
}
