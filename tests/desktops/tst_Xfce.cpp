// Quillmar in the Xfce 4.18 panel: its StatusNotifierItem in the panel's tray, the menu drawn by
// the panel (libdbusmenu-gtk3), on a virtual screen driven by real input.

#include "ShellTest.h"

#include <QtTest>

using namespace std::chrono_literals;

class tst_Xfce : public ShellTest {
    Q_OBJECT

protected:
    QString name() const override { return QStringLiteral("xfce"); }
    DesktopSession::Options sessionOptions() const override {
        return {.variables = {QStringLiteral("XDG_CURRENT_DESKTOP=XFCE")}};
    }
    // The tray plugin runs inside the panel or, as an external plugin, in a wrapper process.
    QStringList panelApplications() const override {
        return {QStringLiteral("xfce4-panel"), QStringLiteral("wrapper-2.0")};
    }
    QString shellLog() const override { return m_log; }
    // libdbusmenu-gtk tells when a submenu opens and closes, not the menu of the item itself.
    bool announcesMenuClosing() const override { return false; }

    bool startShell(DesktopSession& session) override {
        m_log = session.logFile(QStringLiteral("xfce4-panel"));
        // The panel reads its configuration (the default one, tray included) from xfconfd,
        // which a desktop's bus would start on demand; the session's bus starts nothing.
        if (!session.startProgram(
                QStringLiteral("xfconfd"),
                {QStringLiteral("/usr/lib/x86_64-linux-gnu/xfce4/xfconf/xfconfd")}) ||
            !waitForName(QStringLiteral("org.xfce.Xfconf"), 20s))
            return false;
        // On a display without a window manager.
        return session.startProgram(
                   QStringLiteral("xfce4-panel"),
                   {QStringLiteral("xfce4-panel"), QStringLiteral("--disable-wm-check")}) &&
               waitForTray(60s);
    }

    // The tray's buttons have no accessible name in this panel: the icon is the one button of
    // the top panel's tray (the top panel is 26 pixels high; the launchers are in the bottom
    // one). The tray runs as an external plugin whose objects are not always joined to the
    // panel's (the plug's accessible path is set as it is realised, before its bridge is up):
    // then the icon is found on the screen.
    std::optional<QRect> trayIcon() override {
        for (const QString& application : panelApplications())
            for (const QRect& rect :
                 reader().find(application, QStringLiteral("push button"), QString()))
                if (rect.top() < 26 && rect.width() > 0)
                    return rect;
        return iconByDifference(26);
    }

    // GTK names a menu entry after its label without the underscores, which are mnemonic marks
    // where the label uses them; the label is drawn as it is.
    QString readAs(const QString& label) const override { return QString(label).remove(u'_'); }

private:
    QString m_log;
};

QTEST_GUILESS_MAIN(tst_Xfce)
#include "tst_Xfce.moc"
