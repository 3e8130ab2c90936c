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
    void menuTallerThanScreenEndsOnScreenBelowTopBar();
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

void tst_WaylandMenuPopup::menuTallerThanScreenEndsOnScreenBelowTopBar() {
    QMenu menu;
    for (int i = 1; i <= 120; ++i)
        menu.addAction(u"Favourite number %1"_s.arg(i));
    const QRect screen = menu.screen()->geometry();
    // Where Qt knows of no panel, as on Wayland, a compositor may still place the menu below
    // a top bar of its own (GNOME's is 32 pixels high at scale 1).
    QCOMPARE(menu.screen()->availableGeometry(), screen);
    constexpr int topBar = 32;

    WaylandMenuPopup popup;
    popup.show(&menu, QPoint(10, 10));
    QVERIFY(QTest::qWaitForWindowExposed(&menu));
    QVERIFY2(topBar + menu.height() <= screen.height(),
             qPrintable(u"%1 px high on a screen of %2"_s.arg(menu.height()).arg(screen.height())));
    menu.close();
}

QTEST_MAIN(tst_WaylandMenuPopup)
#include "tst_WaylandMenuPopup.moc"
