#include "../menu/MenuTree.h"
#include "FakeRaindropService.h"

#include "VirtualDesktop.h"
#include "app/AppDelegate.h"
#include "config/AppConfig.h"

#include <QApplication>
#include <QFile>
#include <QFont>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

const QString emojiFamily = u"Noto Color Emoji"_s;

// Whether one of fontconfig's cache files ("<hash>-le64.cache-8") is mapped into this process:
// the mark of a font lookup.
bool fontCacheLoaded() {
    QFile maps(u"/proc/self/maps"_s);
    return maps.open(QIODevice::ReadOnly) && maps.readAll().contains(".cache-");
}

MenuManager::Timings testTimings() {
    MenuManager::Timings timings;
    timings.refreshInterval = 1h;
    timings.updateCheckDelay = 1h;
    return timings;
}

} // namespace

// The colour emoji font is put first for emoji just before the first text is shown, and the
// font lookup that it needs is not made before.
class tst_x11_ColourEmojiFont : public QObject {
    Q_OBJECT
public:
    // On X (unlike the offscreen platform) Qt itself looks no font up before text is shown.
    static void initMain() { VirtualDesktop::startShared({.trayHost = true}); }

private Q_SLOTS:
    void initTestCase();
    void cleanup();
    void chosenWhenTheMenuOpens();
    void chosenWhenAWindowShows();

private:
    QFont m_originalFont;
};

void tst_x11_ColourEmojiFont::initTestCase() {
    m_originalFont = QApplication::font();
    AppConfig config;
    config.token = u"token"_s;
    QVERIFY(!config.save());
}

void tst_x11_ColourEmojiFont::cleanup() {
    QApplication::setFont(m_originalFont);
}

void tst_x11_ColourEmojiFont::chosenWhenTheMenuOpens() {
    FakeRaindropService service;
    service.setItems(u"favourites"_s, {FakeRaindropService::bookmark(1, u"❤️ A favourite"_s,
                                                                     u"https://f.example/"_s)});
    AppDelegate delegate({service.environment(), testTimings()});
    delegate.applicationDidFinishLaunching();
    QMenu* menu = MenuTree::waitForFullMenu(*delegate.statusItem());
    QVERIFY(menu);
    QVERIFY(!fontCacheLoaded());
    QVERIFY(!QApplication::font().families().contains(emojiFamily));

    QMenu* favourite = MenuTree::submenu(menu, u"❤️ A favourite"_s);
    QVERIFY(favourite);
    delegate.statusItem()->performClick();
    QTRY_VERIFY(menu->isVisible());
    // Chosen before the menu was laid out, and the menu has it.
    QCOMPARE(QApplication::font().families().value(1), emojiFamily);
    QCOMPARE(menu->font().families().value(1), emojiFamily);
    // Submenus made with the menu have it too.
    QCOMPARE(favourite->font().families().value(1), emojiFamily);
    QVERIFY(!QApplication::font().families().constFirst().isEmpty());
    QVERIFY(QApplication::font().families().constFirst() != emojiFamily);
    QVERIFY(fontCacheLoaded());
    menu->hide();
}

void tst_x11_ColourEmojiFont::chosenWhenAWindowShows() {
    FakeRaindropService service;
    AppDelegate delegate({service.environment(), testTimings()});
    delegate.applicationDidFinishLaunching();
    QVERIFY(MenuTree::waitForFullMenu(*delegate.statusItem()));
    QVERIFY(!QApplication::font().families().contains(emojiFamily));

    // The settings window or an alert, before any menu was opened.
    QWidget window;
    window.show();
    QCOMPARE(QApplication::font().families().value(1), emojiFamily);
    QCOMPARE(window.font().families().value(1), emojiFamily);
}

QTEST_MAIN(tst_x11_ColourEmojiFont)
#include "tst_x11_ColourEmojiFont.moc"
