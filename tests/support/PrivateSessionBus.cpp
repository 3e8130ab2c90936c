#include "PrivateSessionBus.h"

#include <QFile>

namespace {

// %2: the <servicedir> element of the programs started on demand, if any.
const char configuration[] = R"(<!DOCTYPE busconfig PUBLIC
 "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <listen>unix:dir=%1</listen>
  <auth>EXTERNAL</auth>
%2  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
</busconfig>
)";

} // namespace

bool PrivateSessionBus::start(const QString& logFile) {
    stop();
    if (!m_directory.isValid())
        return false;
    QFile config(m_directory.filePath(QStringLiteral("bus.conf")));
    if (!config.open(QIODevice::WriteOnly))
        return false;
    const QString serviceDirectory = m_serviceDirectory.isEmpty()
                                         ? QString()
                                         : QStringLiteral("  <servicedir>%1</servicedir>\n")
                                               .arg(m_serviceDirectory.toHtmlEscaped());
    config.write(
        QString::fromLatin1(configuration).arg(m_directory.path(), serviceDirectory).toUtf8());
    config.close();
    if (!m_daemon.start({QStringLiteral("dbus-daemon"),
                         QStringLiteral("--config-file=") + config.fileName(),
                         QStringLiteral("--nofork"), QStringLiteral("--nopidfile"),
                         QStringLiteral("--print-address=1")},
                        logFile, true))
        return false;
    // The daemon prints its address once it listens.
    const auto address = m_daemon.readLine(std::chrono::seconds(10));
    if (!address || address->trimmed().isEmpty()) {
        m_daemon.stop();
        return false;
    }
    m_address = QString::fromLatin1(address->trimmed());
    return true;
}

void PrivateSessionBus::stop() {
    m_daemon.stop();
    m_address.clear();
}
