#pragma once

#include <QList>
#include <QMessageBox>
#include <QObject>
#include <QStringList>
#include <QTimer>

#include <chrono>

// Watches for modal message boxes, records what they say and answers them, so that a test
// never blocks on an alert.
class AlertCatcher : public QObject {
    Q_OBJECT
public:
    struct Seen {
        QString windowTitle;
        QString text;
        QString informativeText;
        QMessageBox::Icon icon = QMessageBox::NoIcon;
        QStringList buttons; // in the order they were added
    };

    // Presses the button with this index (0 = first added) on every alert.
    explicit AlertCatcher(int answer = 0, QObject* parent = nullptr);

    void setAnswer(int answer) { m_answer = answer; }
    QList<Seen> alerts() const { return m_alerts; }
    int count() const { return int(m_alerts.size()); }
    bool waitForAlerts(int count, std::chrono::milliseconds timeout = std::chrono::seconds(10));

private:
    void poll();

    QTimer m_timer;
    int m_answer;
    QList<Seen> m_alerts;
};
