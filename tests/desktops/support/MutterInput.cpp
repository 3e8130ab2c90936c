#include "MutterInput.h"

#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QHash>
#include <QStringList>

namespace {

const QString service = QStringLiteral("org.gnome.Mutter.RemoteDesktop");

// The X key symbols of the key names the tests use.
quint32 keySymbol(const QString& name) {
    static const QHash<QString, quint32> named = {
        {QStringLiteral("ctrl"), 0xffe3},      {QStringLiteral("alt"), 0xffe9},
        {QStringLiteral("shift"), 0xffe1},     {QStringLiteral("super"), 0xffeb},
        {QStringLiteral("Escape"), 0xff1b},    {QStringLiteral("Return"), 0xff0d},
        {QStringLiteral("Tab"), 0xff09},       {QStringLiteral("Home"), 0xff50},
        {QStringLiteral("End"), 0xff57},       {QStringLiteral("Left"), 0xff51},
        {QStringLiteral("Up"), 0xff52},        {QStringLiteral("Right"), 0xff53},
        {QStringLiteral("Down"), 0xff54},      {QStringLiteral("Page_Up"), 0xff55},
        {QStringLiteral("Page_Down"), 0xff56}, {QStringLiteral("F4"), 0xffc1}};
    if (const auto it = named.constFind(name); it != named.cend())
        return *it;
    // A letter or digit is its own symbol.
    return name.size() == 1 ? name.at(0).toLower().unicode() : 0;
}

} // namespace

MutterInput::MutterInput(const QString& busAddress)
    : m_bus(QDBusConnection::connectToBus(busAddress, QStringLiteral("mutter-input"))) {}

MutterInput::~MutterInput() {
    stop();
    QDBusConnection::disconnectFromBus(QStringLiteral("mutter-input"));
}

bool MutterInput::start(QSize screen) {
    const QDBusMessage created = m_bus.call(
        QDBusMessage::createMethodCall(service, QStringLiteral("/org/gnome/Mutter/RemoteDesktop"),
                                       service, QStringLiteral("CreateSession")));
    if (created.type() != QDBusMessage::ReplyMessage || created.arguments().isEmpty())
        return false;
    m_session = created.arguments().constFirst().value<QDBusObjectPath>().path();
    if (!notify(QStringLiteral("Start"), {}))
        return false;
    // Far past the corner, where the screen's edges stop it.
    m_pointer = QPoint(screen.width() - 1, screen.height() - 1);
    return notify(QStringLiteral("NotifyPointerMotionRelative"),
                  {double(screen.width() * 4), double(screen.height() * 4)});
}

void MutterInput::stop() {
    if (m_session.isEmpty())
        return;
    notify(QStringLiteral("Stop"), {});
    m_session.clear();
}

bool MutterInput::notify(const QString& method, const QVariantList& arguments) {
    QDBusMessage call = QDBusMessage::createMethodCall(
        service, m_session, service + QStringLiteral(".Session"), method);
    call.setArguments(arguments);
    // Each call is answered once mutter has taken the event, so they arrive in order.
    return m_bus.call(call, QDBus::Block, 10000).type() == QDBusMessage::ReplyMessage;
}

void MutterInput::moveTo(QPoint at) {
    // In two steps, as a hand moves: the window under the pointer gets an enter and then a
    // motion.
    for (const QPoint step : {at - QPoint(4, 0), at}) {
        const QPoint by = step - m_pointer;
        notify(QStringLiteral("NotifyPointerMotionRelative"), {double(by.x()), double(by.y())});
        m_pointer = step;
    }
}

void MutterInput::button(int button) {
    notify(QStringLiteral("NotifyPointerButton"), {linuxButton(button), true});
    notify(QStringLiteral("NotifyPointerButton"), {linuxButton(button), false});
}

void MutterInput::click(QPoint at, int button) {
    moveTo(at);
    this->button(button);
}

void MutterInput::doubleClick(QPoint at) {
    click(at);
    button(1);
}

void MutterInput::scroll(QPoint at, bool up, int steps) {
    moveTo(at);
    // As a wheel's notches come from libinput: smooth deltas of ten a notch, from which mutter
    // derives the discrete steps (the shell's tray icons act on the smooth ones only).
    constexpr unsigned sourceWheel = 1 << 1;
    notify(QStringLiteral("NotifyPointerAxis"), {0.0, (up ? -10.0 : 10.0) * steps, sourceWheel});
}

void MutterInput::pressKeys(const QString& keys) {
    const QStringList names = keys.split(u'+');
    for (const QString& name : names)
        notify(QStringLiteral("NotifyKeyboardKeysym"), {keySymbol(name), true});
    for (auto it = names.crbegin(); it != names.crend(); ++it)
        notify(QStringLiteral("NotifyKeyboardKeysym"), {keySymbol(*it), false});
}
