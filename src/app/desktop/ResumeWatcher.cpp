#include "app/desktop/ResumeWatcher.h"

#include <QDBusConnection>

using namespace Qt::StringLiterals;

namespace {

const QString service = u"org.freedesktop.login1"_s;
const QString path = u"/org/freedesktop/login1"_s;
const QString interface = u"org.freedesktop.login1.Manager"_s;
const QString signal = u"PrepareForSleep"_s;

} // namespace

ResumeWatcher::ResumeWatcher(QObject* parent)
    : QObject(parent) {
    // Bound to the service's name, so that only logind is heard, also once it starts later.
    QDBusConnection bus = QDBusConnection::systemBus();
    m_listening = bus.isConnected() &&
                  bus.connect(service, path, interface, signal, this, SLOT(prepareForSleep(bool)));
}

// The bus drops the connection when this object goes.
ResumeWatcher::~ResumeWatcher() = default;

void ResumeWatcher::prepareForSleep(bool sleeping) {
    if (!sleeping)
        Q_EMIT resumed();
}
