#include "app/alert/Alert.h"

#include "app/tray/StatusItem.h"

#include <QLabel>
#include <QMessageBox>
#include <QPushButton>

int Alert::run(const QString& message, const QString& informativeText, Style style,
               const QStringList& buttons) {
    QMessageBox box;
    box.setWindowTitle(QStringLiteral("Quillmar"));
    // Given to each window a title bar or task bar shows, not to the whole program: an
    // application icon would also be drawn at four sizes and sent to the X server each time a
    // menu or submenu opens (each opening is a new window), for a window nothing shows it on.
    box.setWindowIcon(StatusItem::dropIcon());
    box.setText(message);
    box.setInformativeText(informativeText);
    // Messages are shown as they stand: a version or an error body with markup in it is text,
    // never formatting or a link. Qt guesses the format of each label on its own otherwise.
    box.setTextFormat(Qt::PlainText);
    if (auto* informative = box.findChild<QLabel*>(QStringLiteral("qt_msgbox_informativelabel")))
        informative->setTextFormat(Qt::PlainText);
    box.setIcon(style == Style::Warning ? QMessageBox::Warning : QMessageBox::Information);
    // The message reads as a heading above the informative text, and the box is wide enough
    // for a sentence per line rather than a word.
    box.setStyleSheet(QStringLiteral("QLabel#qt_msgbox_label { font-weight: bold; }"
                                     "QLabel#qt_msgbox_informativelabel { min-width: 320px; }"));
    QList<QAbstractButton*> added;
    if (buttons.isEmpty()) {
        added.append(box.addButton(QMessageBox::Ok));
    } else {
        for (qsizetype i = 0; i < buttons.size(); ++i)
            added.append(box.addButton(buttons[i],
                                       i == 0 ? QMessageBox::AcceptRole : QMessageBox::RejectRole));
    }
    box.setDefaultButton(qobject_cast<QPushButton*>(added.first()));
    box.exec();
    return int(added.indexOf(box.clickedButton()));
}
