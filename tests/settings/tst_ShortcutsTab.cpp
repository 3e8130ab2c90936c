#include "SettingsFixtures.h"
#include "settings/RecorderControl.h"
#include "settings/SettingsViewModel.h"
#include "settings/ShortcutsTab.h"

#include <QLabel>
#include <QPushButton>
#include <QSignalSpy>
#include <QtTest>

using namespace Qt::StringLiterals;
using namespace SettingsFixtures;

class tst_ShortcutsTab : public QObject {
    Q_OBJECT

    SettingsViewModel* m_model = nullptr;
    ShortcutsTab* m_tab = nullptr;

    RecorderControl* recorder() const {
        return m_tab->findChild<RecorderControl*>(u"shortcutRecorder"_s);
    }
    QLabel* recorderLabel() const { return recorder()->findChild<QLabel*>(u"recorderLabel"_s); }
    QPushButton* clearButton() const { return m_tab->findChild<QPushButton*>(u"clearButton"_s); }
    QLabel* label(const QString& name) const { return m_tab->findChild<QLabel*>(name); }

private Q_SLOTS:
    void init() {
        removeConfig();
        writeConfig(R"({"token": "t"})");
        m_model = new SettingsViewModel(Environment().apiBase);
        m_tab = new ShortcutsTab(m_model);
        m_tab->resize(500, 380);
        m_tab->show();
        QVERIFY(QTest::qWaitForWindowActive(m_tab));
    }

    void cleanup() {
        delete m_tab;
        delete m_model;
        removeConfig();
    }

    void itShowsItsTexts() {
        QCOMPARE(label(u"shortcutsHeading"_s)->text(), u"Keyboard Shortcuts"_s);
        QVERIFY(label(u"shortcutsHeading"_s)->font().bold());
        QCOMPARE(label(u"openMenuLabel"_s)->text(), u"Open menu"_s);
        QCOMPARE(label(u"openMenuLabel"_s)->width(), 100);
        QCOMPARE(label(u"shortcutsHelp"_s)->text(),
                 u"Click the field and press a key combination to record a shortcut.\n"
                 u"Press Delete to clear, or Escape to cancel."_s);
        QVERIFY(label(u"shortcutsHelp"_s)->font().pointSizeF() < m_tab->font().pointSizeF());
        QCOMPARE(clearButton()->text(), u"Clear"_s);
        QVERIFY(clearButton()->isFlat());
    }

    void itIsLaidOutInOneRow() {
        const QRect name = label(u"openMenuLabel"_s)->geometry();
        const QRect field = recorder()->geometry();
        const QRect clear = clearButton()->geometry();
        QCOMPARE(name.left(), 20);
        QCOMPARE(label(u"shortcutsHeading"_s)->geometry().top(), 20);
        QCOMPARE(field.left() - name.right() - 1, 12);
        QCOMPARE(clear.left() - field.right() - 1, 12);
        QCOMPARE(field.size(), QSize(160, 28));
        QCOMPARE(field.center().y(), name.center().y());
        QCOMPARE(label(u"shortcutsHelp"_s)->geometry().top() -
                     std::max(field.bottom(), clear.bottom()) - 1,
                 20);
    }

    void theRecorderShowsTheModelsShortcut() {
        QCOMPARE(recorderLabel()->text(), u"Ctrl+Alt+R"_s);
        m_model->setOpenMenuShortcut(ShortcutConfig{40, 0x40000, u"K"_s});
        QCOMPARE(recorder()->shortcut(), (ShortcutConfig{40, 0x40000, u"K"_s}));
        QCOMPARE(recorderLabel()->text(), u"Meta+K"_s);
    }

    void aRecordingGoesIntoTheModelAtOnce() {
        QSignalSpy changed(m_model, &SettingsViewModel::openMenuShortcutChanged);
        QTest::mouseClick(recorder(), Qt::LeftButton);
        QTest::keyClick(recorder(), Qt::Key_K, Qt::ControlModifier | Qt::AltModifier);
        QCOMPARE(changed.count(), 1);
        QCOMPARE(m_model->openMenuShortcut(), (ShortcutConfig{40, 0x180000, u"K"_s}));
        QCOMPARE(recorderLabel()->text(), u"Ctrl+Alt+K"_s);
        // Not saved before "Save".
        QCOMPARE(readConfig(), QByteArray(R"({"token": "t"})"));
    }

    void deleteClearsAndHidesClear() {
        QVERIFY(clearButton()->isVisible());
        QTest::mouseClick(recorder(), Qt::LeftButton);
        QTest::keyClick(recorder(), Qt::Key_Backspace);
        QCOMPARE(m_model->openMenuShortcut(), std::nullopt);
        QCOMPARE(recorderLabel()->text(), u"Click to record"_s);
        QVERIFY(!clearButton()->isVisible());

        QTest::mouseClick(recorder(), Qt::LeftButton);
        QTest::keyClick(recorder(), Qt::Key_J, Qt::ShiftModifier);
        QVERIFY(clearButton()->isVisible());
    }

    void clearRemovesTheShortcut() {
        QTest::mouseClick(clearButton(), Qt::LeftButton);
        QCOMPARE(m_model->openMenuShortcut(), std::nullopt);
        QCOMPARE(recorderLabel()->text(), u"Click to record"_s);
        QVERIFY(!clearButton()->isVisible());
    }

    void escapeKeepsTheModelsValue() {
        QSignalSpy changed(m_model, &SettingsViewModel::openMenuShortcutChanged);
        QTest::mouseClick(recorder(), Qt::LeftButton);
        QTest::keyClick(recorder(), Qt::Key_Escape);
        QCOMPARE(changed.count(), 0);
        QCOMPARE(m_model->openMenuShortcut(), ShortcutConfig::defaultShortcut());
        QCOMPARE(recorderLabel()->text(), u"Ctrl+Alt+R"_s);
    }
};

QTEST_MAIN(tst_ShortcutsTab)
#include "tst_ShortcutsTab.moc"
