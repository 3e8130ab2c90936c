#include "settings/LinkLabel.h"

#include <QEvent>
#include <QFocusEvent>

using namespace Qt::StringLiterals;

LinkLabel::LinkLabel(QString address, QString text, QWidget* parent)
    : QLabel(parent)
    , m_address(std::move(address))
    , m_text(std::move(text)) {
    setTextFormat(Qt::RichText);
    setOpenExternalLinks(true);
    setTextInteractionFlags(Qt::LinksAccessibleByMouse | Qt::LinksAccessibleByKeyboard);
    setAccessibleName(m_text);
    setToolTip(m_address);
    updateText();
}

void LinkLabel::changeEvent(QEvent* event) {
    if (event->type() == QEvent::PaletteChange)
        updateText();
    QLabel::changeEvent(event);
}

void LinkLabel::focusInEvent(QFocusEvent* event) {
    QLabel::focusInEvent(event);
    // From either side: with a single link, the first is also the last.
    if (event->reason() == Qt::TabFocusReason || event->reason() == Qt::BacktabFocusReason)
        QLabel::focusNextPrevChild(true);
}

void LinkLabel::updateText() {
    // The colour is written into the link: rich text otherwise takes the application's link
    // colour once, when the text is set, and keeps it through a change of palette.
    setText(u"<a href=\"%1\" style=\"color: %2\">%3</a>"_s.arg(
        m_address.toHtmlEscaped(), palette().color(QPalette::Link).name(), m_text.toHtmlEscaped()));
}
