#include "BusMonitor.h"

#include <QDBusMessage>
#include <QDBusPendingCall>
#include <QElapsedTimer>
#include <QFile>
#include <QRegularExpression>
#include <QTest>

namespace {

// A field of a dbus-monitor header line: "serial=23", "member=Scroll".
QString field(const QString& line, const QString& name) {
    const QRegularExpression pattern(QStringLiteral("(?:^| )%1=([^ ;]+)").arg(name));
    return pattern.match(line).captured(1);
}

} // namespace

bool BusMonitor::start(const QString& interface, const QString& logFile) {
    m_interface = interface;
    m_logFile = logFile;
    m_connection =
        QDBusConnection::connectToBus(QDBusConnection::SessionBus, QStringLiteral("bus-monitor"));
    if (!m_monitor.start({QStringLiteral("dbus-monitor"), QStringLiteral("--session"),
                          QStringLiteral("--monitor"),
                          QStringLiteral("type='method_call',interface='%1'").arg(interface),
                          QStringLiteral("type='method_return'"), QStringLiteral("type='error'")},
                         logFile, true))
        return false;
    // It watches once the bus has taken its name away, as it does from a monitor.
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < 20000) {
        const std::optional<QByteArray> line = m_monitor.readLine(std::chrono::milliseconds(100));
        if (line) {
            take(QString::fromUtf8(*line));
            if (line->contains("member=NameLost"))
                return true;
        }
        QTest::qWait(0);
    }
    return false;
}

void BusMonitor::stop() {
    m_monitor.stop();
}

void BusMonitor::readArrived() {
    while (const std::optional<QByteArray> read = m_monitor.readLine(std::chrono::milliseconds(1)))
        take(QString::fromUtf8(*read));
}

void BusMonitor::take(const QString& line) {
    if (QFile log(m_logFile); log.open(QIODevice::Append))
        log.write(line.toUtf8() + '\n');
    // Header lines only; a message's arguments follow indented.
    const QString caller = field(line, QStringLiteral("sender"));
    if (line.startsWith(QStringLiteral("method call ")) &&
        field(line, QStringLiteral("interface")) == m_interface) {
        const QString key = caller + u' ' + field(line, QStringLiteral("serial"));
        m_order.append(key);
        m_calls.insert(key, {field(line, QStringLiteral("member")),
                             field(line, QStringLiteral("destination")),
                             field(line, QStringLiteral("path")), std::nullopt});
    } else if (line.startsWith(QStringLiteral("method return ")) ||
               line.startsWith(QStringLiteral("error "))) {
        if (field(line, QStringLiteral("destination")) == m_connection.baseService())
            ++m_ownAnswers;
        const auto call = m_calls.find(field(line, QStringLiteral("destination")) + u' ' +
                                       field(line, QStringLiteral("reply_serial")));
        if (call != m_calls.end())
            call->answer = Answer{field(line, QStringLiteral("error_name"))};
    }
}

std::optional<BusMonitor::Answer> BusMonitor::waitForAnswer(const QString& member,
                                                            std::chrono::milliseconds timeout) {
    QElapsedTimer timer;
    timer.start();
    // How many of this monitor's own calls had been answered when it asked after the call.
    std::optional<int> asked;
    for (;;) {
        readArrived();
        for (qsizetype i = m_taken; i < m_order.size(); ++i) {
            const Call& call = m_calls.value(m_order.at(i));
            if (call.member != member)
                continue;
            if (call.answer) {
                m_taken = i + 1;
                return call.answer;
            }
            if (asked && m_ownAnswers > *asked) {
                m_taken = i + 1;
                return Answer{};
            }
            if (!asked) {
                // The callee answers in the order it was called: once it has answered this,
                // an answer to the call watched would have come first.
                asked = m_ownAnswers;
                m_connection.asyncCall(QDBusMessage::createMethodCall(
                                           call.callee, call.path,
                                           QStringLiteral("org.freedesktop.DBus.Properties"),
                                           QStringLiteral("GetAll"))
                                       << m_interface);
            }
            break;
        }
        if (timer.elapsed() > timeout.count())
            return std::nullopt;
        // The test's own servers keep answering meanwhile.
        QTest::qWait(50);
    }
}
