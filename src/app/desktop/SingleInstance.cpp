#include "app/desktop/SingleInstance.h"

#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusReply>

#include <utility>

namespace {
// Long enough for a busy first instance, short enough not to look hung.
constexpr int showMenuTimeoutMs = 5000;
} // namespace

SingleInstance::SingleInstance(QDBusConnection bus, QObject* parent)
    : QObject(parent)
    , m_bus(std::move(bus)) {}

SingleInstance::~SingleInstance() {
    if (!m_owner)
        return;
    m_bus.unregisterObject(objectPath());
    m_bus.unregisterService(serviceName());
}

bool SingleInstance::claim() {
    if (!m_bus.isConnected())
        return true;
    // The object is in place before the name, so whoever finds the name also finds the methods:
    // ShowMenu, and those of the adaptors made on this object (org.freedesktop.Application).
    if (!m_bus.registerObject(objectPath(), this,
                              QDBusConnection::ExportAllSlots | QDBusConnection::ExportAdaptors))
        return true;
    const QDBusReply<QDBusConnectionInterface::RegisterServiceReply> reply =
        m_bus.interface()->registerService(serviceName(),
                                           QDBusConnectionInterface::DontQueueService,
                                           QDBusConnectionInterface::DontAllowReplacement);
    if (reply.isValid() && reply.value() == QDBusConnectionInterface::ServiceNotRegistered) {
        m_bus.unregisterObject(objectPath());
        return false;
    }
    m_owner = reply.isValid() && reply.value() == QDBusConnectionInterface::ServiceRegistered;
    if (!m_owner)
        m_bus.unregisterObject(objectPath());
    return true;
}

bool SingleInstance::showMenuInRunningInstance() {
    const QDBusMessage call = QDBusMessage::createMethodCall(
        serviceName(), objectPath(), interfaceName(), QStringLiteral("ShowMenu"));
    return m_bus.call(call, QDBus::Block, showMenuTimeoutMs).type() == QDBusMessage::ReplyMessage;
}

void SingleInstance::setAction(std::function<void()> action) {
    m_action = std::move(action);
}

void SingleInstance::ShowMenu() {
    // The caller gets its answer first; the menu opens from the event loop, as from the hot key.
    QMetaObject::invokeMethod(
        this,
        [this] {
            if (m_action)
                m_action();
        },
        Qt::QueuedConnection);
}
