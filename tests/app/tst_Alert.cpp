#include "app/alert/Alert.h"
#include "app/tray/StatusItem.h"

#include <QApplication>
#include <QDesktopServices>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QTimer>
#include <QtTest>

#include <functional>

using namespace Qt::StringLiterals;

// Stands in for the browser: records the addresses that would have been opened.
class OpenedLinks : public QObject {
    Q_OBJECT
public:
    QList<QUrl> opened;
public Q_SLOTS:
    void open(const QUrl& url) { opened.append(url); }
};

class tst_Alert : public QObject {
    Q_OBJECT

    // Runs an alert; while it is up, look is called with it, then its button is pressed.
    void showAlert(const QString& message, const QString& informative,
                   const std::function<void(QMessageBox*)>& look) {
        QTimer poll;
        connect(&poll, &QTimer::timeout, this, [&] {
            auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
            if (!box || !box->isVisible())
                return;
            poll.stop();
            look(box);
            box->buttons().constLast()->click();
        });
        poll.start(5);
        Alert::run(message, informative, Alert::Style::Warning);
    }

private Q_SLOTS:
    void markupIsShownAsItStands() {
        const QString message = u"Quillmar <b>x</b>"_s;
        const QString informative =
            u"Version <b>x</b> is at <a href=\"https://example.com/x\">example.com</a>."_s;
        OpenedLinks browser;
        QDesktopServices::setUrlHandler(u"https"_s, &browser, "open");
        QString shownMessage;
        QString shownInformative;
        showAlert(message, informative, [&](QMessageBox* box) {
            auto* messageLabel = box->findChild<QLabel*>(u"qt_msgbox_label"_s);
            auto* informativeLabel = box->findChild<QLabel*>(u"qt_msgbox_informativelabel"_s);
            QVERIFY(messageLabel && informativeLabel);
            QCOMPARE(messageLabel->textFormat(), Qt::PlainText);
            QCOMPARE(informativeLabel->textFormat(), Qt::PlainText);
            shownMessage = messageLabel->text();
            shownInformative = informativeLabel->text();
            // A click where markup would have drawn the link opens nothing.
            const QFontMetrics metrics = informativeLabel->fontMetrics();
            QTest::mouseClick(
                informativeLabel, Qt::LeftButton, {},
                QPoint(metrics.horizontalAdvance(u"Version x is at ex"_s), metrics.height() / 2));
        });
        QDesktopServices::unsetUrlHandler(u"https"_s);
        QCOMPARE(shownMessage, message);
        QCOMPARE(shownInformative, informative);
        QVERIFY(browser.opened.isEmpty());
    }

    void carriesTheDrop() {
        // The program sets no application icon: each window a title bar shows carries its own.
        QImage shown;
        showAlert(u"Quillmar"_s, u"Text"_s,
                  [&](QMessageBox* box) { shown = box->windowIcon().pixmap(32).toImage(); });
        QCOMPARE(shown, StatusItem::dropIcon().pixmap(32).toImage());
    }
};

QTEST_MAIN(tst_Alert)
#include "tst_Alert.moc"
