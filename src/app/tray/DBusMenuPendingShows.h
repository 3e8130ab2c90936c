#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QList>
#include <QObject>
#include <QString>

#include <chrono>

class DBusMenuAnnouncer;
class DBusMenuEntryIds;
class QTimer;

// About-to-show calls whose answer waits until their menus are filled, so that the panel shows
// them filled the first time; a menu still being filled after fillWait is shown as it is.
class DBusMenuPendingShows : public QObject {
    Q_OBJECT
public:
    // The longest an about-to-show call waits for a menu being filled. libdbusmenu-qt panels
    // (LXQt) wait up to 3 s for the answer before they show the menu as it is.
    static constexpr std::chrono::milliseconds fillWait = std::chrono::seconds(2);

    // What an about-to-show call asked, and what its answer holds besides.
    struct Show {
        // The caller on the bus.
        QString reader;
        QList<int> ids;
        // Ids that open no menu (AboutToShowGroup's second answer).
        QList<int> idErrors;
        // AboutToShowGroup, whose answer is the menus to read again and idErrors; AboutToShow
        // answers whether the menu is to be read again.
        bool group = false;
    };

    DBusMenuPendingShows(const DBusMenuEntryIds& ids, DBusMenuAnnouncer& announcer,
                         QObject* parent = nullptr);

    // The connection the answers go out on.
    void setConnection(const QDBusConnection& connection) { m_connection = connection; }

    // Holds the answer to call (whose reply the caller delayed) until the menus of show are
    // filled.
    void wait(const QDBusMessage& call, const Show& show);
    // Answers the waiting calls whose menus are all filled.
    void answerFilled();

private:
    struct Pending {
        QDBusMessage call;
        Show show;
        QTimer* deadline = nullptr;
    };

    void answer(const Pending& pending);

    const DBusMenuEntryIds& m_ids;
    DBusMenuAnnouncer& m_announcer;
    QDBusConnection m_connection{QString()};
    QList<Pending> m_pending;
};
