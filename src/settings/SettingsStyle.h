#pragma once

#include <QColor>
#include <QFont>
#include <QIcon>
#include <QPalette>

class QPainter;
class QRectF;
class QWidget;

// The few looks that the settings window's views share: text styles, the accent and secondary
// colours taken from the palette, and the symbols drawn when the icon theme has none.
namespace SettingsStyle {

QFont headlineFont(const QFont& base);
QFont captionFont(const QFont& base);

// The palette's accent; Qt 6.4 has no accent role of its own, so the selection colour is it.
QColor accentColor(const QPalette& palette);
// For text that is less important than its neighbours: the role, which labels take as their
// foreground role so that they follow a new palette, and its colour.
constexpr QPalette::ColorRole secondaryRole = QPalette::PlaceholderText;
QColor secondaryColor(const QPalette& palette);
// The red of error texts, readable on the window's background in light and dark palettes.
QColor errorColor(const QPalette& palette);

// The WCAG contrast ratio of two opaque colours: 1 (none) to 21 (black on white).
double contrastRatio(const QColor& first, const QColor& second);

// The filled look of the one prominent button: the accent, darkened or lightened as far as
// needed for its text to reach the contrast that body text needs (4.5:1).
struct ProminentColors {
    QColor fill;
    QColor text;
    QColor pressed;
};
ProminentColors prominentColors(const QPalette& palette);
// Sets the colour in which a label or button draws its text.
void setTextColor(QWidget* widget, const QColor& color);

// The tab symbols: the theme's "preferences-system" and "input-keyboard", or drawn ones.
QIcon generalIcon();
QIcon shortcutsIcon();

// A ticked box filled with the accent colour, or an empty box in the secondary colour.
void paintCheckBox(QPainter& painter, const QRectF& box, bool ticked, const QPalette& palette);

} // namespace SettingsStyle
