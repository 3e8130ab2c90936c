#include "FakeSettingsPortal.h"

#include <QAtomicInt>

using namespace Qt::StringLiterals;

namespace {

const QString appearance = u"org.freedesktop.appearance"_s;
const QString colorScheme = u"color-scheme"_s;

QString nextConnectionName() {
    static QAtomicInt counter;
    return u"fake-settings-portal-%1"_s.arg(counter.fetchAndAddRelaxed(1));
}

} // namespace

FakeSettingsPortal::FakeSettingsPortal(const QString& busAddress, QObject* parent)
    : QObject(parent)
    , m_connectionName(nextConnectionName())
    , m_bus(QDBusConnection::connectToBus(busAddress, m_connectionName)) {}

FakeSettingsPortal::~FakeSettingsPortal() {
    m_bus.unregisterObject(u"/org/freedesktop/portal/desktop"_s);
    m_bus.unregisterService(u"org.freedesktop.portal.Desktop"_s);
    QDBusConnection::disconnectFromBus(m_connectionName);
}

bool FakeSettingsPortal::start() {
    return m_bus.isConnected() &&
           m_bus.registerObject(u"/org/freedesktop/portal/desktop"_s, this,
                                QDBusConnection::ExportAllSlots |
                                    QDBusConnection::ExportAllSignals) &&
           m_bus.registerService(u"org.freedesktop.portal.Desktop"_s);
}

void FakeSettingsPortal::setColorScheme(std::optional<uint> value, bool announce) {
    m_colorScheme = value;
    if (announce)
        Q_EMIT SettingChanged(appearance, colorScheme,
                              QDBusVariant(QVariant::fromValue(value.value_or(0U))));
}

QDBusVariant FakeSettingsPortal::Read(const QString& nameSpace, const QString& key) {
    ++m_reads;
    if (nameSpace != appearance || key != colorScheme || !m_colorScheme) {
        sendErrorReply(u"org.freedesktop.portal.Error.NotFound"_s,
                       u"Requested setting not found"_s);
        return {};
    }
    return QDBusVariant(QVariant::fromValue(QDBusVariant(QVariant::fromValue(*m_colorScheme))));
}
