#include "app/popup/PlainMenuPopup.h"

#include <QMenu>

void PlainMenuPopup::show(QMenu* menu, QPoint at) {
    menu->popup(at);
}
