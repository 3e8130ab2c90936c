#include "ProcessMeter.h"

#include <QDir>
#include <QFile>

#include <unistd.h>

namespace {

QByteArray readAll(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// The value of a "Name:  value ..." line of a /proc status file.
long long statusValue(const QByteArray& status, const QByteArray& name) {
    for (const QByteArray& line : status.split('\n'))
        if (line.startsWith(name + ':'))
            return line.mid(name.size() + 1).trimmed().split(' ').value(0).toLongLong();
    return 0;
}

} // namespace

ProcessMeter::Reading ProcessMeter::read() {
    Reading reading;
    const QString base = QStringLiteral("/proc/%1").arg(m_pid);
    // After the command's name, which may hold spaces, in parentheses: state is field 3, user
    // time 14 and system time 15.
    const QByteArray stat = readAll(base + QStringLiteral("/stat"));
    const QList<QByteArray> fields = stat.mid(stat.lastIndexOf(')') + 2).split(' ');
    const double ticks = fields.value(11).toDouble() + fields.value(12).toDouble();
    reading.cpuMs = ticks * 1000.0 / double(sysconf(_SC_CLK_TCK));
    const QStringList threads =
        QDir(base + QStringLiteral("/task")).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString& thread : threads) {
        const QByteArray status =
            readAll(base + QStringLiteral("/task/") + thread + QStringLiteral("/status"));
        // A thread that ended between the listing and this read keeps its last count.
        if (!status.isEmpty())
            m_threadSwitches.insert(thread, statusValue(status, "voluntary_ctxt_switches") +
                                                statusValue(status, "nonvoluntary_ctxt_switches"));
    }
    for (const long long switches : std::as_const(m_threadSwitches))
        reading.contextSwitches += switches;
    return reading;
}

double ProcessMeter::residentMiB() const {
    const QByteArray status = readAll(QStringLiteral("/proc/%1/status").arg(m_pid));
    if (status.isEmpty())
        return -1;
    return double(statusValue(status, "VmRSS")) / 1024.0;
}
