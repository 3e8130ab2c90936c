#pragma once

#include <QLabel>

// A label that holds one link, reached with a single Tab: arriving by the keyboard, the link
// itself takes the focus, so that Enter opens it. A plain label stops twice, first on itself,
// where Enter does nothing, then on the link.
class LinkLabel : public QLabel {
    Q_OBJECT
public:
    using QLabel::QLabel;

protected:
    void focusInEvent(QFocusEvent* event) override;
};
