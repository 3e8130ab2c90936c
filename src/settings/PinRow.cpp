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
    , m_toggle(std::move(toggle)) {
    // Tab reaches it and Space toggles it; a click does not pull the keyboard away from the token
    // field, as a plain list line would not.
    setFocusPolicy(Qt::TabFocus);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    // "&" is shown as it is, never made a keyboard mnemonic.
    setText(QString(m_label).replace(u'&', QStringLiteral("&&")));
    setToolTip(m_label);
    // Checkable, so that screen readers hear a check box and whether it is ticked.
    setCheckable(true);
    setChecked(pinned);
    if (m_badge)
        setAccessibleDescription(*m_badge);
    connect(this, &QAbstractButton::clicked, this, [this] { m_toggle(); });
}

void PinRow::setPinned(bool pinned) {
    setChecked(pinned);
}

void PinRow::nextCheckState() {
    // A click only runs toggle; the tick follows the model through setPinned.
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
    if (hasFocus()) {
        // The keyboard focus: the row tinted with the accent, as a list marks its current line.
        QColor tint = SettingsStyle::accentColor(palette());
        tint.setAlphaF(0.2f);
        painter.save();
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setPen(Qt::NoPen);
        painter.setBrush(tint);
        painter.drawRoundedRect(QRectF(rect()), 3, 3);
        painter.restore();
    }
    SettingsStyle::paintCheckBox(painter, box, isChecked(), palette());

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
    // Lists are drawn on the control background, whose text colour this is.
    painter.setPen(palette().color(QPalette::Text));
    const QRect labelArea(left, area.top(), std::max(0, right - left), area.height());
    painter.drawText(labelArea, Qt::AlignLeft | Qt::AlignVCenter,
                     metrics.elidedText(m_label, Qt::ElideRight, labelArea.width()));
}
