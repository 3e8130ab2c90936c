// Quillmar in KDE Plasma 5.27: its StatusNotifierItem in the system tray of Plasma's panel, the
// menu drawn by Plasma's menu importer, with the KWin window manager, on a virtual screen driven
// by real input.

#include "ShellTest.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QtTest>

using namespace std::chrono_literals;

class tst_Plasma : public ShellTest {
    Q_OBJECT

protected:
    QString name() const override { return QStringLiteral("plasma"); }
    DesktopSession::Options sessionOptions() const override {
        return {.variables = {// kded loads its StatusNotifierWatcher only in a KDE session.
                              QStringLiteral("KDE_FULL_SESSION=true"),
                              QStringLiteral("KDE_SESSION_VERSION=5"),
                              QStringLiteral("XDG_CURRENT_DESKTOP=KDE"),
                              QStringLiteral("DESKTOP_SESSION=plasma"),
                              // No GPU on the virtual screen.
                              QStringLiteral("LIBGL_ALWAYS_SOFTWARE=1"),
                              QStringLiteral("QT_LINUX_ACCESSIBILITY_ALWAYS_ON=1")}};
    }
    QStringList panelApplications() const override { return {QStringLiteral("plasmashell")}; }
    QString shellLog() const override { return m_log; }

    bool startShell(DesktopSession& session) override {
        m_log = session.logFile(QStringLiteral("plasmashell"));
        return session.startProgram(QStringLiteral("kwin_x11"),
                                    {QStringLiteral("kwin_x11"), QStringLiteral("--replace")}) &&
               waitForName(QStringLiteral("org.kde.KWin"), 60s) &&
               session.startProgram(QStringLiteral("kded5"), {QStringLiteral("kded5")}) &&
               waitForName(QStringLiteral("org.kde.StatusNotifierWatcher"), 60s) &&
               // plasmashell loads no shell without it; a desktop's bus starts it on demand.
               session.startProgram(
                   QStringLiteral("kactivitymanagerd"),
                   {QStringLiteral("/usr/lib/x86_64-linux-gnu/libexec/kactivitymanagerd")}) &&
               waitForName(QStringLiteral("org.kde.ActivityManager"), 60s) &&
               session.startProgram(
                   QStringLiteral("plasmashell"),
                   {QStringLiteral("plasmashell"), QStringLiteral("--no-respawn")}) &&
               waitForTray(120s) && hideClipboardApplet(session);
    }

    std::optional<QRect> trayIcon() override {
        if (const auto icon = ShellTest::trayIcon())
            return icon;
        // The digital clock right of the tray changes every minute: its time starts near 1236.
        return iconByDifference(panelHeight, 1220);
    }
    // Plasma's tooltips are dark text on the light theme's ground.
    bool darkTooltips() const override { return false; }
    // The menu importer's menus are Qt 5 popups, which Qt 5 leaves out of its accessible
    // objects: they are read from the screen.
    bool readsMenusByOcr() const override { return true; }

private:
    // The clipboard applet joins the tray's visible icons once the clipboard holds something,
    // moving the icons beside it: it is kept among the tray's hidden items, as a person who
    // does not want it there does in the tray's settings.
    static bool hideClipboardApplet(DesktopSession& session) {
        QDBusMessage evaluate = QDBusMessage::createMethodCall(
            QStringLiteral("org.kde.plasmashell"), QStringLiteral("/PlasmaShell"),
            QStringLiteral("org.kde.PlasmaShell"), QStringLiteral("evaluateScript"));
        evaluate.setArguments({QStringLiteral(R"(
            panels().forEach(function (panel) {
                panel.widgets("org.kde.plasma.systemtray").forEach(function (tray) {
                    var items = desktopById(tray.readConfig("SystrayContainmentId"));
                    items.currentConfigGroup = ["General"];
                    items.writeConfig("hiddenItems", ["org.kde.plasma.clipboard"]);
                    items.reloadConfig();
                    print("hidden");
                });
            });)")});
        const QDBusMessage reply =
            QDBusConnection::connectToBus(session.busAddress(), QStringLiteral("plasma-test"))
                .call(evaluate, QDBus::Block, 30000);
        if (reply.type() != QDBusMessage::ReplyMessage ||
            !reply.arguments().value(0).toString().contains(QStringLiteral("hidden"))) {
            qWarning("the clipboard applet is not hidden: %s",
                     qPrintable(reply.errorMessage() + reply.arguments().value(0).toString()));
            return false;
        }
        return true;
    }

    static constexpr int panelHeight = 44;
    QString m_log;
};

QTEST_GUILESS_MAIN(tst_Plasma)
#include "tst_Plasma.moc"
