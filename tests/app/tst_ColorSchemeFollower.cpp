// Quillmar's own menu and settings window against a stand-in for the desktop's settings portal on
// a private session bus: dark when the desktop prefers dark, light when it prefers light or says
// nothing, and following a change while they are open.
#include "FakeSettingsPortal.h"
#include "PrivateSessionBus.h"
#include "ScreenColours.h"
#include "app/desktop/ColorSchemeFollower.h"
#include "config/Environment.h"
#include "settings/SettingsView.h"

#include <QApplication>
#include <QMenu>
#include <QSignalSpy>
#include <QtTest>

#include <memory>

using namespace Qt::StringLiterals;

namespace {

QColor background(const QImage& image) {
    return ScreenColours::commonColour(image);
}

bool isDarkPicture(const QImage& image) {
    return background(image).lightnessF() < 0.3;
}

bool isLightPicture(const QImage& image) {
    return background(image).lightnessF() > 0.7;
}

} // namespace

class tst_ColorSchemeFollower : public QObject {
    Q_OBJECT

    PrivateSessionBus m_bus;
    int m_connections = 0;
    std::unique_ptr<FakeSettingsPortal> m_portal;
    std::unique_ptr<ColorSchemeFollower> m_follower;
    std::unique_ptr<SettingsView> m_window;
    std::unique_ptr<QMenu> m_menu;
    QString m_appConnection;

    // Quillmar's side of the bus, as the program makes it soon after launch.
    void follow() {
        m_appConnection = u"app%1"_s.arg(++m_connections);
        m_follower = std::make_unique<ColorSchemeFollower>(
            QDBusConnection::connectToBus(m_bus.address(), m_appConnection));
        m_follower->readPreference();
    }
    void startPortal(std::optional<uint> colorScheme) {
        m_portal = std::make_unique<FakeSettingsPortal>(m_bus.address());
        m_portal->setColorScheme(colorScheme, false);
        QVERIFY(m_portal->start());
    }
    // The settings window and a menu, as they are drawn now. A new palette reaches windows
    // through posted events: the tests wait for the picture.
    QImage window() { return m_window->grab().toImage(); }
    QImage menu() { return m_menu->grab().toImage(); }

private Q_SLOTS:
    void initTestCase() { QVERIFY(m_bus.start()); }

    void init() {
        m_window = std::make_unique<SettingsView>(Environment().apiBase, Environment().webApp);
        m_window->show();
        QVERIFY(QTest::qWaitForWindowExposed(m_window.get()));
        m_menu = std::make_unique<QMenu>();
        m_menu->addAction(u"Settings…"_s);
        m_menu->addAction(u"Refresh"_s);
        m_menu->addSeparator();
        m_menu->addAction(u"Quit Quillmar"_s);
        m_menu->adjustSize();
    }

    void cleanup() {
        m_follower.reset();
        QDBusConnection::disconnectFromBus(m_appConnection);
        m_portal.reset();
        m_menu.reset();
        m_window.reset();
        // The next test starts from the platform's own palette.
        QApplication::setPalette(QPalette());
    }

    // First, so that the follower is the process's first user of D-Bus, as at launch.
    void followsAChangeFromNoPreference() {
        startPortal(0);
        follow();
        QSignalSpy read(m_follower.get(), &ColorSchemeFollower::preferenceRead);
        QVERIFY(read.wait());
        QCOMPARE(m_follower->preference(), ColorSchemeFollower::Preference::None);
        QTRY_VERIFY(isLightPicture(window()));
        m_portal->setColorScheme(1);
        QTRY_COMPARE(m_follower->preference(), ColorSchemeFollower::Preference::Dark);
        QTRY_VERIFY(isDarkPicture(window()));
        QTRY_VERIFY(isDarkPicture(menu()));
    }

    void darkWhenTheDesktopPrefersDark() {
        QTRY_VERIFY(isLightPicture(window()));
        QTRY_VERIFY(isLightPicture(menu()));
        startPortal(1);
        follow();
        QTRY_COMPARE(m_follower->preference(), ColorSchemeFollower::Preference::Dark);
        QCOMPARE(m_portal->reads(), 1);
        QTRY_VERIFY(isDarkPicture(window()));
        QTRY_VERIFY(isDarkPicture(menu()));
        QVERIFY(ColorSchemeFollower::isDark(QApplication::palette()));
        // The text stays readable on it.
        QVERIFY(QApplication::palette().color(QPalette::WindowText).lightnessF() > 0.8);
    }

    void lightWhenTheDesktopPrefersLight() {
        startPortal(2);
        follow();
        QTRY_COMPARE(m_follower->preference(), ColorSchemeFollower::Preference::Light);
        QTRY_VERIFY(isLightPicture(window()));
        QTRY_VERIFY(isLightPicture(menu()));
    }

    void lightWithoutAPortal() {
        follow();
        // The question goes unanswered: the platform's light palette stays.
        QSignalSpy read(m_follower.get(), &ColorSchemeFollower::preferenceRead);
        QVERIFY(read.wait());
        QCOMPARE(m_follower->preference(), ColorSchemeFollower::Preference::None);
        QTRY_VERIFY(isLightPicture(window()));
        QTRY_VERIFY(isLightPicture(menu()));
    }

    void lightWhenThePortalKnowsNoPreference() {
        startPortal(std::nullopt);
        follow();
        QSignalSpy read(m_follower.get(), &ColorSchemeFollower::preferenceRead);
        QVERIFY(read.wait());
        QCOMPARE(m_portal->reads(), 1);
        QCOMPARE(m_follower->preference(), ColorSchemeFollower::Preference::None);
        QTRY_VERIFY(isLightPicture(window()));
    }

    void followsTheDesktopWhileOpen() {
        startPortal(2);
        follow();
        QTRY_COMPARE(m_follower->preference(), ColorSchemeFollower::Preference::Light);
        QSignalSpy changed(m_follower.get(), &ColorSchemeFollower::preferenceChanged);
        m_portal->setColorScheme(1);
        QTRY_COMPARE(changed.count(), 1);
        QTRY_VERIFY(isDarkPicture(window()));
        QTRY_VERIFY(isDarkPicture(menu()));
        // "No preference": back to the platform's own.
        m_portal->setColorScheme(0);
        QTRY_COMPARE(changed.count(), 2);
        QCOMPARE(m_follower->preference(), ColorSchemeFollower::Preference::None);
        QTRY_VERIFY(isLightPicture(window()));
        QTRY_VERIFY(isLightPicture(menu()));
        m_portal->setColorScheme(1);
        QTRY_COMPARE(changed.count(), 3);
        m_portal->setColorScheme(2);
        QTRY_COMPARE(changed.count(), 4);
        QTRY_VERIFY(isLightPicture(window()));
    }

    void otherSettingsAreNotTaken() {
        startPortal(2);
        follow();
        QTRY_COMPARE(m_follower->preference(), ColorSchemeFollower::Preference::Light);
        QSignalSpy changed(m_follower.get(), &ColorSchemeFollower::preferenceChanged);
        Q_EMIT m_portal->SettingChanged(u"org.gnome.desktop.interface"_s, u"color-scheme"_s,
                                        QDBusVariant(QVariant::fromValue(1U)));
        Q_EMIT m_portal->SettingChanged(u"org.freedesktop.appearance"_s, u"accent-color"_s,
                                        QDBusVariant(QVariant::fromValue(1U)));
        // A change that does count, sent after them, arrives after them.
        m_portal->setColorScheme(0);
        QTRY_COMPARE(changed.count(), 1);
        QCOMPARE(m_follower->preference(), ColorSchemeFollower::Preference::None);
        QTRY_VERIFY(isLightPicture(window()));
    }

    void theDarkPaletteReadsWell() {
        // Text on the window, the lists and the selection at 4.5:1 or more, as body text needs.
        const QPalette dark = ColorSchemeFollower::darkPalette();
        QVERIFY(ColorSchemeFollower::isDark(dark));
        QVERIFY(!ColorSchemeFollower::isDark(ColorSchemeFollower::lightPalette()));
        using ScreenColours::contrast;
        QVERIFY(contrast(dark.color(QPalette::WindowText), dark.color(QPalette::Window)) >= 4.5);
        QVERIFY(contrast(dark.color(QPalette::Text), dark.color(QPalette::Base)) >= 4.5);
        QVERIFY(contrast(dark.color(QPalette::PlaceholderText), dark.color(QPalette::Window)) >=
                4.5);
        QVERIFY(contrast(dark.color(QPalette::HighlightedText), dark.color(QPalette::Highlight)) >=
                4.5);
        QVERIFY(contrast(dark.color(QPalette::ButtonText), dark.color(QPalette::Button)) >= 4.5);
        QVERIFY(contrast(dark.color(QPalette::Link), dark.color(QPalette::Window)) >= 4.5);
    }
};

QTEST_MAIN(tst_ColorSchemeFollower)
#include "tst_ColorSchemeFollower.moc"
