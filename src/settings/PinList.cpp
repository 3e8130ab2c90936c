#include "settings/PinList.h"

#include "settings/PinRow.h"
#include "settings/SettingsStyle.h"

#include <QEvent>
#include <QLabel>
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

    m_scrollArea = new QScrollArea(this);
    m_scrollArea->setObjectName(QStringLiteral("pinListScrollArea"));
    m_scrollArea->setWidgetResizable(true);
    // The scroll bar shows whenever there is more than fits.
    m_scrollArea->setVerticalScrollBarPolicy(Qt::ScrollBarAsNeeded);
    m_scrollArea->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_scrollArea->setMaximumHeight(maximumListHeight);
    // The rows take the keyboard focus, not the box around them.
    m_scrollArea->setFocusPolicy(Qt::NoFocus);
    // As tall as the tab leaves room for, up to the maximum.
    m_scrollArea->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
    m_scrollArea->viewport()->setAutoFillBackground(false);
    updateBox();

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
    layout->addWidget(m_scrollArea);
}

void PinList::changeEvent(QEvent* event) {
    if (event->type() == QEvent::PaletteChange)
        updateBox();
    QWidget::changeEvent(event);
}

void PinList::updateBox() {
    // A rounded box on the control background with a faint grey outline. The colour is written
    // out: a style sheet reads palette(base) once, and the box must follow a new palette.
    m_scrollArea->setStyleSheet(
        QStringLiteral("QScrollArea#pinListScrollArea { background: %1;"
                       " border: 1px solid rgba(128, 128, 128, 64); border-radius: 6px; }")
            .arg(palette().color(QPalette::Base).name()));
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
