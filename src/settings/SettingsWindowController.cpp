#include "settings/SettingsWindowController.h"

#include <QWidget>

void SettingsWindowController::show() {
    static QWidget* window = nullptr;
    if (!window) {
        window = new QWidget();
        window->setWindowTitle(QStringLiteral("Quillmar Settings"));
        window->setFixedSize(500, 460);
    }
    window->show();
    window->raise();
    window->activateWindow();
}
