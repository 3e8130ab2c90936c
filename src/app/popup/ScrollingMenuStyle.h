#pragma once

#include <QProxyStyle>

// The application's style, except that menus scroll when taller than the screen (arrows, the
// wheel, Home and End) instead of running past its edge. Qt on Wayland does not know the screen
// while it lays a menu out, so a menu of a style that does not scroll becomes one column taller
// than the screen there, its end out of reach.
class ScrollingMenuStyle : public QProxyStyle {
    Q_OBJECT
public:
    int styleHint(StyleHint hint, const QStyleOption* option, const QWidget* widget,
                  QStyleHintReturn* returnData) const override;
};
