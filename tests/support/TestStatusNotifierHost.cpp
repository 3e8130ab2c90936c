#include "TestStatusNotifierHost.h"

#include <QCoreApplication>
#include <QDBusArgument>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusVariant>
#include <QDeadlineTimer>
#include <QEventLoop>

namespace {

const QString itemInterface = QStringLiteral("org.kde.StatusNotifierItem");
const QString menuInterface = QStringLiteral("com.canonical.dbusmenu");
const QString connectionName = QStringLiteral("test-status-notifier-host");

// One event of EventGroup as a panel sends it, D-Bus type (isvu).
struct HostEvent {
    int id = 0;
    QString eventId;
};

QDBusArgument& operator<<(QDBusArgument& argument, const HostEvent& event) {
    argument.beginStructure();
    argument << event.id << event.eventId << QDBusVariant(0) << 0u;
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, HostEvent& event) {
    QDBusVariant data;
    uint timestamp = 0;
    argument.beginStructure();
    argument >> event.id >> event.eventId >> data >> timestamp;
    argument.endStructure();
    return argument;
}

// A list of (ia{sv}): entries with their properties.
QList<QPair<int, QVariantMap>> readItems(const QDBusArgument& argument) {
    QList<QPair<int, QVariantMap>> items;
    argument.beginArray();
    while (!argument.atEnd()) {
        int id = 0;
        QVariantMap properties;
        argument.beginStructure();
        argument >> id >> properties;
        argument.endStructure();
        items.append({id, properties});
    }
    argument.endArray();
    return items;
}

TestStatusNotifierHost::MenuNode readNode(const QDBusArgument& argument) {
    TestStatusNotifierHost::MenuNode node;
    argument.beginStructure();
    argument >> node.id >> node.properties;
    argument.beginArray();
    while (!argument.atEnd()) {
        QDBusVariant child;
        argument >> child;
        node.children.append(readNode(child.variant().value<QDBusArgument>()));
    }
    argument.endArray();
    argument.endStructure();
    return node;
}

} // namespace

Q_DECLARE_METATYPE(HostEvent)

QString TestStatusNotifierHost::MenuNode::label() const {
    return properties.value(QStringLiteral("label")).toString();
}

QString TestStatusNotifierHost::MenuNode::shownLabel() const {
    // A panel draws "__" as "_" and takes a single "_" as the mark of the next letter.
    const QString sent = label();
    QString shown;
    for (qsizetype i = 0; i < sent.size(); ++i) {
        if (sent[i] == u'_') {
            if (i + 1 < sent.size() && sent[i + 1] == u'_') {
                shown.append(u'_');
                ++i;
            }
            continue;
        }
        shown.append(sent[i]);
    }
    return shown;
}

bool TestStatusNotifierHost::MenuNode::isSeparator() const {
    return properties.value(QStringLiteral("type")).toString() == QStringLiteral("separator");
}

bool TestStatusNotifierHost::MenuNode::isEnabled() const {
    return properties.value(QStringLiteral("enabled"), true).toBool();
}

bool TestStatusNotifierHost::MenuNode::isVisible() const {
    return properties.value(QStringLiteral("visible"), true).toBool();
}

bool TestStatusNotifierHost::MenuNode::hasSubmenu() const {
    return properties.value(QStringLiteral("children-display")).toString() ==
           QStringLiteral("submenu");
}

QStringList TestStatusNotifierHost::MenuNode::shownLabels() const {
    QStringList labels;
    for (const MenuNode& child : children)
        labels.append(child.isSeparator() ? QStringLiteral("---") : child.shownLabel());
    return labels;
}

const TestStatusNotifierHost::MenuNode*
TestStatusNotifierHost::MenuNode::find(const QString& shown) const {
    for (const MenuNode& child : children) {
        if (!child.isSeparator() && child.shownLabel() == shown)
            return &child;
        if (const MenuNode* below = child.find(shown))
            return below;
    }
    return nullptr;
}

TestStatusNotifierHost::TestStatusNotifierHost(const QString& busAddress, QObject* parent)
    : QObject(parent)
    , m_connection(QDBusConnection::connectToBus(busAddress, connectionName)) {
    qDBusRegisterMetaType<HostEvent>();
    qDBusRegisterMetaType<QList<HostEvent>>();
}

TestStatusNotifierHost::~TestStatusNotifierHost() {
    // A signal delivered to this host but not yet handled is an event that tells its connection
    // when it goes: no more are delivered, and those waiting go while the connection is there.
    if (!m_menuPath.isEmpty()) {
        m_connection.disconnect(m_service, m_menuPath, menuInterface,
                                QStringLiteral("LayoutUpdated"), this,
                                SLOT(onLayoutUpdated(uint, int)));
        m_connection.disconnect(m_service, m_menuPath, menuInterface,
                                QStringLiteral("ItemsPropertiesUpdated"), this,
                                SLOT(onItemsPropertiesUpdated(QDBusMessage)));
    }
    QCoreApplication::removePostedEvents(this);
    QDBusConnection::disconnectFromBus(connectionName);
}

bool TestStatusNotifierHost::attach(const QString& service, const QString& itemPath) {
    m_service = service;
    m_itemPath = itemPath;
    return attachMenu(service,
                      itemProperty(QStringLiteral("Menu")).value<QDBusObjectPath>().path());
}

bool TestStatusNotifierHost::attachMenu(const QString& service, const QString& menuPath) {
    m_service = service;
    m_menuPath = menuPath;
    if (m_menuPath.isEmpty())
        return false;
    return m_connection.connect(m_service, m_menuPath, menuInterface,
                                QStringLiteral("LayoutUpdated"), this,
                                SLOT(onLayoutUpdated(uint, int))) &&
           m_connection.connect(m_service, m_menuPath, menuInterface,
                                QStringLiteral("ItemsPropertiesUpdated"), this,
                                SLOT(onItemsPropertiesUpdated(QDBusMessage)));
}

QDBusMessage TestStatusNotifierHost::call(const QString& path, const QString& interface,
                                          const QString& method, const QVariantList& arguments) {
    QDBusMessage message = QDBusMessage::createMethodCall(m_service, path, interface, method);
    message.setArguments(arguments);
    QDBusPendingCallWatcher watcher(m_connection.asyncCall(message, 10000));
    if (!watcher.isFinished()) {
        QEventLoop loop;
        connect(&watcher, &QDBusPendingCallWatcher::finished, &loop, &QEventLoop::quit);
        loop.exec();
    }
    return watcher.reply();
}

QVariant TestStatusNotifierHost::itemProperty(const QString& name) {
    const QDBusMessage reply = call(m_itemPath, QStringLiteral("org.freedesktop.DBus.Properties"),
                                    QStringLiteral("Get"), {itemInterface, name});
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty())
        return {};
    return reply.arguments().constFirst().value<QDBusVariant>().variant();
}

std::optional<TestStatusNotifierHost::MenuNode>
TestStatusNotifierHost::layout(int parentId, int depth, const QStringList& names) {
    const QDBusMessage reply =
        call(m_menuPath, menuInterface, QStringLiteral("GetLayout"), {parentId, depth, names});
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().size() != 2)
        return std::nullopt;
    m_revision = reply.arguments().at(0).toUInt();
    return readNode(reply.arguments().at(1).value<QDBusArgument>());
}

std::optional<bool> TestStatusNotifierHost::aboutToShow(int id) {
    const QDBusMessage reply = call(m_menuPath, menuInterface, QStringLiteral("AboutToShow"), {id});
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().size() != 1)
        return std::nullopt;
    return reply.arguments().constFirst().toBool();
}

bool TestStatusNotifierHost::event(int id, const QString& eventId) {
    const QDBusMessage reply =
        call(m_menuPath, menuInterface, QStringLiteral("Event"),
             {id, eventId, QVariant::fromValue(QDBusVariant(QString())), 0u});
    return reply.type() == QDBusMessage::ReplyMessage;
}

std::optional<TestStatusNotifierHost::GroupAnswer>
TestStatusNotifierHost::aboutToShowGroup(const QList<int>& ids) {
    const QDBusMessage reply = call(m_menuPath, menuInterface, QStringLiteral("AboutToShowGroup"),
                                    {QVariant::fromValue(ids)});
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().size() != 2)
        return std::nullopt;
    return GroupAnswer{qdbus_cast<QList<int>>(reply.arguments().at(0)),
                       qdbus_cast<QList<int>>(reply.arguments().at(1))};
}

std::optional<QList<int>>
TestStatusNotifierHost::eventGroup(const QList<QPair<int, QString>>& events) {
    QList<HostEvent> list;
    for (const auto& [id, eventId] : events)
        list.append({id, eventId});
    const QDBusMessage reply =
        call(m_menuPath, menuInterface, QStringLiteral("EventGroup"), {QVariant::fromValue(list)});
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().size() != 1)
        return std::nullopt;
    return qdbus_cast<QList<int>>(reply.arguments().at(0));
}

std::optional<QList<QPair<int, QVariantMap>>>
TestStatusNotifierHost::groupProperties(const QList<int>& ids, const QStringList& names) {
    const QDBusMessage reply = call(m_menuPath, menuInterface, QStringLiteral("GetGroupProperties"),
                                    {QVariant::fromValue(ids), names});
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().size() != 1)
        return std::nullopt;
    return readItems(reply.arguments().at(0).value<QDBusArgument>());
}

QVariant TestStatusNotifierHost::property(int id, const QString& name) {
    const QDBusMessage reply =
        call(m_menuPath, menuInterface, QStringLiteral("GetProperty"), {id, name});
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty())
        return {};
    return reply.arguments().constFirst().value<QDBusVariant>().variant();
}

QString TestStatusNotifierHost::introspect(const QString& path) {
    const QDBusMessage reply = call(path, QStringLiteral("org.freedesktop.DBus.Introspectable"),
                                    QStringLiteral("Introspect"), {});
    return reply.arguments().value(0).toString();
}

bool TestStatusNotifierHost::activate(QPoint at) {
    return call(m_itemPath, itemInterface, QStringLiteral("Activate"), {at.x(), at.y()}).type() ==
           QDBusMessage::ReplyMessage;
}

bool TestStatusNotifierHost::contextMenu(QPoint at) {
    return call(m_itemPath, itemInterface, QStringLiteral("ContextMenu"), {at.x(), at.y()})
               .type() == QDBusMessage::ReplyMessage;
}

bool TestStatusNotifierHost::waitForLayoutUpdate(qsizetype count, int timeoutMs) {
    QDeadlineTimer deadline(timeoutMs);
    while (m_layoutUpdates.size() <= count) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    }
    return true;
}

void TestStatusNotifierHost::onLayoutUpdated(uint revision, int parent) {
    m_layoutUpdates.append({revision, parent});
}

void TestStatusNotifierHost::onItemsPropertiesUpdated(const QDBusMessage& message) {
    ++m_propertyUpdates;
    if (!message.arguments().isEmpty())
        m_updatedProperties += readItems(message.arguments().constFirst().value<QDBusArgument>());
}

bool TestStatusNotifierHost::waitForPropertyUpdate(int count, int timeoutMs) {
    QDeadlineTimer deadline(timeoutMs);
    while (m_propertyUpdates <= count) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    }
    return true;
}
