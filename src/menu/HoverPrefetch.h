#pragma once

#include <QObject>
#include <QPointer>
#include <QTimer>

#include <chrono>
#include <memory>

class LazyMenuDelegate;
class QAction;
class QMenu;

// Loads the bookmarks of a submenu ahead of its opening when its item stays highlighted for the
// hover delay, so that the submenu opens filled.
class HoverPrefetch : public QObject {
    Q_OBJECT
public:
    HoverPrefetch(std::chrono::milliseconds delay, QObject* parent = nullptr);

    // Follows the highlight among menu's own items.
    void watch(QMenu* menu);
    // The highlight moved to item (none: it left every item).
    void highlight(QAction* item);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    std::chrono::milliseconds m_delay;
    QTimer m_timer;
    std::weak_ptr<LazyMenuDelegate> m_target;
    QPointer<QAction> m_highlighted;
};
