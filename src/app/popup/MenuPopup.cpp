#include "app/popup/MenuPopup.h"

#include "app/popup/PlainMenuPopup.h"
#include "app/popup/WaylandMenuPopup.h"

#include <QGuiApplication>

std::unique_ptr<MenuPopup> MenuPopup::forThisDesktop() {
    if (QGuiApplication::platformName().startsWith(QLatin1String("wayland")))
        return std::make_unique<WaylandMenuPopup>();
    return std::make_unique<PlainMenuPopup>();
}
