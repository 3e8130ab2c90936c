#include "settings/PinList.h"

#include "settings/PinRow.h"
#include "settings/SettingsStyle.h"

#include <QEvent>
#include <QLabel>
#include <QPainter>
#include <QScrollArea>
#include <QVBoxLayout>

PinList::PinList(QString title, QWidget* parent)
    : QWidget(parent)
    , m_title(std::move(title)) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(6);

    auto* heading = new QLabel(m_title, this);
    heading->setObjectName(QStringLiteral("pinListTitle"));
    heading->setFont(SettingsStyle::headlineFont(heading->font()));
    layout->addWidget(heading);

    // The box, drawn here behind it, and inside its one-point outline the scrolling rows.
    m_box = new QWidget(this);
    m_box->setObjectName(QStringLiteral("pinListBox"));
    m_box->setMaximumHeight(maximumListHeight);
    // As tall as the tab leaves room for, up to the maximum.
    m_box->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
    auto* boxLayout = new QVBoxLayout(m_box);
    boxLayout->setContentsMargins(1, 1, 1, 1);

    m_scrollArea = new QScrollArea(m_box);
    m_scrollArea->setObjectName(QStringLiteral("pinListScrollArea"));
    m_scrollArea->setFrameShape(QFrame::NoFrame);
    m_scrollArea->setWidgetResizable(true);
    // The scroll bar shows whenever there is more than fits.
    m_scrollArea->setVerticalScrollBarPolicy(Qt::ScrollBarAsNeeded);
    m_scrollArea->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    // The rows take the keyboard focus, not the box around them.
    m_scrollArea->setFocusPolicy(Qt::NoFocus);
    m_scrollArea->viewport()->setAutoFillBackground(false);
    boxLayout->addWidget(m_scrollArea);

    auto* content = new QWidget();
    content->setObjectName(QStringLiteral("pinListRows"));
    m_rowLayout = new QVBoxLayout(content);
    m_rowLayout->setContentsMargins(6, 6, 6, 6);
    m_rowLayout->setSpacing(2);
    m_rowLayout->addStretch(1);
    m_scrollArea->setWidget(content);
    // setWidget turns the filling on, which would paint the window's grey over the box; only
    // now can it be turned off for good.
    content->setAutoFillBackground(false);
    layout->addWidget(m_box);
}

void PinList::paintEvent(QPaintEvent*) {
    // A rounded box on the control background with a faint grey outline, in the colours of the
    // palette of the moment.
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(QColor(128, 128, 128, 64), 1));
    painter.setBrush(palette().color(QPalette::Base));
    painter.drawRoundedRect(QRectF(m_box->geometry()).adjusted(0.5, 0.5, -0.5, -0.5), 6, 6);
}

bool PinList::eventFilter(QObject* watched, QEvent* event) {
    // A row reached with the keyboard (also backwards, from below the list) is scrolled into view.
    if (event->type() == QEvent::FocusIn) {
        if (auto* row = qobject_cast<PinRow*>(watched))
            m_scrollArea->ensureWidgetVisible(row);
    }
    return false;
}

void PinList::setRows(const QList<PinRow*>& rows) {
    for (PinRow* row : std::as_const(m_rows))
        delete row;
    m_rows = rows;
    // Rows go above the closing stretch, which keeps them at the top of the box.
    for (qsizetype i = 0; i < m_rows.size(); ++i) {
        m_rowLayout->insertWidget(int(i), m_rows[i]);
        m_rows[i]->installEventFilter(this);
    }
}
