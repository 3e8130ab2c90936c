#include "app/Alert.h"

#include <QLabel>
#include <QMessageBox>
#include <QPushButton>

int Alert::run(const QString& message, const QString& informativeText, Style style,
               const QStringList& buttons) {
    QMessageBox box;
    box.setWindowTitle(QStringLiteral("Quillmar"));
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
