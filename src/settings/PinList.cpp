#include "settings/PinList.h"

#include "settings/PinRow.h"
#include "settings/SettingsStyle.h"

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
    // As tall as the tab leaves room for, up to the maximum.
    m_scrollArea->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
    // A rounded box on the base colour with a faint grey outline.
    m_scrollArea->setStyleSheet(
        QStringLiteral("QScrollArea#pinListScrollArea { background: palette(base);"
                       " border: 1px solid rgba(128, 128, 128, 64); border-radius: 6px; }"));
    m_scrollArea->viewport()->setAutoFillBackground(false);

    auto* content = new QWidget();
    content->setObjectName(QStringLiteral("pinListRows"));
    content->setAutoFillBackground(false);
    m_rowLayout = new QVBoxLayout(content);
    m_rowLayout->setContentsMargins(6, 6, 6, 6);
    m_rowLayout->setSpacing(2);
    m_rowLayout->addStretch(1);
    m_scrollArea->setWidget(content);
    layout->addWidget(m_scrollArea);
}

void PinList::setRows(const QList<PinRow*>& rows) {
    for (PinRow* row : std::as_const(m_rows))
        delete row;
    m_rows = rows;
    // Rows go above the closing stretch, which keeps them at the top of the box.
    for (qsizetype i = 0; i < m_rows.size(); ++i)
        m_rowLayout->insertWidget(int(i), m_rows[i]);
}
