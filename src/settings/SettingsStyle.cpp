#include "settings/SettingsStyle.h"

#include "app/desktop/ColorSchemeFollower.h"

#include <QGuiApplication>
#include <QPainter>
#include <QPainterPath>
#include <QPixmap>
#include <QWidget>

#include <algorithm>
#include <cmath>
#include <functional>

namespace SettingsStyle {

QFont headlineFont(const QFont& base) {
    QFont font = base;
    font.setBold(true);
    return font;
}

QFont captionFont(const QFont& base) {
    QFont font = base;
    font.setPointSizeF(base.pointSizeF() * 0.85);
    return font;
}

QColor accentColor(const QPalette& palette) {
    return palette.color(QPalette::Highlight);
}

QColor secondaryColor(const QPalette& palette) {
    return palette.color(secondaryRole);
}

QColor errorColor(const QPalette& palette) {
    // The reds of GNOME's light and dark styles, at 4.5:1 or more on their windows.
    return ColorSchemeFollower::isDark(palette) ? QColor(0xFF, 0x7B, 0x63)
                                                : QColor(0xC0, 0x1C, 0x28);
}

namespace {

double relativeLuminance(const QColor& color) {
    const auto channel = [](double value) {
        return value <= 0.04045 ? value / 12.92 : std::pow((value + 0.055) / 1.055, 2.4);
    };
    return 0.2126 * channel(color.redF()) + 0.7152 * channel(color.greenF()) +
           0.0722 * channel(color.blueF());
}

} // namespace

double contrastRatio(const QColor& first, const QColor& second) {
    const double a = relativeLuminance(first);
    const double b = relativeLuminance(second);
    return (std::max(a, b) + 0.05) / (std::min(a, b) + 0.05);
}

ProminentColors prominentColors(const QPalette& palette) {
    constexpr double wanted = 4.5;
    QColor fill = accentColor(palette);
    // White or black text, whichever stands out more from the accent; the accent then moves
    // away from the text until the two are far enough apart.
    const QColor white(Qt::white);
    const QColor black(Qt::black);
    const bool lightText = contrastRatio(white, fill) >= contrastRatio(black, fill);
    const QColor text = lightText ? white : black;
    for (int step = 0; step < 40 && contrastRatio(text, fill) < wanted; ++step)
        fill = lightText ? fill.darker(105) : fill.lighter(105);
    // Pressed moves further the same way, so it stays readable too.
    const QColor pressed = lightText ? fill.darker(115) : fill.lighter(115);
    return {fill, text, pressed};
}

void setTextColor(QWidget* widget, const QColor& color) {
    QPalette palette = widget->palette();
    palette.setColor(QPalette::WindowText, color);
    palette.setColor(QPalette::ButtonText, color);
    palette.setColor(QPalette::Text, color);
    widget->setPalette(palette);
}

namespace {

// Renders a symbol drawn on a 32 x 32 grid at the sizes tab bars ask for.
QIcon drawnIcon(const std::function<void(QPainter&, const QColor&)>& draw) {
    const QColor ink = QGuiApplication::palette().color(QPalette::WindowText);
    QIcon icon;
    for (int size : {16, 22, 32, 48}) {
        QPixmap pixmap(size, size);
        pixmap.fill(Qt::transparent);
        QPainter painter(&pixmap);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.scale(size / 32.0, size / 32.0);
        draw(painter, ink);
        painter.end();
        icon.addPixmap(pixmap);
    }
    return icon;
}

void drawGear(QPainter& painter, const QColor& ink) {
    painter.setPen(Qt::NoPen);
    painter.setBrush(ink);
    painter.translate(16, 16);
    for (int tooth = 0; tooth < 8; ++tooth) {
        painter.save();
        painter.rotate(tooth * 45.0);
        painter.drawRoundedRect(QRectF(-3, -15, 6, 8), 1.5, 1.5);
        painter.restore();
    }
    QPainterPath wheel;
    wheel.addEllipse(QPointF(0, 0), 11, 11);
    QPainterPath hole;
    hole.addEllipse(QPointF(0, 0), 4.5, 4.5);
    painter.drawPath(wheel.subtracted(hole));
}

void drawKeyboard(QPainter& painter, const QColor& ink) {
    painter.setPen(QPen(ink, 2));
    painter.setBrush(Qt::NoBrush);
    painter.drawRoundedRect(QRectF(2, 7, 28, 18), 3, 3);
    painter.setPen(Qt::NoPen);
    painter.setBrush(ink);
    for (int row = 0; row < 2; ++row) {
        for (int column = 0; column < 6; ++column)
            painter.drawRect(QRectF(5.5 + column * 3.8, 10.5 + row * 4, 2.4, 2.4));
    }
    painter.drawRect(QRectF(9, 19.5, 14, 2.4));
}

} // namespace

QIcon generalIcon() {
    return QIcon::fromTheme(QStringLiteral("preferences-system"), drawnIcon(drawGear));
}

QIcon shortcutsIcon() {
    return QIcon::fromTheme(QStringLiteral("input-keyboard"), drawnIcon(drawKeyboard));
}

void paintCheckBox(QPainter& painter, const QRectF& box, bool ticked, const QPalette& palette) {
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    if (ticked) {
        const QColor accent = accentColor(palette);
        painter.setPen(Qt::NoPen);
        painter.setBrush(accent);
        painter.drawRoundedRect(box, 3, 3);
        QPainterPath check;
        check.moveTo(box.left() + box.width() * 0.24, box.top() + box.height() * 0.52);
        check.lineTo(box.left() + box.width() * 0.43, box.top() + box.height() * 0.71);
        check.lineTo(box.left() + box.width() * 0.77, box.top() + box.height() * 0.31);
        painter.setPen(QPen(palette.color(QPalette::HighlightedText), box.width() * 0.14,
                            Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
        painter.setBrush(Qt::NoBrush);
        painter.drawPath(check);
    } else {
        painter.setPen(QPen(secondaryColor(palette), 1.2));
        painter.setBrush(Qt::NoBrush);
        painter.drawRoundedRect(box.adjusted(0.6, 0.6, -0.6, -0.6), 3, 3);
    }
    painter.restore();
}

} // namespace SettingsStyle
