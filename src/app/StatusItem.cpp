#include "app/StatusItem.h"

#include <QCursor>
#include <QGuiApplication>
#include <QScreen>

static void initResources() {
    Q_INIT_RESOURCE(quillmar);
}

QIcon StatusItem::dropIcon() {
    initResources();
    return QIcon(QStringLiteral(":/icons/quillmar.svg"));
}

StatusItem::StatusItem(QObject* parent)
    : QObject(parent) {
    m_trayIcon.setIcon(dropIcon());
    m_trayIcon.setToolTip(QStringLiteral("Quillmar"));
    // A left click arrives as an activation on every tray; the menu opens on it as on a right
    // click, which the tray handles itself through the context menu.
    connect(&m_trayIcon, &QSystemTrayIcon::activated, this,
            [this](QSystemTrayIcon::ActivationReason reason) {
                if (reason == QSystemTrayIcon::Trigger)
                    performClick();
            });
    m_trayIcon.show();
}

StatusItem::~StatusItem() {
    delete m_menu;
}

void StatusItem::setMenu(QMenu* menu) {
    if (menu == m_menu)
        return;
    QMenu* previous = m_menu;
    m_menu = menu;
    m_trayIcon.setContextMenu(menu);
    if (previous) {
        previous->hide();
        previous->deleteLater();
    }
    Q_EMIT menuChanged(menu);
}

void StatusItem::performClick() {
    if (!m_menu)
        return;
    const QRect icon = m_trayIcon.geometry();
    if (!icon.isValid()) {
        m_menu->popup(QCursor::pos());
        return;
    }
    const QScreen* screen = QGuiApplication::screenAt(icon.center());
    const QRect available = screen ? screen->availableGeometry() : QRect();
    const QSize size = m_menu->sizeHint();
    QPoint at = icon.bottomLeft() + QPoint(0, 1);
    // A panel at the bottom of the screen: open upwards.
    if (available.isValid() && at.y() + size.height() > available.bottom())
        at.setY(icon.top() - size.height());
    m_menu->popup(at);
}
