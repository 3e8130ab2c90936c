#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QList>
#include <QObject>
#include <QPair>
#include <QPoint>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <QVariantMap>

#include <optional>

// The panel's side of a StatusNotifierItem, for tests: reads the item's properties and its menu
// exported over com.canonical.dbusmenu, and sends what a panel sends (about-to-show calls, menu
// events, activations). Every call is asynchronous and spins the event loop while it waits, so
// that the item may live on the test's own thread.
class TestStatusNotifierHost : public QObject {
    Q_OBJECT
public:
    // One entry of an exported menu layout.
    struct MenuNode {
        int id = 0;
        QVariantMap properties;
        QList<MenuNode> children;

        // The label as sent, in the menu protocol's notation ("_" marks a mnemonic, "__" is an
        // underscore).
        QString label() const;
        // The label as a panel shows it.
        QString shownLabel() const;
        bool isSeparator() const;
        bool isEnabled() const;
        bool isVisible() const;
        bool hasSubmenu() const;
        // The children's shown labels, separators as "---".
        QStringList shownLabels() const;
        // The first node below this one (depth first) that shows this label.
        const MenuNode* find(const QString& shown) const;
    };

    explicit TestStatusNotifierHost(const QString& busAddress, QObject* parent = nullptr);
    ~TestStatusNotifierHost() override;

    // Talks to the item at service and path from now on and listens to its menu's signals.
    bool attach(const QString& service, const QString& itemPath);
    // Talks to a menu alone, exported at menuPath by service.
    bool attachMenu(const QString& service, const QString& menuPath);

    // A property of the item (org.kde.StatusNotifierItem), invalid when it cannot be read.
    QVariant itemProperty(const QString& name);
    QString menuPath() const { return m_menuPath; }

    // The menu below parentId (0: the whole menu) down to depth levels (-1: all), with the
    // properties named (none: all).
    std::optional<MenuNode> layout(int parentId = 0, int depth = -1, const QStringList& names = {});
    uint lastRevision() const { return m_revision; }
    // The value of AboutToShow ("update needed"); none when the call fails.
    std::optional<bool> aboutToShow(int id);
    bool event(int id, const QString& eventId);
    // AboutToShowGroup: the ids whose menus need reading again and the unknown ids; none when
    // the call fails.
    struct GroupAnswer {
        QList<int> updatesNeeded;
        QList<int> idErrors;
    };
    std::optional<GroupAnswer> aboutToShowGroup(const QList<int>& ids);
    // EventGroup with one (id, event) pair per entry: the unknown ids; none when the call fails.
    std::optional<QList<int>> eventGroup(const QList<QPair<int, QString>>& events);
    // GetGroupProperties: each entry's id and properties, in the order sent.
    std::optional<QList<QPair<int, QVariantMap>>> groupProperties(const QList<int>& ids,
                                                                  const QStringList& names = {});
    // GetProperty; invalid when the call fails.
    QVariant property(int id, const QString& name);
    // The introspection data of the object at path.
    QString introspect(const QString& path);
    bool activate(QPoint at);
    bool contextMenu(QPoint at);

    // LayoutUpdated signals received so far: (revision, parent id).
    QList<QPair<uint, int>> layoutUpdates() const { return m_layoutUpdates; }
    // ItemsPropertiesUpdated signals received so far, and the properties they set.
    int propertyUpdates() const { return m_propertyUpdates; }
    QList<QPair<int, QVariantMap>> updatedProperties() const { return m_updatedProperties; }
    // Spins the event loop until more than count ItemsPropertiesUpdated signals arrived.
    bool waitForPropertyUpdate(int count, int timeoutMs = 10000);
    // Spins the event loop until more than count LayoutUpdated signals arrived.
    bool waitForLayoutUpdate(qsizetype count, int timeoutMs = 10000);

    // Calls method of interface at path on the item's service and waits for the answer.
    QDBusMessage call(const QString& path, const QString& interface, const QString& method,
                      const QVariantList& arguments);

private Q_SLOTS:
    void onLayoutUpdated(uint revision, int parent);
    void onItemsPropertiesUpdated(const QDBusMessage& message);

private:
    QDBusConnection m_connection;
    QString m_service;
    QString m_itemPath;
    QString m_menuPath;
    uint m_revision = 0;
    QList<QPair<uint, int>> m_layoutUpdates;
    int m_propertyUpdates = 0;
    QList<QPair<int, QVariantMap>> m_updatedProperties;
};
