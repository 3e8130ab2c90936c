#include "ScreenColours.h"
#include "SettingsFixtures.h"
#include "TestHttpServer.h"
#include "app/desktop/ColorSchemeFollower.h"
#include "config/SettingsNotifier.h"
#include "settings/PinList.h"
#include "settings/PinRow.h"
#include "settings/SettingsView.h"
#include "settings/SettingsViewModel.h"

#include <QAccessible>
#include <QDesktopServices>
#include <QFrame>
#include <QLabel>
#include <QLayout>
#include <QLineEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QTabBar>
#include <QTabWidget>
#include <QTextDocument>
#include <QtTest>

#include <memory>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using namespace SettingsFixtures;

using ScreenColours::commonColour;
using ScreenColours::contrast;

// Stands in for the browser: records the addresses that would have been opened.
class LinkCatcher : public QObject {
    Q_OBJECT
public:
    QList<QUrl> opened;
public Q_SLOTS:
    void open(const QUrl& url) { opened.append(url); }
};

class tst_SettingsView : public QObject {
    Q_OBJECT

    std::unique_ptr<TestHttpServer> m_server;
    SettingsView* m_view = nullptr;

    template <typename T> T* find(const QString& name) const {
        T* widget = m_view->findChild<T*>(name);
        if (!widget)
            qFatal("no widget %s", qPrintable(name));
        return widget;
    }
    QLineEdit* tokenField() const { return find<QLineEdit>(u"tokenField"_s); }
    QPushButton* loadButton() const { return find<QPushButton>(u"loadButton"_s); }
    QPushButton* saveButton() const { return find<QPushButton>(u"saveButton"_s); }
    QWidget* loadingRow() const { return find<QWidget>(u"loadingRow"_s); }
    QWidget* lists() const { return find<QWidget>(u"pinLists"_s); }
    QLabel* hint() const { return find<QLabel>(u"loadHint"_s); }
    QLabel* error() const { return find<QLabel>(u"errorCaption"_s); }
    PinList* collectionsList() const { return find<PinList>(u"collectionsList"_s); }
    PinList* tagsList() const { return find<PinList>(u"tagsList"_s); }
    SettingsViewModel* model() const { return m_view->vm(); }

    // Which of the middle area's four states is on screen.
    QString middle() const {
        QStringList shown;
        if (loadingRow()->isVisible())
            shown << u"loading"_s;
        if (lists()->isVisible())
            shown << u"lists"_s;
        if (hint()->isVisible())
            shown << u"hint"_s;
        return shown.isEmpty() ? u"nothing"_s : shown.join(u'+');
    }

    void open(const Environment& environment) {
        m_view = new SettingsView(environment.apiBase, environment.webApp);
        m_view->show();
        QVERIFY(QTest::qWaitForWindowActive(m_view));
    }
    void open() { open(environmentFor(*m_server)); }
    void openWith(const QPalette& palette) {
        const Environment environment = environmentFor(*m_server);
        m_view = new SettingsView(environment.apiBase, environment.webApp);
        m_view->setPalette(palette);
        m_view->show();
        QVERIFY(QTest::qWaitForWindowActive(m_view));
    }

    // Presses Tab (or Shift+Tab) where the keyboard focus is, and returns where it went.
    QWidget* tab(bool backwards = false) {
        QWidget* focus = QApplication::focusWidget();
        if (!focus)
            return nullptr;
        if (backwards)
            QTest::keyClick(focus, Qt::Key_Backtab, Qt::ShiftModifier);
        else
            QTest::keyClick(focus, Qt::Key_Tab);
        return QApplication::focusWidget();
    }
    // A name for a control, as the tests below list them.
    QString nameOf(QWidget* widget) const {
        if (auto* row = qobject_cast<PinRow*>(widget))
            return row->label();
        if (qobject_cast<QTabBar*>(widget))
            return u"tab bar"_s;
        return widget ? widget->objectName() : u"nothing"_s;
    }

    // Whether Tab stops at the widget itself, on whichever tab it is (the tab widget hands its
    // focus to its tab bar, whose scroll buttons are hidden).
    static bool takesTab(const QWidget* widget) {
        return (widget->focusPolicy() & Qt::TabFocus) && !widget->focusProxy() &&
               !widget->isHidden();
    }

    static void palettes() {
        QTest::addColumn<QPalette>("palette");
        QTest::newRow("light") << QApplication::palette();
        QTest::newRow("dark") << ColorSchemeFollower::darkPalette();
    }

private Q_SLOTS:
    void init() {
        removeConfig();
        m_server = std::make_unique<TestHttpServer>();
        serveAccount(*m_server, {{1, u"Inbox"_s, 0}, {2, u"Reading"_s, 1}, {3, u"Work"_s, 42}},
                     {{u"news"_s, 7}, {u"unused"_s, 0}});
    }

    void cleanup() {
        delete m_view;
        m_view = nullptr;
        m_server.reset();
        removeConfig();
    }

    void itHasTwoTabsAboveADividerAndSave() {
        open();
        QCOMPARE(m_view->size(), QSize(500, 460));
        QCOMPARE(m_view->minimumSize(), QSize(500, 460));
        QCOMPARE(m_view->maximumSize(), QSize(500, 460));
        auto* tabs = find<QTabWidget>(u"settingsTabs"_s);
        QCOMPARE(tabs->count(), 2);
        QCOMPARE(tabs->tabText(0), u"General"_s);
        QCOMPARE(tabs->tabText(1), u"Shortcuts"_s);
        QVERIFY(!tabs->tabIcon(0).isNull());
        QVERIFY(!tabs->tabIcon(1).isNull());
        QCOMPARE(tabs->widget(0)->objectName(), u"generalTab"_s);
        QCOMPARE(tabs->widget(1)->objectName(), u"shortcutsTab"_s);
        auto* divider = find<QFrame>(u"divider"_s);
        QCOMPARE(divider->frameShape(), QFrame::HLine);
        QVERIFY(divider->geometry().top() >= tabs->geometry().bottom());
        QPushButton* save = saveButton();
        QCOMPARE(save->text(), u"Save"_s);
        QVERIFY(save->isDefault());
        QCOMPARE(save->geometry().right(), 500 - 20 - 1);
        QCOMPARE(save->geometry().bottom(), 460 - 12 - 1);
        QCOMPARE(save->geometry().top() - divider->geometry().bottom() - 1, 12);
    }

    void saveIsFilledWithTheAccentAndReadable_data() { palettes(); }

    void saveIsFilledWithTheAccentAndReadable() {
        QFETCH(QPalette, palette);
        openWith(palette);
        QTest::keyClicks(tokenField(), u"tok"_s);
        QVERIFY(saveButton()->isEnabled());
        // As drawn: the fill is the most common colour inside the border, the text the pixel that
        // stands out most from it.
        const QImage image = saveButton()->grab().toImage();
        const QRect inside = image.rect().adjusted(3, 3, -3, -3);
        const QColor fill = commonColour(image, inside);
        double best = 1;
        for (int y = inside.top(); y <= inside.bottom(); ++y)
            for (int x = inside.left(); x <= inside.right(); ++x)
                best = std::max(best, contrast(fill, image.pixelColor(x, y)));
        QVERIFY2(best >= 4.5, qPrintable(u"%1:1 on %2"_s.arg(best).arg(fill.name())));
        // Prominent: the accent's hue, clearly apart from the window's background.
        const QColor accent = palette.color(QPalette::Highlight);
        QVERIFY2(std::abs(fill.hsvHue() - accent.hsvHue()) <= 12,
                 qPrintable(fill.name() + u" / "_s + accent.name()));
        QVERIFY(contrast(fill, palette.color(QPalette::Window)) >= 1.5);
    }

    void theLinkReadsOnTheWindow_data() { palettes(); }

    void theLinkReadsOnTheWindow() {
        QFETCH(QPalette, palette);
        openWith(palette);
        // As drawn: the underline is the link's colour at full strength.
        auto* link = find<QLabel>(u"tokenLink"_s);
        const QImage image = link->grab().toImage();
        const QColor background = palette.color(QPalette::Window);
        double best = 1;
        for (int y = 0; y < image.height(); ++y)
            for (int x = 0; x < image.width(); ++x)
                best = std::max(best, contrast(background, image.pixelColor(x, y)));
        QVERIFY2(best >= 4.5, qPrintable(u"%1:1"_s.arg(best)));
    }

    void theErrorReadsOnTheWindow_data() { palettes(); }

    void theErrorReadsOnTheWindow() {
        QFETCH(QPalette, palette);
        writeConfig(R"({"token": "tok"})");
        m_server->on("GET", u"/rest/v1/tags"_s, {401, "Unauthorized", {}, {}, {}});
        openWith(palette);
        QTRY_VERIFY(error()->isVisible());
        QVERIFY(contrast(error()->palette().color(QPalette::WindowText),
                         palette.color(QPalette::Window)) >= 4.5);
    }

    void theListsAreDrawnOnTheControlBackground_data() { palettes(); }

    void theListsAreDrawnOnTheControlBackground() {
        QFETCH(QPalette, palette);
        writeConfig(R"({"token": "tok"})");
        openWith(palette);
        QTRY_COMPARE(middle(), u"lists"_s);
        QVERIFY(palette.color(QPalette::Base) != palette.color(QPalette::Window));
        // As the window shows them.
        const QImage window = m_view->grab().toImage();
        for (PinList* list : {collectionsList(), tagsList()}) {
            auto* box = list->findChild<QWidget*>(u"pinListBox"_s);
            const QPoint origin = box->mapTo(m_view, QPoint());
            // Below the last row, inside the outline: the box's own background.
            PinRow* last = list->rows().last();
            const QRect below(origin.x() + 8,
                              last->mapTo(m_view, QPoint()).y() + last->height() + 8,
                              box->width() - 24, 20);
            QVERIFY(below.bottom() < origin.y() + box->height() - 8);
            QCOMPARE(commonColour(window, below), palette.color(QPalette::Base));
            // The rows too sit on it.
            PinRow* first = list->rows().first();
            QCOMPARE(commonColour(window, QRect(first->mapTo(m_view, QPoint()), first->size())),
                     palette.color(QPalette::Base));
            // And their text reads on it.
            QVERIFY(contrast(first->palette().color(QPalette::Text),
                             palette.color(QPalette::Base)) >= 4.5);
        }
    }

    void tabReachesEveryControlInOrder() {
        writeConfig(R"({"token": "tok", "pinned_collections": [3]})");
        open();
        QTRY_COMPARE(middle(), u"lists"_s);
        tokenField()->setFocus();
        QStringList general{nameOf(QApplication::focusWidget())};
        for (int i = 0; i < 15; ++i) {
            general << nameOf(tab());
            if (general.last() == general.first())
                break;
        }
        QCOMPARE(general, (QStringList{u"tokenField"_s, u"loadButton"_s, u"tokenLink"_s, u"Inbox"_s,
                                       u"Reading"_s, u"Work"_s, u"#news"_s, u"#unused"_s,
                                       u"saveButton"_s, u"tab bar"_s, u"tokenField"_s}));
        // Backwards the same way.
        QCOMPARE(nameOf(tab(true)), u"tab bar"_s);
        QCOMPARE(nameOf(tab(true)), u"saveButton"_s);
        QCOMPARE(nameOf(tab(true)), u"#unused"_s);

        // The tab bar's arrow keys show the other tab, whose controls follow in order.
        QWidget* tabBar = find<QTabWidget>(u"settingsTabs"_s)->tabBar();
        tabBar->setFocus();
        QTest::keyClick(tabBar, Qt::Key_Right);
        QCOMPARE(find<QTabWidget>(u"settingsTabs"_s)->currentIndex(), 1);
        QStringList shortcuts{nameOf(QApplication::focusWidget())};
        for (int i = 0; i < 4; ++i)
            shortcuts << nameOf(tab());
        QCOMPARE(shortcuts, (QStringList{u"tab bar"_s, u"shortcutRecorder"_s, u"clearButton"_s,
                                         u"saveButton"_s, u"tab bar"_s}));

        // In one chain: token field, Load, each row, recorder, Clear, Save.
        QStringList chain;
        QWidget* widget = tokenField();
        do {
            if (takesTab(widget))
                chain << nameOf(widget);
            widget = widget->nextInFocusChain();
        } while (widget != tokenField());
        QCOMPARE(chain, (QStringList{u"tokenField"_s, u"loadButton"_s, u"tokenLink"_s, u"Inbox"_s,
                                     u"Reading"_s, u"Work"_s, u"#news"_s, u"#unused"_s,
                                     u"shortcutRecorder"_s, u"clearButton"_s, u"saveButton"_s,
                                     u"tab bar"_s}));
    }

    void spaceTogglesTheRowWithTheFocus() {
        writeConfig(R"({"token": "tok", "pinned_collections": [3]})");
        open();
        QTRY_COMPARE(middle(), u"lists"_s);
        loadButton()->setFocus();
        QCOMPARE(nameOf(tab()), u"tokenLink"_s);
        PinRow* inbox = collectionsList()->rows()[0];
        QCOMPARE(tab(), inbox);
        QTest::keyClick(inbox, Qt::Key_Space);
        QVERIFY(inbox->isPinned());
        QCOMPARE(model()->pinnedCollectionIds(), (QSet<qint64>{1, 3}));
        PinRow* work = collectionsList()->rows()[2];
        tab();
        QCOMPARE(tab(), work);
        QTest::keyClick(work, Qt::Key_Space);
        QVERIFY(!work->isPinned());
        QCOMPARE(model()->pinnedCollectionIds(), QSet<qint64>{1});
        // The focus shows on the row: it is tinted, the others are not.
        const QImage window = m_view->grab().toImage();
        const auto area = [this](QWidget* row) {
            return QRect(row->mapTo(m_view, QPoint()), row->size());
        };
        QVERIFY(commonColour(window, area(work)) !=
                commonColour(window, area(collectionsList()->rows()[1])));
        QCOMPARE(readConfig(), QByteArray(R"({"token": "tok", "pinned_collections": [3]})"));
    }

    void enterOnTheLinkOpensIt() {
        open(Environment());
        LinkCatcher browser;
        QDesktopServices::setUrlHandler(u"https"_s, &browser, "open");
        auto* link = find<QLabel>(u"tokenLink"_s);
        // "Load" cannot be pressed without a token, so Tab passes it.
        tokenField()->setFocus();
        QCOMPARE(tab(), link);
        QTest::keyClick(link, Qt::Key_Return);
        QDesktopServices::unsetUrlHandler(u"https"_s);
        QCOMPARE(browser.opened,
                 QList<QUrl>{QUrl(u"https://app.raindrop.io/settings/integrations"_s)});
    }

    void aScreenReaderHearsEveryControl() {
        writeConfig(R"({"token": "tok", "pinned_collections": [3]})");
        open();
        QTRY_COMPARE(middle(), u"lists"_s);
        QWidget* widget = tokenField();
        int controls = 0;
        do {
            if (takesTab(widget)) {
                QAccessibleInterface* control = QAccessible::queryAccessibleInterface(widget);
                QVERIFY(control);
                QVERIFY2(!control->text(QAccessible::Name).isEmpty(),
                         qPrintable(widget->objectName()));
                ++controls;
            }
            widget = widget->nextInFocusChain();
        } while (widget != tokenField());
        QCOMPARE(controls, 12);
        QCOMPARE(QAccessible::queryAccessibleInterface(tokenField())->text(QAccessible::Name),
                 u"API Token"_s);
        QCOMPARE(QAccessible::queryAccessibleInterface(find<QLabel>(u"tokenLink"_s))
                     ->text(QAccessible::Name),
                 u"Get your API token at 127.0.0.1 → Integrations"_s);

        // Rows are check boxes that say whether they are ticked.
        PinRow* work = collectionsList()->rows()[2];
        QAccessibleInterface* row = QAccessible::queryAccessibleInterface(work);
        QCOMPARE(row->role(), QAccessible::CheckBox);
        QCOMPARE(row->text(QAccessible::Name), u"Work"_s);
        QVERIFY(row->state().checkable);
        QVERIFY(row->state().checked);
        QAccessibleInterface* inbox =
            QAccessible::queryAccessibleInterface(collectionsList()->rows()[0]);
        QVERIFY(inbox->state().checkable);
        QVERIFY(!inbox->state().checked);
        model()->toggleCollection(3);
        QVERIFY(!row->state().checked);
    }

    void anAmpersandIsReadAsItStands() {
        serveAccount(*m_server, {{1, u"Tom & Jerry"_s, 2}}, {});
        writeConfig(R"({"token": "tok"})");
        open();
        QTRY_COMPARE(middle(), u"lists"_s);
        PinRow* row = collectionsList()->rows()[0];
        QCOMPARE(QAccessible::queryAccessibleInterface(row)->text(QAccessible::Name),
                 u"Tom & Jerry"_s);
        // No Alt+J shortcut grows out of it.
        QTest::keyClick(tokenField(), Qt::Key_J, Qt::AltModifier);
        QVERIFY(!row->isPinned());
    }

    void theTokenSectionReadsAsDesigned() {
        open();
        QCOMPARE(find<QLabel>(u"tokenHeading"_s)->text(), u"API Token"_s);
        QVERIFY(find<QLabel>(u"tokenHeading"_s)->font().bold());
        QCOMPARE(tokenField()->placeholderText(), u"Paste your Raindrop API token"_s);
        QCOMPARE(tokenField()->echoMode(), QLineEdit::Normal);
        QCOMPARE(loadButton()->text(), u"Load"_s);
        QCOMPARE(find<QWidget>(u"generalTab"_s)->layout()->contentsMargins(),
                 QMargins(20, 20, 20, 20));
    }

    void theLinkLeadsToTheIntegrationsPage() {
        open(Environment());
        auto* link = find<QLabel>(u"tokenLink"_s);
        QTextDocument document;
        document.setHtml(link->text());
        QCOMPARE(document.toPlainText(), u"Get your API token at app.raindrop.io → Integrations"_s);
        QVERIFY(link->text().contains(u"href=\"https://app.raindrop.io/settings/integrations\""_s));
        QVERIFY(link->font().pointSizeF() < m_view->font().pointSizeF());

        LinkCatcher browser;
        QDesktopServices::setUrlHandler(u"https"_s, &browser, "open");
        const QPoint onText(link->fontMetrics().horizontalAdvance(u"Get your"_s),
                            link->height() / 2);
        QTest::mouseClick(link, Qt::LeftButton, {}, onText);
        QDesktopServices::unsetUrlHandler(u"https"_s);
        QCOMPARE(browser.opened,
                 QList<QUrl>{QUrl(u"https://app.raindrop.io/settings/integrations"_s)});
    }

    void anEmptyTokenDisablesLoadAndSaveUntilTyping() {
        open();
        QVERIFY(!loadButton()->isEnabled());
        QVERIFY(!saveButton()->isEnabled());
        QCOMPARE(middle(), u"nothing"_s);
        QVERIFY(!error()->isVisible());
        QCOMPARE(m_server->requestCount(), 0);

        QTest::keyClicks(tokenField(), u"a"_s);
        QCOMPARE(model()->token(), u"a"_s);
        QVERIFY(loadButton()->isEnabled());
        QVERIFY(saveButton()->isEnabled());
        QCOMPARE(middle(), u"hint"_s);
        QCOMPARE(hint()->text(), u"Click Load to fetch your collections and tags."_s);

        QTest::keyClick(tokenField(), Qt::Key_Backspace);
        QVERIFY(!loadButton()->isEnabled());
        QVERIFY(!saveButton()->isEnabled());
        QCOMPARE(middle(), u"nothing"_s);
        // The first load is the one with a token: nothing was sent before its two requests.
        QTest::keyClicks(tokenField(), u"tok"_s);
        QTest::mouseClick(loadButton(), Qt::LeftButton);
        QVERIFY(m_server->waitForRequests(2));
        QTRY_VERIFY(!model()->isLoading());
        QCOMPARE(m_server->requestCount(), 2);
    }

    void aTokenOfSpacesCanBeSavedButLoadsNothing() {
        open();
        QTest::keyClicks(tokenField(), u"   "_s);
        QVERIFY(saveButton()->isEnabled());
        QVERIFY(loadButton()->isEnabled());
        QTest::mouseClick(loadButton(), Qt::LeftButton);
        QCOMPARE(middle(), u"hint"_s);
        QVERIFY(!error()->isVisible());
        // The first load is the one with a token: nothing was sent before its two requests.
        QTest::keyClicks(tokenField(), u"tok"_s);
        QTest::mouseClick(loadButton(), Qt::LeftButton);
        QVERIFY(m_server->waitForRequests(2));
        QTRY_VERIFY(!model()->isLoading());
        QCOMPARE(m_server->requestCount(), 2);
    }

    void theViewLoadsWhenItComesOnScreen() {
        writeConfig(R"({"token": "tok\n", "pinned_collections": [3], "pinned_tags": ["news"]})");
        serveAccount(*m_server, {{1, u"Inbox"_s, 0}, {2, u"Reading"_s, 1}, {3, u"Work"_s, 42}},
                     {{u"news"_s, 7}, {u"unused"_s, 0}}, 300ms);
        open();
        QCOMPARE(tokenField()->text(), u"tok\n"_s);
        QVERIFY(m_server->waitForRequests(2));
        QCOMPARE(middle(), u"loading"_s);
        QVERIFY(!loadButton()->isEnabled());
        for (const TestHttpServer::Request& request : m_server->requests())
            QCOMPARE(request.header("authorization"), QByteArray("Bearer tok"));

        QTRY_COMPARE(middle(), u"lists"_s);
        QVERIFY(loadButton()->isEnabled());
        QCOMPARE(collectionsList()->title(), u"📁 Pinned Collections"_s);
        QCOMPARE(tagsList()->title(), u"\U0001F3F7 Pinned Tags"_s);

        const QList<PinRow*> collections = collectionsList()->rows();
        QCOMPARE(collections.size(), 3);
        QCOMPARE(collections[0]->label(), u"Inbox"_s);
        QCOMPARE(collections[0]->badge(), std::nullopt);
        QCOMPARE(collections[1]->badge(), std::optional(u"1"_s));
        QCOMPARE(collections[2]->label(), u"Work"_s);
        QCOMPARE(collections[2]->badge(), std::optional(u"42"_s));
        QCOMPARE(collections[2]->isPinned(), true);
        QCOMPARE(collections[0]->isPinned(), false);

        const QList<PinRow*> tags = tagsList()->rows();
        QCOMPARE(tags.size(), 2);
        QCOMPARE(tags[0]->label(), u"#news"_s);
        QCOMPARE(tags[0]->badge(), std::optional(u"7"_s));
        QVERIFY(tags[0]->isPinned());
        QCOMPARE(tags[1]->label(), u"#unused"_s);
        QCOMPARE(tags[1]->badge(), std::optional(u"0"_s));
        QVERIFY(!tags[1]->isPinned());
    }

    void theListsAreLaidOutSideBySide() {
        writeConfig(R"({"token": "tok"})");
        open();
        QTRY_COMPARE(middle(), u"lists"_s);
        const QRect left = collectionsList()->geometry();
        const QRect right = tagsList()->geometry();
        QCOMPARE(right.left() - left.right() - 1, 16);
        QCOMPARE(left.top(), right.top());
        QCOMPARE(left.width(), right.width());
        auto* box = collectionsList()->findChild<QWidget*>(u"pinListBox"_s);
        QVERIFY(box->height() <= PinList::maximumListHeight);
        QCOMPARE(box->geometry().top() -
                     collectionsList()->findChild<QLabel*>(u"pinListTitle"_s)->geometry().bottom() -
                     1,
                 6);
        const QList<PinRow*> rows = collectionsList()->rows();
        QCOMPARE(rows[0]->mapTo(box, QPoint(0, 0)).x(), 1 + 6);
        QCOMPARE(rows[1]->geometry().top() - rows[0]->geometry().bottom() - 1, 2);
    }

    void onlyTheFirstFiftyTagsAreOffered() {
        QList<Tag> many;
        for (int i = 0; i < 60; ++i)
            many.append({u"tag%1"_s.arg(i, 2, 10, QLatin1Char('0')), 100 - i});
        serveAccount(*m_server, {}, many);
        writeConfig(R"({"token": "tok", "pinned_tags": ["tag55", "tag01"]})");
        open();
        QTRY_COMPARE(middle(), u"lists"_s);
        // Both lists are shown, even the empty one.
        QVERIFY(collectionsList()->isVisible());
        QCOMPARE(collectionsList()->rows().size(), 0);
        const QList<PinRow*> rows = tagsList()->rows();
        QCOMPARE(rows.size(), 50);
        QCOMPARE(rows.first()->label(), u"#tag00"_s);
        QCOMPARE(rows.last()->label(), u"#tag49"_s);
        QVERIFY(rows[1]->isPinned());

        QTest::mouseClick(saveButton(), Qt::LeftButton);
        AppConfig expected;
        expected.token = u"tok"_s;
        expected.pinnedTags = {u"tag01"_s, u"tag55"_s};
        expected.openMenuShortcut = ShortcutConfig::defaultShortcut();
        QCOMPARE(readConfig(), expected.encode());
    }

    void clickingARowChangesOnlyTheModel() {
        const QByteArray file = R"({"token": "tok", "pinned_collections": [3]})";
        writeConfig(file);
        open();
        QTRY_COMPARE(middle(), u"lists"_s);
        PinRow* inbox = collectionsList()->rows()[0];
        PinRow* work = collectionsList()->rows()[2];
        QTest::mouseClick(inbox, Qt::LeftButton, {},
                          QPoint(inbox->width() - 3, inbox->height() / 2));
        QVERIFY(inbox->isPinned());
        QTest::mouseClick(work, Qt::LeftButton);
        QVERIFY(!work->isPinned());
        QCOMPARE(model()->pinnedCollectionIds(), QSet<qint64>{1});
        PinRow* unused = tagsList()->rows()[1];
        QTest::mouseClick(unused, Qt::LeftButton);
        QVERIFY(unused->isPinned());
        QCOMPARE(model()->pinnedTags(), QSet<QString>{u"unused"_s});
        QTest::mouseClick(unused, Qt::LeftButton);
        QVERIFY(!unused->isPinned());
        QVERIFY(model()->pinnedTags().isEmpty());
        QCOMPARE(readConfig(), file);
    }

    void loadUsesTheTypedToken() {
        writeConfig(R"({"token": "old"})");
        open();
        QTRY_COMPARE(middle(), u"lists"_s);
        m_server->clearRequests();
        tokenField()->selectAll();
        QTest::keyClicks(tokenField(), u"new"_s);
        QTest::mouseClick(loadButton(), Qt::LeftButton);
        QVERIFY(m_server->waitForRequests(2));
        for (const TestHttpServer::Request& request : m_server->requests())
            QCOMPARE(request.header("authorization"), QByteArray("Bearer new"));
        QTRY_VERIFY(!model()->isLoading());
    }

    void anExpiredTokenIsExplainedAndTheListsStay() {
        writeConfig(R"({"token": "tok"})");
        open();
        QTRY_COMPARE(middle(), u"lists"_s);
        m_server->on("GET", u"/rest/v1/collections"_s, {401, "Unauthorized", {}, {}, {}});
        m_server->on("GET", u"/rest/v1/tags"_s, {401, "Unauthorized", {}, {}, {}});
        QTest::mouseClick(loadButton(), Qt::LeftButton);
        QTRY_VERIFY(error()->isVisible());
        QCOMPARE(error()->text(),
                 u"Could not load: Invalid API token — check your token and try again."_s);
        // Red, and readable on the window in its small type.
        const QColor red = error()->palette().color(QPalette::WindowText);
        QVERIFY(red.hsvHue() <= 10 || red.hsvHue() >= 350);
        QVERIFY(red.hsvSaturation() > 128);
        QVERIFY(contrast(red, m_view->palette().color(QPalette::Window)) >= 4.5);
        QVERIFY(error()->font().pointSizeF() < m_view->font().pointSizeF());
        QVERIFY(error()->geometry().top() > lists()->geometry().bottom());
        QCOMPARE(middle(), u"lists"_s);
        QCOMPARE(collectionsList()->rows().size(), 3);
        QVERIFY(loadButton()->isEnabled());
        QVERIFY(tokenField()->isEnabled());
    }

    void aServiceThatIsDownIsExplained() {
        writeConfig(R"({"token": "tok"})");
        Environment environment = environmentFor(*m_server);
        m_server.reset();
        open(environment);
        QTRY_VERIFY(error()->isVisible());
        QVERIFY(error()->text().startsWith(u"Could not load: "_s));
        QCOMPARE(middle(), u"hint"_s);
        QVERIFY(saveButton()->isEnabled());
        QVERIFY(loadButton()->isEnabled());
    }

    void aServiceAnsweringOddlyIsExplained() {
        writeConfig(R"({"token": "tok"})");
        m_server->on("GET", u"/rest/v1/tags"_s, TestHttpServer::Response::json("<html>"));
        open();
        QTRY_VERIFY(error()->isVisible());
        QVERIFY(error()->text().startsWith(u"Could not load: "_s));
        QCOMPARE(error()->textFormat(), Qt::PlainText);
    }

    void aLoadCalledOffKeepsTheEarlierError() {
        writeConfig(R"({"token": "tok"})");
        m_server->on("GET", u"/rest/v1/collections"_s, {401, "Unauthorized", {}, {}, {}});
        open();
        QTRY_VERIFY(error()->isVisible());
        const QString earlier = error()->text();
        QVERIFY(earlier.startsWith(u"Could not load: "_s));

        // Shown again, the window loads anew; closed before the answer, it calls that load off.
        serveAccount(*m_server, {{1, u"Inbox"_s, 0}}, {}, 3s);
        m_server->clearRequests();
        m_view->hide();
        m_view->show();
        QVERIFY(m_server->waitForRequests(2));
        QVERIFY(model()->isLoading());
        m_view->hide();
        QTRY_VERIFY(!model()->isLoading());
        QCOMPARE(model()->errorMessage(), std::optional(earlier));
        QCOMPARE(error()->text(), earlier);
        QVERIFY(!error()->isHidden());
        QCOMPARE(model()->collections().size(), 0);
    }

    void aSlowServiceLeavesTheWindowUsable() {
        writeConfig(R"({"token": "tok"})");
        serveAccount(*m_server, {{1, u"Inbox"_s, 0}}, {}, 3s);
        open();
        QVERIFY(m_server->waitForRequests(2));
        QCOMPARE(middle(), u"loading"_s);
        QTest::keyClicks(tokenField(), u"x"_s);
        QCOMPARE(model()->token(), u"tokx"_s);
        QVERIFY(!loadButton()->isEnabled());
        QVERIFY(saveButton()->isEnabled());
        QTest::mouseClick(saveButton(), Qt::LeftButton);
        QVERIFY(!m_view->isVisible());
        // Leaving the screen ends the load started on showing.
        QTRY_VERIFY(!model()->isLoading());
        QVERIFY(!model()->errorMessage());
        QCOMPARE(model()->collections().size(), 0);
        QVERIFY(readConfig().contains("\"tokx\""));
    }

    void saveWritesClosesAndAnnounces() {
        writeConfig(R"({"token": "tok"})");
        open();
        QTRY_COMPARE(middle(), u"lists"_s);
        QTest::mouseClick(collectionsList()->rows()[1], Qt::LeftButton);
        QSignalSpy announced(&SettingsNotifier::instance(), &SettingsNotifier::settingsChanged);
        QTest::mouseClick(saveButton(), Qt::LeftButton);
        QCOMPARE(announced.count(), 1);
        QVERIFY(!m_view->isVisible());
        AppConfig expected;
        expected.token = u"tok"_s;
        expected.pinnedCollectionIds = {2};
        expected.openMenuShortcut = ShortcutConfig::defaultShortcut();
        QCOMPARE(readConfig(), expected.encode());
    }
};

QTEST_MAIN(tst_SettingsView)
#include "tst_SettingsView.moc"
