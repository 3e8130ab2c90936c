#include "FakeLogind.h"

using namespace Qt::StringLiterals;

namespace {

const QString introspection = uR"(<interface name="org.freedesktop.login1.Manager">
  <signal name="PrepareForSleep">
    <arg name="start" type="b"/>
  </signal>
</interface>
)"_s;

} // namespace

FakeLogind::FakeLogind(const QString& busAddress)
    : FakeBusService(busAddress, u"org.freedesktop.login1"_s, u"/org/freedesktop/login1"_s,
                     introspection, [](const QDBusMessage&) { return std::nullopt; }) {
    publish();
}

void FakeLogind::prepareForSleep(bool sleeping) {
    emitSignal(u"org.freedesktop.login1.Manager"_s, u"PrepareForSleep"_s, {sleeping});
}
