#pragma once

#include "ChildProcess.h"

#include <QDBusConnection>
#include <QHash>
#include <QString>

#include <chrono>
#include <optional>

// Watches the session bus (dbus-monitor) for the calls a panel makes to a StatusNotifierItem
// and the answers they get: what a panel does with a click is seen as it happens, answer
// included, rather than guessed from how long it usually takes.
class BusMonitor {
public:
    // Starts watching the calls of interface and every answer; its output also goes to logFile.
    bool start(const QString& interface, const QString& logFile);
    void stop();

    struct Answer {
        // Empty when the call returned, or when the caller asked for no answer; else the
        // error's name.
        QString error;
    };
    // Waits for the next call of member since the last one waited for, and its answer; none
    // when no such call came in time. A call whose caller asked for no answer is known as such
    // once the callee has answered a call of this monitor's, made after it.
    std::optional<Answer> waitForAnswer(const QString& member, std::chrono::milliseconds timeout);

private:
    struct Call {
        QString member;
        QString callee;
        QString path;
        std::optional<Answer> answer;
    };
    // Takes in the lines the monitor has printed so far.
    void readArrived();
    void take(const QString& line);

    ChildProcess m_monitor;
    QString m_interface;
    QString m_logFile;
    // The calls seen, by "caller serial", in arrival order.
    QList<QString> m_order;
    QHash<QString, Call> m_calls;
    qsizetype m_taken = 0;
    // Asks what the callee has answered before: a call of its own after the one watched.
    QDBusConnection m_connection{QString()};
    int m_ownAnswers = 0;
};
