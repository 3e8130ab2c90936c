#include "settings/PinRow.h"

#include "settings/SettingsStyle.h"

#include <QFontMetrics>
#include <QPainter>

#include <algorithm>

PinRow::PinRow(QString label, std::optional<QString> badge, bool pinned,
               std::function<void()> toggle, QWidget* parent)
    : QAbstractButton(parent)
    , m_label(std::move(label))
    , m_badge(std::move(badge))
    , m_pinned(pinned)
    , m_toggle(std::move(toggle)) {
    // Like a plain list line: clicking it does not pull the keyboard away from the token field.
    setFocusPolicy(Qt::NoFocus);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    setText(m_label);
    setToolTip(m_label);
    connect(this, &QAbstractButton::clicked, this, [this] { m_toggle(); });
}

void PinRow::setPinned(bool pinned) {
    if (m_pinned == pinned)
        return;
    m_pinned = pinned;
    update();
}

QSize PinRow::sizeHint() const {
    const QFontMetrics metrics(font());
    int width = boxSize + spacing + metrics.horizontalAdvance(m_label);
    if (m_badge)
        width +=
            spacing + QFontMetrics(SettingsStyle::captionFont(font())).horizontalAdvance(*m_badge);
    const int height = std::max(metrics.height(), boxSize) + 2 * verticalPadding;
    return {width, height};
}

QSize PinRow::minimumSizeHint() const {
    return {boxSize + spacing, sizeHint().height()};
}

void PinRow::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    const QRect area = rect().adjusted(0, verticalPadding, 0, -verticalPadding);
    const QRectF box(area.left(), area.top() + (area.height() - boxSize) / 2.0, boxSize, boxSize);
    SettingsStyle::paintCheckBox(painter, box, m_pinned, palette());

    int right = area.right() + 1;
    if (m_badge) {
        const QFont caption = SettingsStyle::captionFont(font());
        const int badgeWidth = QFontMetrics(caption).horizontalAdvance(*m_badge);
        painter.setFont(caption);
        painter.setPen(SettingsStyle::secondaryColor(palette()));
        painter.drawText(QRect(right - badgeWidth, area.top(), badgeWidth, area.height()),
                         Qt::AlignRight | Qt::AlignVCenter, *m_badge);
        right -= badgeWidth + spacing;
    }

    const int left = boxSize + spacing;
    const QFontMetrics metrics(font());
    painter.setFont(font());
    painter.setPen(palette().color(QPalette::WindowText));
    const QRect labelArea(left, area.top(), std::max(0, right - left), area.height());
    painter.drawText(labelArea, Qt::AlignLeft | Qt::AlignVCenter,
                     metrics.elidedText(m_label, Qt::ElideRight, labelArea.width()));
}
