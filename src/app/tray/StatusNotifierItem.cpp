#include "app/tray/StatusNotifierItem.h"

#include "app/wayland/XdgActivation.h"

#include <QCoreApplication>
#include <QDBusConnectionInterface>
#include <QDBusError>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusVariant>
#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>

using namespace Qt::StringLiterals;

namespace {

const QString watcherService = u"org.kde.StatusNotifierWatcher"_s;
const QString watcherPath = u"/StatusNotifierWatcher"_s;
const QString itemPath = u"/StatusNotifierItem"_s;
const QString menuObjectPath = u"/MenuBar"_s;
// A watcher that does not answer at once is treated as absent rather than delaying start-up.
constexpr int watcherTimeoutMs = 2000;
int instances = 0;

// The folder of icon themes ("…/share/icons") whose fallback theme holds the named icon; empty
// when no theme on this system has it (the program runs from where it was built).
QString iconThemeHolding(const QString& iconName) {
    if (iconName.isEmpty())
        return {};
    const QStringList bases = QStandardPaths::locateAll(
        QStandardPaths::GenericDataLocation, u"icons"_s, QStandardPaths::LocateDirectory);
    for (const QString& base : bases) {
        for (const QString& folder : {u"hicolor/symbolic/apps/"_s, u"hicolor/scalable/apps/"_s}) {
            if (QFileInfo::exists(QDir(base).filePath(folder + iconName + u".svg"_s)))
                return QDir::cleanPath(base);
        }
    }
    return {};
}

} // namespace

StatusNotifierItem::StatusNotifierItem(QString id, QString title, const QIcon& icon,
                                       const QString& iconName, QObject* parent)
    : QObject(parent)
    , m_id(std::move(id))
    , m_title(std::move(title))
    , m_iconThemePath(iconThemeHolding(iconName))
    , m_serviceName(u"org.kde.StatusNotifierItem-%1-%2"_s.arg(QCoreApplication::applicationPid())
                        .arg(++instances))
    , m_connectionName(u"quillmar-status-notifier-%1"_s.arg(instances))
    , m_connection(QDBusConnection::connectToBus(QDBusConnection::SessionBus, m_connectionName))
    , m_watcherWatcher(watcherService, m_connection, QDBusServiceWatcher::WatchForRegistration) {
    qDBusRegisterMetaType<DBusImage>();
    qDBusRegisterMetaType<DBusImageList>();
    qDBusRegisterMetaType<DBusToolTip>();
    m_images = DBusImage::fromIcon(icon);
    if (!m_iconThemePath.isEmpty())
        m_iconName = iconName;
    // A panel that restarts brings a new watcher, which knows nothing of this item.
    connect(&m_watcherWatcher, &QDBusServiceWatcher::serviceRegistered, this,
            &StatusNotifierItem::watcherStarted);
    m_connection.connect(watcherService, watcherPath, watcherService,
                         u"StatusNotifierItemUnregistered"_s, this,
                         SLOT(itemUnregistered(QString)));
    connect(&m_exporter, &DBusMenuExporter::menuClosed, this, &StatusNotifierItem::menuClosed);
}

StatusNotifierItem::~StatusNotifierItem() {
    m_connection.unregisterObject(itemPath);
    m_connection.unregisterObject(menuObjectPath);
    m_connection.unregisterService(m_serviceName);
    QDBusConnection::disconnectFromBus(m_connectionName);
}

bool StatusNotifierItem::isHostAvailable(QDBusConnection connection) {
    if (!connection.isConnected() || !connection.interface() ||
        !connection.interface()->isServiceRegistered(watcherService))
        return false;
    QDBusMessage get = QDBusMessage::createMethodCall(
        watcherService, watcherPath, u"org.freedesktop.DBus.Properties"_s, u"Get"_s);
    get.setArguments({watcherService, u"IsStatusNotifierHostRegistered"_s});
    const QDBusMessage reply = connection.call(get, QDBus::Block, watcherTimeoutMs);
    // A watcher too busy to answer in time (kded5 while Plasma starts) most likely has its
    // panel: Qt's own tray icon would take it as one a moment later and publish the menu itself.
    if (reply.type() == QDBusMessage::ErrorMessage &&
        QDBusError(reply).type() == QDBusError::NoReply)
        return true;
    return reply.type() == QDBusMessage::ReplyMessage && !reply.arguments().isEmpty() &&
           reply.arguments().constFirst().value<QDBusVariant>().variant().toBool();
}

bool StatusNotifierItem::registerItem() {
    if (!m_connection.registerObject(itemPath, this,
                                     QDBusConnection::ExportScriptableSlots |
                                         QDBusConnection::ExportAllProperties) ||
        !m_exporter.registerOn(m_connection, menuObjectPath))
        return false;
    // A well-known name as well as the connection's own: some hosts only take those.
    m_connection.registerService(m_serviceName);
    registerWithWatcher();
    return true;
}

void StatusNotifierItem::watcherStarted() {
    m_registrationsAgain = 0;
    registerWithWatcher();
}

void StatusNotifierItem::itemUnregistered(const QString& item) {
    if (!isThisItem(item) || m_registrationsAgain > maxRegistrationsAgain)
        return;
    if (m_registrationsAgain++ == maxRegistrationsAgain) {
        qWarning("The panel dropped the tray icon %d times; it is not offered again until the "
                 "panel restarts.",
                 maxRegistrationsAgain + 1);
        return;
    }
    // Queued: the watcher is still busy with the item it dropped.
    QMetaObject::invokeMethod(this, &StatusNotifierItem::registerWithWatcher, Qt::QueuedConnection);
}

bool StatusNotifierItem::isThisItem(const QString& item) const {
    // A bus name, alone or followed by the object path ("name/path", GNOME's "name@path").
    for (const QString& name : {m_serviceName, m_connection.baseService()}) {
        if (item == name)
            return true;
        if (item.size() > name.size() && item.startsWith(name) &&
            (item.at(name.size()) == u'/' || item.at(name.size()) == u'@'))
            return true;
    }
    return false;
}

void StatusNotifierItem::registerWithWatcher() {
    QDBusMessage call = QDBusMessage::createMethodCall(watcherService, watcherPath, watcherService,
                                                       u"RegisterStatusNotifierItem"_s);
    call.setArguments({m_serviceName});
    // Not waited for: a watcher that fails to answer leaves only the icon missing.
    m_connection.asyncCall(call);
}

QString StatusNotifierItem::category() const {
    return u"ApplicationStatus"_s;
}

QString StatusNotifierItem::status() const {
    return u"Active"_s;
}

QDBusObjectPath StatusNotifierItem::menuPath() const {
    return QDBusObjectPath(menuObjectPath);
}

void StatusNotifierItem::Activate(int x, int y) {
    Q_EMIT activated(QPoint(x, y));
}

void StatusNotifierItem::SecondaryActivate(int x, int y) {
    Q_EMIT activated(QPoint(x, y));
}

void StatusNotifierItem::ContextMenu(int x, int y) {
    Q_EMIT contextMenuRequested(QPoint(x, y));
}

void StatusNotifierItem::Scroll(int, const QString&) {}

void StatusNotifierItem::ProvideXdgActivationToken(const QString& token) {
    XdgActivation::setToken(token);
    Q_EMIT activationTokenProvided(token);
}
