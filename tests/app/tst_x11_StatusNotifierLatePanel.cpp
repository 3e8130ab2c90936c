// Quillmar started before the panel (at login, say): its icon begins as an XEmbed icon and
// moves to the panel's StatusNotifierItem host once that starts.

#include "ChildProcess.h"
#include "TestStatusNotifierHost.h"
#include "TestStatusNotifierWatcher.h"
#include "VirtualDesktop.h"

#include "app/tray/StatusItem.h"

#include <QApplication>
#include <QMenu>
#include <QtTest>

class tst_x11_StatusNotifierLatePanel : public QObject {
    Q_OBJECT
public:
    static void initMain() { VirtualDesktop::startShared({.trayHost = true}); }

private Q_SLOTS:
    void iconMovesToPanelThatStartsLater();
};

namespace {

bool xembedIconShown() {
    return ChildProcess::run({QStringLiteral("xdotool"), QStringLiteral("search"),
                              QStringLiteral("--onlyvisible"), QStringLiteral("--classname"),
                              QCoreApplication::applicationName()})
               .exitCode == 0;
}

} // namespace

void tst_x11_StatusNotifierLatePanel::iconMovesToPanelThatStartsLater() {
    StatusItem item;
    auto* menu = new QMenu();
    menu->addAction(QStringLiteral("Only entry"));
    item.setMenu(menu);
    QVERIFY(!item.isStatusNotifierItem());
    QTRY_VERIFY_WITH_TIMEOUT(xembedIconShown(), 10000);

    TestStatusNotifierWatcher watcher(VirtualDesktop::shared().busAddress());
    QVERIFY(watcher.start());
    QTRY_VERIFY(item.isStatusNotifierItem());
    QVERIFY(watcher.waitForItem());
    QTRY_VERIFY_WITH_TIMEOUT(!xembedIconShown(), 10000);

    TestStatusNotifierHost host(VirtualDesktop::shared().busAddress());
    QVERIFY(host.attach(watcher.items().constFirst().service, watcher.items().constFirst().path));
    const auto layout = host.layout();
    QVERIFY(layout);
    QCOMPARE(layout->shownLabels(), QStringList({QStringLiteral("Only entry")}));
    QVERIFY(host.activate(QPoint(1200, 12)));
    QTRY_COMPARE(QApplication::activePopupWidget(), menu);
    menu->hide();
}

QTEST_MAIN(tst_x11_StatusNotifierLatePanel)
#include "tst_x11_StatusNotifierLatePanel.moc"
