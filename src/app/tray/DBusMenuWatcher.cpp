#include "app/tray/DBusMenuWatcher.h"

#include <QAction>
#include <QActionEvent>
#include <QDynamicPropertyChangeEvent>
#include <QEvent>
#include <QMenu>

namespace {

const QByteArray loadingProperty = QByteArrayLiteral("loading");

} // namespace

void DBusMenuWatcher::watch(QMenu* menu) {
    if (m_watched.contains(menu))
        return;
    m_watched.insert(menu);
    menu->installEventFilter(this);
    connect(menu, &QObject::destroyed, this, [this, menu] { m_watched.remove(menu); });
    const QList<QAction*> actions = menu->actions();
    for (QAction* action : actions)
        if (action->menu())
            watch(action->menu());
}

bool DBusMenuWatcher::isLoading(const QMenu* menu) {
    return menu && menu->property(loadingProperty.constData()).toBool();
}

bool DBusMenuWatcher::eventFilter(QObject* watched, QEvent* event) {
    switch (event->type()) {
    case QEvent::ActionAdded:
    case QEvent::ActionRemoved:
    case QEvent::ActionChanged: {
        auto* menu = static_cast<QMenu*>(watched);
        QAction* action = static_cast<QActionEvent*>(event)->action();
        if (event->type() == QEvent::ActionChanged)
            Q_EMIT entryChanged(menu, action);
        else
            Q_EMIT entriesChanged(menu);
        if (event->type() != QEvent::ActionRemoved && action->menu())
            watch(action->menu());
        break;
    }
    case QEvent::DynamicPropertyChange:
        if (static_cast<QDynamicPropertyChangeEvent*>(event)->propertyName() == loadingProperty &&
            !watched->property(loadingProperty.constData()).toBool())
            Q_EMIT filled();
        break;
    default:
        break;
    }
    return QObject::eventFilter(watched, event);
}
