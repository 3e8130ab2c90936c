#include "app/tray/StatusItem.h"

#include "app/popup/MenuPopup.h"
#include "app/tray/DropIconEngine.h"
#include "app/tray/StatusNotifierItem.h"

#include <QCursor>
#include <QDBusConnection>
#include <QDBusServiceWatcher>
#include <QGuiApplication>
#include <QScreen>
#include <QStyleHints>
#include <QTimer>

using namespace Qt::StringLiterals;

QIcon StatusItem::dropIcon() {
    return QIcon(new DropIconEngine);
}

StatusItem::StatusItem(QObject* parent)
    : QObject(parent)
    , m_popup(MenuPopup::forThisDesktop()) {
    if (StatusNotifierItem::isHostAvailable() && useStatusNotifierItem())
        return;
    // XEmbed icons exist on X11 only; on Wayland the icon waits for a panel (Qt's own fallback
    // there complains on standard error and shows nothing).
    if (!QGuiApplication::platformName().startsWith(QLatin1String("wayland"))) {
        // Created only here: Qt decides once per process, when the first QSystemTrayIcon is
        // made, whether its icons go to a StatusNotifierItem panel, and with no panel now it
        // picks XEmbed.
        m_trayIcon = std::make_unique<QSystemTrayIcon>(dropIcon());
        m_trayIcon->setToolTip(QStringLiteral("Quillmar"));
        // A left click arrives as an activation; the menu opens on it as on a right click,
        // which the tray handles itself through the context menu.
        connect(m_trayIcon.get(), &QSystemTrayIcon::activated, this,
                [this](QSystemTrayIcon::ActivationReason reason) {
                    if (reason == QSystemTrayIcon::Trigger)
                        performClick();
                });
        m_trayIcon->show();
    }
    // A panel that starts later (the program started first at login, or the AppIndicator
    // extension was switched on) announces itself; the icon moves there.
    const QString watcher = u"org.kde.StatusNotifierWatcher"_s;
    m_panelWatcher = std::make_unique<QDBusServiceWatcher>(
        watcher, QDBusConnection::sessionBus(), QDBusServiceWatcher::WatchForRegistration);
    connect(m_panelWatcher.get(), &QDBusServiceWatcher::serviceRegistered, this,
            &StatusItem::panelStarted);
    QDBusConnection::sessionBus().connect(QString(), u"/StatusNotifierWatcher"_s, watcher,
                                          u"StatusNotifierHostRegistered"_s, this,
                                          SLOT(panelStarted()));
    // A panel that registered between the first look and now (Plasma while it starts) sent its
    // signal too early to be heard.
    QTimer::singleShot(0, this, &StatusItem::panelStarted);
}

StatusItem::~StatusItem() {
    delete m_waitingMenu;
    delete m_menu;
}

void StatusItem::panelStarted() {
    if (m_notifierItem || !StatusNotifierItem::isHostAvailable() || !useStatusNotifierItem())
        return;
    if (m_trayIcon) {
        m_trayIcon->setContextMenu(nullptr);
        m_trayIcon->hide();
    }
    m_panelWatcher.reset();
}

bool StatusItem::useStatusNotifierItem() {
    auto item = std::make_unique<StatusNotifierItem>(u"quillmar"_s, u"Quillmar"_s, dropIcon(),
                                                     u"app.quillmar.Quillmar-symbolic"_s);
    if (!item->registerItem())
        return false;
    connect(item.get(), &StatusNotifierItem::activated, this, [this](QPoint at) {
        // waybar (GTK) reports each press of a double click as a click of its own: one gesture
        // opens or closes the menu once.
        const int doubleClick = QGuiApplication::styleHints()->mouseDoubleClickInterval();
        const bool sameGesture =
            m_lastActivation.isValid() && m_lastActivation.elapsed() < doubleClick;
        m_lastActivation.start();
        if (sameGesture)
            return;
        m_lastClick = at;
        popupAt(at);
    });
    connect(item.get(), &StatusNotifierItem::contextMenuRequested, this, &StatusItem::popupAt);
    // Queued: the panel's call that closed it is answered first.
    connect(item.get(), &StatusNotifierItem::menuClosed, this, &StatusItem::closed,
            Qt::QueuedConnection);
    item->setMenu(m_menu);
    m_notifierItem = std::move(item);
    return true;
}

void StatusItem::setMenu(QMenu* menu) {
    if (menu == m_menu)
        return;
    if (isMenuOpen()) {
        if (m_waitingMenu != menu)
            delete m_waitingMenu;
        m_waitingMenu = menu;
        return;
    }
    attach(menu);
}

bool StatusItem::isMenuOpen() const {
    return (m_menu && m_menu->isVisible()) || isPanelMenuOpen();
}

bool StatusItem::isPanelMenuOpen() const {
    return m_notifierItem && m_notifierItem->isMenuOpen();
}

void StatusItem::closed() {
    if (isMenuOpen())
        return;
    if (m_waitingMenu)
        attach(m_waitingMenu);
    Q_EMIT menuClosed();
}

void StatusItem::attach(QMenu* menu) {
    if (menu == m_waitingMenu)
        m_waitingMenu = nullptr;
    QMenu* previous = m_menu;
    m_menu = menu;
    if (m_notifierItem)
        m_notifierItem->setMenu(menu);
    else if (m_trayIcon)
        m_trayIcon->setContextMenu(menu);
    if (previous) {
        previous->hide();
        previous->deleteLater();
    }
    // Queued: the menu is still closing when it says so.
    if (menu)
        connect(menu, &QMenu::aboutToHide, this, &StatusItem::closed, Qt::QueuedConnection);
    Q_EMIT menuChanged(menu);
}

void StatusItem::performClick() {
    if (!m_menu)
        return;
    if (m_notifierItem || !m_trayIcon) {
        popupAt(m_lastClick.value_or(QCursor::pos()));
        return;
    }
    const QRect icon = m_trayIcon->geometry();
    if (!icon.isValid()) {
        popupAt(QCursor::pos());
        return;
    }
    const QScreen* screen = QGuiApplication::screenAt(icon.center());
    const QRect available = screen ? screen->availableGeometry() : QRect();
    const QSize size = m_menu->sizeHint();
    QPoint at = icon.bottomLeft() + QPoint(0, 1);
    // A panel at the bottom of the screen: open upwards.
    if (available.isValid() && at.y() + size.height() > available.bottom())
        at.setY(icon.top() - size.height());
    popupAt(at);
}

void StatusItem::popupAt(QPoint at) {
    if (m_menu)
        m_popup->show(m_menu, at);
}
