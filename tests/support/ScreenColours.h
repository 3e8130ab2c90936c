#pragma once

#include <QColor>
#include <QHash>
#include <QImage>
#include <QRect>

#include <algorithm>
#include <cmath>

// Measures on pictures of widgets, as a person would judge them: the WCAG 2 contrast of two
// colours, and the colour most of an area has (its background).
namespace ScreenColours {

inline double luminance(const QColor& color) {
    const auto channel = [](double value) {
        return value <= 0.04045 ? value / 12.92 : std::pow((value + 0.055) / 1.055, 2.4);
    };
    return 0.2126 * channel(color.redF()) + 0.7152 * channel(color.greenF()) +
           0.0722 * channel(color.blueF());
}

// 1 (none) to 21 (black on white); body text needs 4.5.
inline double contrast(const QColor& a, const QColor& b) {
    const double first = luminance(a);
    const double second = luminance(b);
    return (std::max(first, second) + 0.05) / (std::min(first, second) + 0.05);
}

inline QColor commonColour(const QImage& image, const QRect& area) {
    QHash<QRgb, int> counts;
    for (int y = area.top(); y <= area.bottom(); ++y)
        for (int x = area.left(); x <= area.right(); ++x)
            ++counts[image.pixel(x, y)];
    QRgb best = 0;
    int most = -1;
    for (auto it = counts.cbegin(); it != counts.cend(); ++it) {
        if (it.value() > most) {
            most = it.value();
            best = it.key();
        }
    }
    return QColor::fromRgb(best);
}

inline QColor commonColour(const QImage& image) {
    return commonColour(image, image.rect());
}

} // namespace ScreenColours
