#include "MutterInput.h"

#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDeadlineTimer>
#include <QHash>
#include <QStringList>
#include <QTest>

#include <wayland-client.h>

#include <algorithm>
#include <cstring>

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

// Whether the compositor's seat has a keyboard, asked over a Wayland connection of the test's own.
bool seatHasKeyboard() {
    struct Seat {
        wl_seat* seat = nullptr;
        uint32_t capabilities = 0;
    } found;
    static const wl_seat_listener seatListener = {[](void* data, wl_seat*, uint32_t capabilities) {
                                                      static_cast<Seat*>(data)->capabilities =
                                                          capabilities;
                                                  },
                                                  nullptr};
    static const wl_registry_listener registryListener = {
        [](void* data, wl_registry* registry, uint32_t name, const char* interface, uint32_t) {
            auto* seat = static_cast<Seat*>(data);
            if (seat->seat || std::strcmp(interface, wl_seat_interface.name) != 0)
                return;
            // Version 1: capabilities only.
            seat->seat =
                static_cast<wl_seat*>(wl_registry_bind(registry, name, &wl_seat_interface, 1));
            wl_seat_add_listener(seat->seat, &seatListener, seat);
        },
        [](void*, wl_registry*, uint32_t) {
        }};
    wl_display* display = wl_display_connect(nullptr);
    if (!display)
        return false;
    wl_registry* registry = wl_display_get_registry(display);
    wl_registry_add_listener(registry, &registryListener, &found);
    // The globals, then the seat's capabilities.
    const bool answered = wl_display_roundtrip(display) >= 0 && wl_display_roundtrip(display) >= 0;
    if (found.seat)
        wl_seat_destroy(found.seat);
    wl_registry_destroy(registry);
    wl_display_disconnect(display);
    return answered && (found.capabilities & WL_SEAT_CAPABILITY_KEYBOARD);
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
    m_screen = screen;
    m_pointer = QPoint(screen.width() - 1, screen.height() - 1);
    if (!notify(QStringLiteral("NotifyPointerMotionRelative"),
                {double(screen.width() * 4), double(screen.height() * 4)}))
        return false;
    // The session makes its keyboard with the first key pressed, and the programs get it a
    // moment later: that key reaches none of them. A headless shell has no keyboard of its own,
    // so the keyboard is made here, with a key that does nothing, before any program needs it.
    pressKeys(QStringLiteral("shift"));
    const QDeadlineTimer deadline(30000);
    while (!seatHasKeyboard()) {
        if (deadline.hasExpired())
            return false;
        QTest::qWait(100);
    }
    return true;
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
    for (QPoint step : {at - QPoint(4, 0), at}) {
        // mutter stops the pointer at the screen's edges: a place past them would leave the
        // pointer elsewhere than believed, and every later click off by as much.
        step = QPoint(std::clamp(step.x(), 0, m_screen.width() - 1),
                      std::clamp(step.y(), 0, m_screen.height() - 1));
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
