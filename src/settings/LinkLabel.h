#pragma once

#include <QLabel>
#include <QString>

// A label that is one link: it opens the address in the browser, is reached with a single Tab
// (arriving by the keyboard, the link itself takes the focus, so that Enter opens it; a plain
// label stops twice, first on itself, where Enter does nothing), and draws the link in the link
// colour of the palette of the moment.
class LinkLabel : public QLabel {
    Q_OBJECT
public:
    LinkLabel(QString address, QString text, QWidget* parent = nullptr);

protected:
    void changeEvent(QEvent* event) override;
    void focusInEvent(QFocusEvent* event) override;

private:
    void updateText();

    QString m_address;
    QString m_text;
};
