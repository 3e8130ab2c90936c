#include "app/AppDelegate.h"
#include "app/SingleInstance.h"

#include <QApplication>
#include <QPointer>
#include <QTimer>

int main(int argc, char* argv[]) {
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Quillmar"));
    QApplication::setOrganizationName(QStringLiteral("Quillmar"));
    QApplication::setDesktopFileName(QStringLiteral("app.quillmar.Quillmar"));
    // A tray utility: closing its last window (settings, an alert) does not end it.
    QApplication::setQuitOnLastWindowClosed(false);

    SingleInstance instance;
    if (!instance.claim()) {
        // Quillmar already runs in this session: open its menu rather than add a second icon.
        instance.showMenuInRunningInstance();
        return 0;
    }

    AppDelegate delegate;
    instance.setAction([target = QPointer<AppDelegate>(&delegate)] {
        if (target && target->statusItem())
            target->statusItem()->performClick();
    });
    QTimer::singleShot(0, &delegate, &AppDelegate::applicationDidFinishLaunching);
    return QApplication::exec();
}
