// Quillmar's own menu as a window of its own on Wayland: sized so that all of it can be reached.
#include "app/popup/WaylandMenuPopup.h"

#include <QApplication>
#include <QMenu>
#include <QScreen>
#include <QtTest>

using namespace Qt::StringLiterals;

class tst_WaylandMenuPopup : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void menuTallerThanScreenScrollsToItsEnd();
};

void tst_WaylandMenuPopup::menuTallerThanScreenScrollsToItsEnd() {
    QMenu menu;
    for (int i = 1; i <= 120; ++i)
        menu.addAction(u"Favourite number %1"_s.arg(i));
    QAction* quit = menu.addAction(u"Quit Quillmar"_s);
    QAction* first = menu.actions().constFirst();
    const int screenHeight = menu.screen()->availableGeometry().height();

    WaylandMenuPopup popup;
    popup.show(&menu, QPoint(10, 10));
    QVERIFY(QTest::qWaitForWindowExposed(&menu));
    // One column that scrolls, as macOS menus do, within the screen's height.
    QVERIFY(menu.height() <= screenHeight);
    QCOMPARE(menu.actionGeometry(quit).x(), menu.actionGeometry(first).x());
    // The last entry comes into view as in any long menu.
    QTest::keyClick(&menu, Qt::Key_End);
    QCOMPARE(menu.activeAction(), quit);
    QTRY_VERIFY(menu.rect().contains(menu.actionGeometry(quit)));
    menu.close();
}

QTEST_MAIN(tst_WaylandMenuPopup)
#include "tst_WaylandMenuPopup.moc"
