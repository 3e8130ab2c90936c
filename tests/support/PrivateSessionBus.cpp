#include "PrivateSessionBus.h"

#include <QFile>

namespace {

// %2: the <servicedir> element of the programs started on demand, if any.
const char sessionConfiguration[] = R"(<!DOCTYPE busconfig PUBLIC
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

// As the system's own: names are not free to own, and a method call goes only to the bus and to
// the services. %3: as %2 above.
const char systemConfiguration[] = R"(<!DOCTYPE busconfig PUBLIC
 "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>system</type>
  <listen>unix:dir=%1</listen>
  <auth>EXTERNAL</auth>
%3  <policy context="default">
    <allow user="*"/>
    <deny own="*"/>
    <deny send_type="method_call"/>
    <allow send_type="signal"/>
    <allow send_requested_reply="true" send_type="method_return"/>
    <allow send_requested_reply="true" send_type="error"/>
    <allow receive_type="method_call"/>
    <allow receive_type="method_return"/>
    <allow receive_type="error"/>
    <allow receive_type="signal"/>
    <allow send_destination="org.freedesktop.DBus" send_interface="org.freedesktop.DBus"/>
    <allow send_destination="org.freedesktop.DBus"
           send_interface="org.freedesktop.DBus.Introspectable"/>
    <allow send_destination="org.freedesktop.DBus"
           send_interface="org.freedesktop.DBus.Properties"/>
%2  </policy>
</busconfig>
)";

} // namespace

QString PrivateSessionBus::configuration() const {
    const QString serviceDirectory = m_serviceDirectory.isEmpty()
                                         ? QString()
                                         : QStringLiteral("  <servicedir>%1</servicedir>\n")
                                               .arg(m_serviceDirectory.toHtmlEscaped());
    if (m_kind == Kind::Session)
        return QString::fromLatin1(sessionConfiguration).arg(m_directory.path(), serviceDirectory);
    QString services;
    for (const QString& service : m_systemServices)
        services += QStringLiteral("    <allow own=\"%1\"/>\n"
                                   "    <allow send_destination=\"%1\"/>\n")
                        .arg(service);
    return QString::fromLatin1(systemConfiguration)
        .arg(m_directory.path(), services, serviceDirectory);
}

bool PrivateSessionBus::start(const QString& logFile) {
    stop();
    if (!m_directory.isValid())
        return false;
    QFile config(m_directory.filePath(QStringLiteral("bus.conf")));
    if (!config.open(QIODevice::WriteOnly))
        return false;
    config.write(configuration().toUtf8());
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
