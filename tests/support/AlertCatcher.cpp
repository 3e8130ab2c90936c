#include "AlertCatcher.h"

#include <QAbstractButton>
#include <QApplication>
#include <QDeadlineTimer>

AlertCatcher::AlertCatcher(int answer, QObject* parent)
    : QObject(parent)
    , m_answer(answer) {
    connect(&m_timer, &QTimer::timeout, this, &AlertCatcher::poll);
    m_timer.start(5);
}

bool AlertCatcher::waitForAlerts(int wanted, std::chrono::milliseconds timeout) {
    QDeadlineTimer deadline(timeout);
    while (count() < wanted && !deadline.hasExpired())
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    return count() >= wanted;
}

void AlertCatcher::poll() {
    auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
    if (!box || !box->isVisible() || box->property("alertCatcherSeen").toBool())
        return;
    box->setProperty("alertCatcherSeen", true);
    Seen seen{box->windowTitle(), box->text(), box->informativeText(), box->icon(), {}};
    const QList<QAbstractButton*> buttons = box->buttons();
    for (QAbstractButton* button : buttons)
        seen.buttons.append(button->text());
    m_alerts.append(seen);
    if (m_answer >= 0 && m_answer < buttons.size())
        buttons[m_answer]->click();
}
