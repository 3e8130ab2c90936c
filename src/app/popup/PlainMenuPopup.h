#pragma once

#include "app/popup/MenuPopup.h"

// Qt's own popup menu: on X11 (and macOS, Windows) it opens where it is asked to, grabs the
// pointer and the keyboard, and closes on a click anywhere else.
class PlainMenuPopup : public MenuPopup {
    Q_OBJECT
public:
    using MenuPopup::MenuPopup;

    void show(QMenu* menu, QPoint at) override;
};
