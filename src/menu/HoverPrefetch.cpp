#include "menu/HoverPrefetch.h"

#include "menu/LazyMenuDelegate.h"

#include <QEvent>
#include <QMenu>

HoverPrefetch::HoverPrefetch(std::chrono::milliseconds delay, QObject* parent)
    : QObject(parent)
    , m_delay(delay) {
    m_timer.setSingleShot(true);
    m_timer.setTimerType(Qt::PreciseTimer);
    connect(&m_timer, &QTimer::timeout, this, [this] {
        if (const auto delegate = m_target.lock())
            delegate->prefetch();
    });
}

void HoverPrefetch::watch(QMenu* menu) {
    connect(menu, &QMenu::hovered, this, [this, menu](QAction* action) {
        // The menu repeats the signal while the pointer moves over one item, and passes on
        // the highlights of its submenus' items; only a change among its own items counts.
        if (action == m_highlighted || !menu->actions().contains(action))
            return;
        highlight(action);
    });
    connect(menu, &QMenu::aboutToHide, this, [this] { highlight(nullptr); });
    menu->installEventFilter(this);
}

bool HoverPrefetch::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() == QEvent::MouseMove || event->type() == QEvent::Leave) {
        // The menu announces no highlight of "nothing" (a separator, a disabled line, outside
        // the menu): look once it has handled the event.
        QMetaObject::invokeMethod(
            this,
            [this, menu = QPointer<QMenu>(qobject_cast<QMenu*>(watched))] {
                if (menu && m_highlighted && !menu->activeAction())
                    highlight(nullptr);
            },
            Qt::QueuedConnection);
    }
    return QObject::eventFilter(watched, event);
}

void HoverPrefetch::highlight(QAction* item) {
    m_timer.stop();
    m_target.reset();
    m_highlighted = item;
    if (!item || !item->menu())
        return;
    const std::shared_ptr<LazyMenuDelegate> delegate = LazyMenuDelegate::of(item->menu());
    if (!delegate)
        return;
    m_target = delegate;
    m_timer.start(m_delay);
}
