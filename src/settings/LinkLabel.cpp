#include "settings/LinkLabel.h"

#include <QFocusEvent>

void LinkLabel::focusInEvent(QFocusEvent* event) {
    QLabel::focusInEvent(event);
    // From either side: with a single link, the first is also the last.
    if (event->reason() == Qt::TabFocusReason || event->reason() == Qt::BacktabFocusReason)
        QLabel::focusNextPrevChild(true);
}
