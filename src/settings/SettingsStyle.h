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
// For text that is less important than its neighbours.
QColor secondaryColor(const QPalette& palette);
// Sets the colour in which a label or button draws its text.
void setTextColor(QWidget* widget, const QColor& color);

// The tab symbols: the theme's "preferences-system" and "input-keyboard", or drawn ones.
QIcon generalIcon();
QIcon shortcutsIcon();

// A ticked box filled with the accent colour, or an empty box in the secondary colour.
void paintCheckBox(QPainter& painter, const QRectF& box, bool ticked, const QPalette& palette);

} // namespace SettingsStyle
