#include "BusMonitor.h"

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
    return m_monitor.start({QStringLiteral("dbus-monitor"), QStringLiteral("--session"),
                            QStringLiteral("--monitor"),
                            QStringLiteral("type='method_call',interface='%1'").arg(interface),
                            QStringLiteral("type='method_return'"), QStringLiteral("type='error'")},
                           logFile, true);
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
        m_calls.insert(key, {field(line, QStringLiteral("member")), std::nullopt});
    } else if (line.startsWith(QStringLiteral("method return ")) ||
               line.startsWith(QStringLiteral("error "))) {
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
    for (;;) {
        readArrived();
        for (qsizetype i = m_taken; i < m_order.size(); ++i) {
            const Call& call = m_calls.value(m_order.at(i));
            if (call.member != member)
                continue;
            if (!call.answer)
                break;
            m_taken = i + 1;
            return call.answer;
        }
        if (timer.elapsed() > timeout.count())
            return std::nullopt;
        // The test's own servers keep answering meanwhile.
        QTest::qWait(50);
    }
}
