#include "app/tray/DBusMenuPendingShows.h"

#include "app/tray/DBusMenuAnnouncer.h"
#include "app/tray/DBusMenuEntryIds.h"
#include "app/tray/DBusMenuWatcher.h"

#include <QTimer>

#include <algorithm>

DBusMenuPendingShows::DBusMenuPendingShows(const DBusMenuEntryIds& ids,
                                           DBusMenuAnnouncer& announcer, QObject* parent)
    : QObject(parent)
    , m_ids(ids)
    , m_announcer(announcer) {}

void DBusMenuPendingShows::wait(const QDBusMessage& call, const Show& show) {
    auto* deadline = new QTimer(this);
    deadline->setSingleShot(true);
    deadline->setTimerType(Qt::PreciseTimer);
    connect(deadline, &QTimer::timeout, this, [this, deadline] {
        for (qsizetype i = 0; i < m_pending.size(); ++i) {
            if (m_pending[i].deadline == deadline) {
                answer(m_pending.takeAt(i));
                return;
            }
        }
    });
    deadline->start(fillWait);
    m_pending.append({call, show, deadline});
}

void DBusMenuPendingShows::answerFilled() {
    for (qsizetype i = 0; i < m_pending.size();) {
        const auto& ids = m_pending[i].show.ids;
        if (std::any_of(ids.cbegin(), ids.cend(),
                        [this](int id) { return DBusMenuWatcher::isLoading(m_ids.menuOf(id)); })) {
            ++i;
            continue;
        }
        answer(m_pending.takeAt(i));
    }
}

void DBusMenuPendingShows::answer(const Pending& pending) {
    pending.deadline->deleteLater();
    const QList<int> updates = m_announcer.unreadMenus(pending.show.reader, pending.show.ids);
    QDBusMessage reply = pending.call.createReply();
    if (pending.show.group)
        reply << QVariant::fromValue(updates) << QVariant::fromValue(pending.show.idErrors);
    else
        reply << !updates.isEmpty();
    m_connection.send(reply);
}
