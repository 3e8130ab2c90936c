#include "app/hotkey/portal/PortalHotKeyBackend.h"

#include "app/hotkey/KeySymTable.h"

#include <QDBusArgument>
#include <QDBusMetaType>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QGuiApplication>
#include <QList>
#include <QStringList>

namespace {

const QString portalService = QStringLiteral("org.freedesktop.portal.Desktop");
const QString portalPath = QStringLiteral("/org/freedesktop/portal/desktop");
const QString shortcutsInterface = QStringLiteral("org.freedesktop.portal.GlobalShortcuts");
const QString requestInterface = QStringLiteral("org.freedesktop.portal.Request");
// The shortcut's identity towards the desktop, which keeps the user's choice of key under it:
// another id would lose that choice.
const QString shortcutId = QStringLiteral("open-menu");

// One entry of BindShortcuts' a(sa{sv}).
struct PortalShortcut {
    QString id;
    QVariantMap properties;
};

} // namespace

Q_DECLARE_METATYPE(PortalShortcut)

namespace {

QDBusArgument& operator<<(QDBusArgument& argument, const PortalShortcut& shortcut) {
    argument.beginStructure();
    argument << shortcut.id << shortcut.properties;
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, PortalShortcut& shortcut) {
    argument.beginStructure();
    argument >> shortcut.id >> shortcut.properties;
    argument.endStructure();
    return argument;
}

} // namespace

PortalHotKeyBackend::PortalHotKeyBackend(QDBusConnection bus, QObject* parent)
    : HotKeyBackend(parent)
    , m_bus(std::move(bus)) {
    qDBusRegisterMetaType<PortalShortcut>();
    qDBusRegisterMetaType<QList<PortalShortcut>>();
    m_bus.connect(portalService, portalPath, shortcutsInterface, QStringLiteral("Activated"), this,
                  SLOT(shortcutActivated(QDBusObjectPath, QString, qulonglong, QVariantMap)));
}

PortalHotKeyBackend::~PortalHotKeyBackend() {
    unregisterHotKey();
}

QString PortalHotKeyBackend::preferredTrigger(QKeyCombination key) {
    const QString name = KeySymTable::name(key.key());
    if (name.isEmpty())
        return {};
    const Qt::KeyboardModifiers modifiers = key.keyboardModifiers();
    QStringList parts;
    if (modifiers.testFlag(Qt::ControlModifier))
        parts << QStringLiteral("CTRL");
    if (modifiers.testFlag(Qt::AltModifier))
        parts << QStringLiteral("ALT");
    if (modifiers.testFlag(Qt::ShiftModifier))
        parts << QStringLiteral("SHIFT");
    // Qt's Meta is the Super ("logo") key.
    if (modifiers.testFlag(Qt::MetaModifier))
        parts << QStringLiteral("LOGO");
    parts << name;
    return parts.join(QLatin1Char('+'));
}

QString PortalHotKeyBackend::nextToken() {
    return QStringLiteral("quillmar%1").arg(++m_tokenCounter);
}

QString PortalHotKeyBackend::requestPath(const QString& token) const {
    // The portal names the request object after the caller's unique name and the token, so the
    // answer can be awaited before the call is even made.
    QString sender = m_bus.baseService().mid(1);
    sender.replace(QLatin1Char('.'), QLatin1Char('_'));
    return portalPath + QStringLiteral("/request/") + sender + QLatin1Char('/') + token;
}

void PortalHotKeyBackend::watchRequest(const QString& path) {
    m_pendingRequests.insert(path);
    m_bus.connect(portalService, path, requestInterface, QStringLiteral("Response"), this,
                  SLOT(requestAnswered(uint, QVariantMap, QDBusMessage)));
}

void PortalHotKeyBackend::unwatchRequest(const QString& path) {
    m_pendingRequests.remove(path);
    m_bus.disconnect(portalService, path, requestInterface, QStringLiteral("Response"), this,
                     SLOT(requestAnswered(uint, QVariantMap, QDBusMessage)));
}

void PortalHotKeyBackend::registerHotKey(QKeyCombination key) {
    unregisterHotKey();
    if (!m_bus.isConnected())
        return;
    m_trigger = preferredTrigger(key);

    if (!m_appRegistered) {
        // Tells the portal which application this unsandboxed process is, so the desktop can
        // file the shortcut under Quillmar. Portals before 1.19 do not have it; no answer needed.
        m_appRegistered = true;
        QDBusMessage registry = QDBusMessage::createMethodCall(
            portalService, portalPath, QStringLiteral("org.freedesktop.host.portal.Registry"),
            QStringLiteral("Register"));
        registry << QGuiApplication::desktopFileName() << QVariantMap();
        m_bus.asyncCall(registry);
    }

    const QString token = nextToken();
    const QString path = requestPath(token);
    watchRequest(path);
    m_currentRequest = path;

    QDBusMessage create = QDBusMessage::createMethodCall(
        portalService, portalPath, shortcutsInterface, QStringLiteral("CreateSession"));
    create << QVariantMap{{QStringLiteral("handle_token"), token},
                          {QStringLiteral("session_handle_token"), token}};
    auto* watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(create), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this, path](QDBusPendingCallWatcher* call) {
                call->deleteLater();
                const QDBusPendingReply<QDBusObjectPath> reply = *call;
                if (reply.isError()) {
                    // No portal, or one without global shortcuts: no hot key, nothing said.
                    unwatchRequest(path);
                    if (m_currentRequest == path)
                        m_currentRequest.clear();
                    return;
                }
                const QString handle = reply.value().path();
                // Portals older than the predictable request paths answer on another object.
                if (handle != path && m_pendingRequests.contains(path)) {
                    unwatchRequest(path);
                    watchRequest(handle);
                    if (m_currentRequest == path)
                        m_currentRequest = handle;
                }
            });
}

void PortalHotKeyBackend::requestAnswered(uint response, const QVariantMap& results,
                                          const QDBusMessage& message) {
    const QString path = message.path();
    if (!m_pendingRequests.contains(path))
        return;
    unwatchRequest(path);
    if (response != 0)
        return;
    const QVariant handle = results.value(QStringLiteral("session_handle"));
    // Documented as a string; some portals send an object path.
    const QString session = handle.userType() == qMetaTypeId<QDBusObjectPath>()
                                ? handle.value<QDBusObjectPath>().path()
                                : handle.toString();
    if (session.isEmpty())
        return;
    if (path != m_currentRequest) {
        // The key was given back (or changed) while the session was being created.
        closeSession(session);
        return;
    }
    m_currentRequest.clear();
    m_session = session;
    bindShortcut();
}

void PortalHotKeyBackend::bindShortcut() {
    QVariantMap properties{
        {QStringLiteral("description"), QStringLiteral("Open the Quillmar menu")}};
    if (!m_trigger.isEmpty())
        properties.insert(QStringLiteral("preferred_trigger"), m_trigger);
    const QList<PortalShortcut> shortcuts{{shortcutId, properties}};

    QDBusMessage bind = QDBusMessage::createMethodCall(
        portalService, portalPath, shortcutsInterface, QStringLiteral("BindShortcuts"));
    // A tray program has no parent window to name.
    bind << QVariant::fromValue(QDBusObjectPath(m_session)) << QVariant::fromValue(shortcuts)
         << QString() << QVariantMap{{QStringLiteral("handle_token"), nextToken()}};
    // The answer only lists the keys the desktop settled on; Activated tells all that matters.
    m_bus.asyncCall(bind);
}

void PortalHotKeyBackend::closeSession(const QString& session) {
    m_bus.asyncCall(QDBusMessage::createMethodCall(portalService, session,
                                                   QStringLiteral("org.freedesktop.portal.Session"),
                                                   QStringLiteral("Close")));
}

void PortalHotKeyBackend::unregisterHotKey() {
    // A session still being created is closed when its answer arrives.
    m_currentRequest.clear();
    if (!m_session.isEmpty()) {
        closeSession(m_session);
        m_session.clear();
    }
}

void PortalHotKeyBackend::shortcutActivated(const QDBusObjectPath& session, const QString& shortcut,
                                            qulonglong timestamp, const QVariantMap& options) {
    Q_UNUSED(timestamp);
    Q_UNUSED(options);
    if (!m_session.isEmpty() && session.path() == m_session && shortcut == shortcutId)
        Q_EMIT pressed();
}
