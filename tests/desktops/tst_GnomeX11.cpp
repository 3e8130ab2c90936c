// Quillmar in GNOME Shell 43 on X11 with the AppIndicator extension: its StatusNotifierItem in
// the top bar, the menu drawn by the extension, on a virtual screen driven by real input.

#include "ShellTest.h"

#include <QtTest>

using namespace std::chrono_literals;

class tst_GnomeX11 : public ShellTest {
    Q_OBJECT

protected:
    QString name() const override { return QStringLiteral("gnome-x11"); }
    DesktopSession::Options sessionOptions() const override {
        return {.systemBus = true,
                .variables = {QStringLiteral("XDG_CURRENT_DESKTOP=GNOME"),
                              QStringLiteral("XDG_SESSION_DESKTOP=gnome"),
                              QStringLiteral("LIBGL_ALWAYS_SOFTWARE=1")}};
    }
    QStringList panelApplications() const override { return {QStringLiteral("gnome-shell")}; }
    QString shellLog() const override { return m_log; }
    // The extension shows no tooltips; the icon's accessible name is the item's title.
    bool showsTooltips() const override { return false; }
    // The extension opens a submenu inside its parent, and closes it on a second click.
    Submenus submenus() const override { return Submenus::Inline; }
    // The extension turns only smooth scrolling into Scroll calls (indicatorStatusIcon.js,
    // vfunc_scroll_event). Mutter's X11 backend makes smooth scrolling only of a device's
    // scroll valuators (meta-seat-x11.c); the X server's XTest pointer has none, its wheel
    // buttons 4 and 5 become plain up and down scrolling. The calls are checked over the bus.
    bool wheelScrollsItem() const override { return false; }
    // The extension's menu neither scrolls nor moves to its end on the End key: a person reaches
    // the end of a tall menu in Quillmar's own menu, opened by a double click.
    bool panelMenuReachesEveryEntry() const override { return false; }
    // The extension drops an item it failed to set up (its start-up of an item races with the
    // item's name appearing on the bus), and Quillmar offers it again: the icon is clicked
    // where it shows now.
    void openPanelMenu(QRect icon) override { ShellTest::openPanelMenu(shownIcon(icon)); }
    // A single click waits for a second: a double click is the activation.
    void activate(QRect icon) override { input().doubleClick(shownIcon(icon).center()); }
    // The top bar's application menu, left of the clock, is named after the program whose window
    // had the focus last: "Quillmar" once its settings window was shown. The icon is the one in
    // the status area, right of the clock.
    std::optional<QRect> trayIcon() override {
        for (const QRect& rect :
             reader().find(QStringLiteral("gnome-shell"), QString(), QStringLiteral("Quillmar")))
            if (rect.width() > 0 && rect.height() > 0 &&
                rect.left() > session().screen().width() / 2)
                return rect;
        return std::nullopt;
    }

    bool startShell(DesktopSession& session) override {
        m_log = session.logFile(QStringLiteral("gnome-shell"));
        // Settings go through dconf's service, which a desktop's bus would start on demand.
        if (!session.startProgram(QStringLiteral("dconf-service"),
                                  {QStringLiteral("/usr/libexec/dconf-service")}) ||
            !waitForName(QStringLiteral("ca.desrt.dconf"), 20s))
            return false;
        const QList<QStringList> settings = {
            {QStringLiteral("org.gnome.shell"), QStringLiteral("enabled-extensions"),
             QStringLiteral("['ubuntu-appindicators@ubuntu.com']")},
            {QStringLiteral("org.gnome.shell"), QStringLiteral("disable-user-extensions"),
             QStringLiteral("false")},
            // The shell exposes its objects (menus included) to screen readers.
            {QStringLiteral("org.gnome.desktop.interface"), QStringLiteral("toolkit-accessibility"),
             QStringLiteral("true")},
            // No welcome tour over the desktop.
            {QStringLiteral("org.gnome.shell"), QStringLiteral("welcome-dialog-last-shown-version"),
             QStringLiteral("'99'")},
        };
        for (const QStringList& setting : settings)
            if (ChildProcess::run(QStringList{QStringLiteral("gsettings"), QStringLiteral("set")} +
                                  setting)
                    .exitCode != 0)
                return false;
        if (!session.startProgram(QStringLiteral("gnome-shell"),
                                  {QStringLiteral("gnome-shell"), QStringLiteral("--x11"),
                                   QStringLiteral("--replace"), QStringLiteral("--sm-disable")}) ||
            !waitForTray(120s))
            return false;
        // The shell starts in the overview once its start-up is over; a person's next step is
        // the desktop.
        return waitUntil([] { return overviewActive(); }, 60s) &&
               ChildProcess::run({QStringLiteral("dbus-send"), QStringLiteral("--session"),
                                  QStringLiteral("--print-reply"),
                                  QStringLiteral("--dest=org.gnome.Shell"),
                                  QStringLiteral("/org/gnome/Shell"),
                                  QStringLiteral("org.freedesktop.DBus.Properties.Set"),
                                  QStringLiteral("string:org.gnome.Shell"),
                                  QStringLiteral("string:OverviewActive"),
                                  QStringLiteral("variant:boolean:false")})
                       .exitCode == 0 &&
               waitUntil([] { return !overviewActive(); }, 30s);
    }

private:
    QRect shownIcon(QRect last) {
        std::optional<QRect> now;
        waitUntil([&] { return (now = trayIcon()).has_value(); });
        return now.value_or(last);
    }

    static bool overviewActive() {
        return ChildProcess::run({QStringLiteral("dbus-send"), QStringLiteral("--session"),
                                  QStringLiteral("--print-reply=literal"),
                                  QStringLiteral("--dest=org.gnome.Shell"),
                                  QStringLiteral("/org/gnome/Shell"),
                                  QStringLiteral("org.freedesktop.DBus.Properties.Get"),
                                  QStringLiteral("string:org.gnome.Shell"),
                                  QStringLiteral("string:OverviewActive")})
            .output.contains("true");
    }

    QString m_log;
};

QTEST_GUILESS_MAIN(tst_GnomeX11)
#include "tst_GnomeX11.moc"
