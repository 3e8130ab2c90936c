// Quillmar in GNOME Shell 43 as a Wayland compositor, with the AppIndicator extension's tray in
// its top bar and menus drawn by the extension, on a headless virtual monitor, driven by mutter's
// remote-desktop input. Quillmar is a Wayland client of GNOME Shell.

#include "ChildProcess.h"
#include "MutterInput.h"
#include "ShellTest.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QDir>
#include <QFile>
#include <QImage>
#include <QtTest>

using namespace std::chrono_literals;

namespace {

// The top bar's height.
constexpr int topBarHeight = 32;
const QString appId = QStringLiteral("app.quillmar.Quillmar");
const QString shellService = QStringLiteral("org.gnome.Shell");

// The session's settings, as GNOME's keyfile settings backend stores them: the AppIndicator
// extension on, the desktop readable by screen readers, no notification banners over the
// windows, no animations, and Quillmar's hot key as a person sets it up in GNOME's keyboard
// settings (a custom shortcut that starts Quillmar, whose second start opens the running
// one's menu).
const char settings[] = R"([org/gnome/shell]
enabled-extensions=['ubuntu-appindicators@ubuntu.com']
disable-user-extensions=false

[org/gnome/desktop/interface]
toolkit-accessibility=true
enable-animations=false

[org/gnome/desktop/notifications]
show-banners=false

[org/gnome/settings-daemon/plugins/media-keys]
custom-keybindings=['/org/gnome/settings-daemon/plugins/media-keys/custom-keybindings/quillmar/']

[org/gnome/settings-daemon/plugins/media-keys/custom-keybindings/quillmar]
name='Quillmar'
command='%1'
binding='<Control><Alt>r'
)";

} // namespace

class tst_wayland_Gnome : public ShellTest {
    Q_OBJECT

protected:
    QString name() const override { return QStringLiteral("gnome-wayland"); }
    DesktopSession::Options sessionOptions() const override {
        // GNOME Shell ends at once without a system bus. Settings go to a file of the home:
        // the session bus starts no dconf service.
        return {.wayland = true,
                .systemBus = true,
                .variables = {QStringLiteral("XDG_CURRENT_DESKTOP=GNOME"),
                              QStringLiteral("GSETTINGS_BACKEND=keyfile")}};
    }
    QStringList panelApplications() const override { return {QStringLiteral("gnome-shell")}; }
    // The extension opens submenus inside their parent menu.
    Submenus submenus() const override { return Submenus::Inline; }
    QString shellLog() const override { return m_log; }
    // The extension shows no tooltips; the icon's accessible name is the item's title.
    bool showsTooltips() const override { return false; }
    DesktopInput& input() override { return *m_input; }

    bool startShell(DesktopSession& session) override {
        m_log = session.logFile(QStringLiteral("gnome-shell"));
        const QString folder = session.home() + QStringLiteral("/.config/glib-2.0/settings");
        QFile keyfile(folder + QStringLiteral("/keyfile"));
        if (!QDir().mkpath(folder) || !keyfile.open(QIODevice::WriteOnly) ||
            keyfile.write(
                QString::fromLatin1(settings).arg(QStringLiteral(QUILLMAR_PROGRAM)).toUtf8()) <= 0)
            return false;
        keyfile.close();
        const QString display = QStringLiteral("wayland-quillmar");
        if (!session.startProgram(QStringLiteral("gnome-shell"),
                                  {QStringLiteral("gnome-shell"), QStringLiteral("--headless"),
                                   QStringLiteral("--wayland"), QStringLiteral("--no-x11"),
                                   QStringLiteral("--wayland-display=") + display,
                                   QStringLiteral("--virtual-monitor"),
                                   QStringLiteral("%1x%2")
                                       .arg(session.screen().width())
                                       .arg(session.screen().height())}) ||
            !waitForName(shellService, 120s) || !waitForTray(120s))
            return false;
        qputenv("WAYLAND_DISPLAY", display.toLocal8Bit());
        qputenv("QT_QPA_PLATFORM", "wayland");

        // The test's own calls to the shell: screenshots and the list of windows are for the
        // screenshot tool and the desktop portal, which the shell knows by their names.
        m_bus = std::make_unique<QDBusConnection>(
            QDBusConnection::connectToBus(session.busAddress(), QStringLiteral("gnome-test")));
        if (!m_bus->registerService(QStringLiteral("org.gnome.Screenshot")) ||
            !m_bus->registerService(QStringLiteral("org.freedesktop.impl.portal.desktop.gnome")))
            return false;
        // The shell starts in the overview, which its start-up animation shows once the
        // desktop is drawn: left before that, it would come back.
        if (!waitUntil([this] { return overviewShown() == true; }, 60s))
            return false;
        if (!leaveOverview())
            return false;
        m_input = std::make_unique<MutterInput>(session.busAddress());
        // GNOME's daemon of key bindings, which runs the custom shortcut.
        if (!m_input->start(session.screen()) ||
            !session.startProgram(QStringLiteral("gsd-media-keys"),
                                  {QStringLiteral("/usr/libexec/gsd-media-keys")}) ||
            !waitForName(QStringLiteral("org.gnome.SettingsDaemon.MediaKeys"), 60s))
            return false;
        const QString desktop = session.folder() + QStringLiteral("/desktop.png");
        if (!saveScreen(desktop))
            return false;
        m_desktop = QImage(desktop).convertToFormat(QImage::Format_RGB32);
        return !m_desktop.isNull();
    }

    // The extension's double click on an icon is its activation (a single click opens the
    // panel's menu once the double click's time has passed).
    void activate(QRect icon) override { input().doubleClick(icon.center()); }

    bool saveScreen(const QString& file) override {
        QDBusMessage shot = QDBusMessage::createMethodCall(
            QStringLiteral("org.gnome.Shell.Screenshot"),
            QStringLiteral("/org/gnome/Shell/Screenshot"),
            QStringLiteral("org.gnome.Shell.Screenshot"), QStringLiteral("Screenshot"));
        shot.setArguments({false, false, file});
        const QDBusMessage reply = m_bus->call(shot, QDBus::Block, 60000);
        return reply.type() == QDBusMessage::ReplyMessage && !reply.arguments().isEmpty() &&
               reply.arguments().constFirst().toBool();
    }

    // mutter shows the clipboard only to the program with the keyboard focus and offers no
    // protocol for clipboard tools (wl-copy, wl-paste): a small program of the test's own takes
    // the focus with a window to copy or read.
    bool copyFromOutside(const QString& text) override {
        m_clipboardOwner.stop();
        if (!m_clipboardOwner.start(
                {QStringLiteral(QUILLMAR_TEST_CLIPBOARD), QStringLiteral("copy"), text},
                session().logFile(QStringLiteral("clipboard")), true))
            return false;
        // Its window covers the screen and copies once the pointer has moved over it: each
        // attempt moves it by a pixel, as a move to where it is already moves nothing.
        std::optional<QByteArray> copied;
        for (int attempt = 0; attempt < 20 && !copied && m_clipboardOwner.isRunning(); ++attempt) {
            input().moveTo(QPoint(session().screen().width() / 2 + attempt % 2,
                                  session().screen().height() / 2));
            copied = m_clipboardOwner.readLine(500ms);
        }
        return copied && *copied == "copied" &&
               waitUntil([this, text] { return clipboard() == text; });
    }
    QString clipboard() const override {
        return QString::fromUtf8(
            ChildProcess::run({QStringLiteral(QUILLMAR_TEST_CLIPBOARD), QStringLiteral("paste")},
                              15s)
                .output);
    }
    // Quillmar cannot read the clipboard while the shell's menu holds the input.
    bool panelMenuSeesClipboard() const override { return false; }
    // The extension's menu neither scrolls nor moves to an entry off the screen.
    bool panelMenuReachesEveryEntry() const override { return false; }
    // A click on GNOME's bare desktop reaches no program and moves no focus (mutter has no
    // window there; the shell's background takes no focus), so Quillmar's own menu, a window
    // that no compositor lets grab the pointer, is not told of it.
    QStringList knownFailures() const override {
        return {QStringLiteral("a click outside left Quillmar's own menu open")};
    }

    // Quillmar's windows as the shell lists them (their sizes; not their places).
    QList<Window> ownWindows() const override {
        const QDBusMessage reply = m_bus->call(QDBusMessage::createMethodCall(
            QStringLiteral("org.gnome.Shell.Introspect"),
            QStringLiteral("/org/gnome/Shell/Introspect"),
            QStringLiteral("org.gnome.Shell.Introspect"), QStringLiteral("GetWindows")));
        QList<Window> windows;
        if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty())
            return windows;
        const QDBusArgument list = reply.arguments().constFirst().value<QDBusArgument>();
        list.beginMap();
        while (!list.atEnd()) {
            quint64 id = 0;
            QVariantMap properties;
            list.beginMapEntry();
            list >> id >> properties;
            list.endMapEntry();
            if (properties.value(QStringLiteral("wm-class")).toString() != appId)
                continue;
            windows.append({properties.value(QStringLiteral("title")).toString(),
                            QRect(0, 0, properties.value(QStringLiteral("width")).toInt(),
                                  properties.value(QStringLiteral("height")).toInt()),
                            properties.value(QStringLiteral("has-focus")).toBool(), true});
        }
        list.endMap();
        return windows;
    }

    // The shell tells no window's place: Quillmar's menus are found on the screen, where it
    // differs from the empty desktop by the menus' size.
    QList<ScreenReader::Menu> placeOwnMenus(QList<ScreenReader::Menu> menus) override {
        if (menus.isEmpty()) {
            m_ownMenusOffset.reset();
            return menus;
        }
        QRect believed;
        for (const ScreenReader::Menu& menu : std::as_const(menus))
            believed |= menu.rect;
        // A window just shown may not be drawn yet.
        for (int attempt = 0; !m_ownMenusOffset && attempt < 5; ++attempt) {
            const QRect shown = changedArea();
            if (std::abs(shown.width() - believed.width()) <= 2 &&
                std::abs(shown.height() - believed.height()) <= 2)
                m_ownMenusOffset = shown.topLeft() - believed.topLeft();
            else
                QTest::qWait(200);
        }
        return m_ownMenusOffset ? moved(menus, *m_ownMenusOffset) : menus;
    }

private:
    // Whether the overview shows; none when the shell does not say.
    std::optional<bool> overviewShown() const {
        QDBusMessage get = QDBusMessage::createMethodCall(
            shellService, QStringLiteral("/org/gnome/Shell"),
            QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"));
        get.setArguments({shellService, QStringLiteral("OverviewActive")});
        const QDBusMessage reply = m_bus->call(get);
        if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty())
            return std::nullopt;
        return reply.arguments().constFirst().value<QDBusVariant>().variant().toBool();
    }

    // Leaves the overview; whether it did.
    bool leaveOverview() {
        QDBusMessage set = QDBusMessage::createMethodCall(
            shellService, QStringLiteral("/org/gnome/Shell"),
            QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Set"));
        set.setArguments({shellService, QStringLiteral("OverviewActive"),
                          QVariant::fromValue(QDBusVariant(false))});
        return m_bus->call(set).type() == QDBusMessage::ReplyMessage &&
               waitUntil([this] { return overviewShown() == false; }, 30s);
    }

    // Where the screen differs from the empty desktop, below the top bar.
    QRect changedArea() {
        const QString file = session().folder() + QStringLiteral("/now.png");
        if (!saveScreen(file))
            return {};
        const QImage now = QImage(file).convertToFormat(QImage::Format_RGB32);
        if (now.size() != m_desktop.size())
            return {};
        int left = now.width(), right = -1, top = now.height(), bottom = -1;
        for (int y = topBarHeight; y < now.height(); ++y) {
            const auto* shown = reinterpret_cast<const QRgb*>(now.constScanLine(y));
            const auto* empty = reinterpret_cast<const QRgb*>(m_desktop.constScanLine(y));
            for (int x = 0; x < now.width(); ++x)
                if (shown[x] != empty[x]) {
                    left = std::min(left, x);
                    right = std::max(right, x);
                    top = std::min(top, y);
                    bottom = std::max(bottom, y);
                }
        }
        return right < 0 ? QRect() : QRect(QPoint(left, top), QPoint(right, bottom));
    }

    std::unique_ptr<QDBusConnection> m_bus;
    std::unique_ptr<MutterInput> m_input;
    // The program that owns what the test copied.
    ChildProcess m_clipboardOwner;
    QString m_log;
    // The desktop with no window on it.
    QImage m_desktop;
    // Where the open own menus show, from where Qt puts them.
    std::optional<QPoint> m_ownMenusOffset;
};

QTEST_GUILESS_MAIN(tst_wayland_Gnome)
#include "tst_wayland_Gnome.moc"
