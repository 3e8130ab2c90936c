#include "app/popup/ScrollingMenuStyle.h"

int ScrollingMenuStyle::styleHint(StyleHint hint, const QStyleOption* option, const QWidget* widget,
                                  QStyleHintReturn* returnData) const {
    if (hint == SH_Menu_Scrollable)
        return 1;
    return QProxyStyle::styleHint(hint, option, widget, returnData);
}
