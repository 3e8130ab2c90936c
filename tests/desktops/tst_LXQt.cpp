// Quillmar in the LXQt 1.2 panel: its StatusNotifierItem in the panel's statusnotifier plugin,
// the menu drawn by the panel (libdbusmenu-qt5), with LXQt's window manager (Openbox), on a
// virtual screen driven by real input.

#include "ShellTest.h"

#include <QDir>
#include <QFile>
#include <QtTest>

using namespace std::chrono_literals;

namespace {

// One panel along the bottom edge: task bar, StatusNotifierItems, clock.
const char panelConfiguration[] = R"([General]
__userfile__=true

[panel1]
plugins=taskbar,statusnotifier,worldclock
position=Bottom
panelSize=32
iconSize=22

[taskbar]
type=taskbar

[statusnotifier]
alignment=Right
type=statusnotifier

[worldclock]
type=worldclock
)";

} // namespace

class tst_LXQt : public ShellTest {
    Q_OBJECT

protected:
    QString name() const override { return QStringLiteral("lxqt"); }
    DesktopSession::Options sessionOptions() const override {
        return {.variables = {QStringLiteral("XDG_CURRENT_DESKTOP=LXQt"),
                              // Qt 5 programs expose themselves to screen readers only when asked.
                              QStringLiteral("QT_LINUX_ACCESSIBILITY_ALWAYS_ON=1")}};
    }
    QStringList panelApplications() const override { return {QStringLiteral("lxqt-panel")}; }
    QString shellLog() const override { return m_log; }

    bool startShell(DesktopSession& session) override {
        m_log = session.logFile(QStringLiteral("lxqt-panel"));
        const QString folder = session.home() + QStringLiteral("/.config/lxqt");
        QFile config(folder + QStringLiteral("/panel.conf"));
        if (!QDir().mkpath(folder) || !config.open(QIODevice::WriteOnly))
            return false;
        config.write(panelConfiguration);
        config.close();
        // LXQt's window manager, as its session starts it: without one the panel's Qt 5 takes
        // its own windows' places wrongly and shows no tooltips.
        if (!session.startProgram(QStringLiteral("openbox"),
                                  {QStringLiteral("openbox"), QStringLiteral("--sm-disable")}) ||
            !waitUntil(
                [] {
                    return ChildProcess::run({QStringLiteral("xprop"), QStringLiteral("-root"),
                                              QStringLiteral("_NET_SUPPORTING_WM_CHECK")})
                        .output.contains("window id");
                },
                20s))
            return false;
        // The statusnotifier plugin is the StatusNotifierWatcher and its host.
        return session.startProgram(QStringLiteral("lxqt-panel"), {QStringLiteral("lxqt-panel")}) &&
               waitForTray(60s);
    }

    // The panel's Qt 5 leaves popup menus out of its accessible objects and sends no events
    // for them, and gives its own widgets' places wrongly without a window manager: the icon
    // and the menus are found on the screen.
    std::optional<QRect> trayIcon() override { return iconByDifference(panelHeight); }
    // The panel's Qt 5 draws its tooltips as dark text on a light yellow ground (Qt's own
    // tooltip colours: the panel's theme gives none), and hides them after ten seconds.
    bool darkTooltips() const override { return false; }
    bool readsMenusByOcr() const override { return true; }

private:
    static constexpr int panelHeight = 32;
    QString m_log;
};

QTEST_GUILESS_MAIN(tst_LXQt)
#include "tst_LXQt.moc"
