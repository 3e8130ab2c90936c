// The clipboard where only the program with the keyboard may use it: without the keyboard the
// work waits for it, and gives up when it never comes, leaving nothing on the screen. (Here
// the platform is not Wayland: no keyboard ever comes.)
#include "app/clipboard/FocusClipboardBackend.h"

#include <QApplication>
#include <QWidget>
#include <QtTest>

#include <algorithm>
#include <optional>

using namespace Qt::StringLiterals;

class tst_FocusClipboardBackend : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void readWithoutKeyboardGivesUpAndLeavesNoWindow();
    void copyWithoutKeyboardGivesUpAndLeavesNoWindow();

private:
    static int visibleWindows() {
        const QWidgetList widgets = QApplication::topLevelWidgets();
        return static_cast<int>(std::count_if(widgets.cbegin(), widgets.cend(),
                                              [](const QWidget* w) { return w->isVisible(); }));
    }
};

void tst_FocusClipboardBackend::readWithoutKeyboardGivesUpAndLeavesNoWindow() {
    FocusClipboardBackend backend;
    QVERIFY(!backend.text());
    int answers = 0;
    std::optional<QString> answer = u"not answered"_s;
    backend.readText([&](std::optional<QString> text) {
        ++answers;
        answer = text;
    });
    // A window of its own asks for the keyboard meanwhile.
    QCOMPARE(visibleWindows(), 1);
    QTRY_COMPARE_WITH_TIMEOUT(answers, 1, 10000);
    QCOMPARE(answer, std::nullopt);
    QTRY_COMPARE(visibleWindows(), 0);
}

void tst_FocusClipboardBackend::copyWithoutKeyboardGivesUpAndLeavesNoWindow() {
    FocusClipboardBackend backend;
    backend.setText(u"https://example.org/first"_s);
    backend.setText(u"https://example.org/second"_s);
    QCOMPARE(visibleWindows(), 1);
    QTRY_COMPARE_WITH_TIMEOUT(visibleWindows(), 0, 10000);
    QVERIFY(!backend.text());
}

QTEST_MAIN(tst_FocusClipboardBackend)
#include "tst_FocusClipboardBackend.moc"
