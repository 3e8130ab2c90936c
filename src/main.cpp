#include "app/AppDelegate.h"

#include <QApplication>
#include <QTimer>

int main(int argc, char* argv[]) {
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Quillmar"));
    QApplication::setOrganizationName(QStringLiteral("Quillmar"));
    QApplication::setDesktopFileName(QStringLiteral("app.quillmar.Quillmar"));
    // A tray utility: closing its last window (settings, an alert) does not end it.
    QApplication::setQuitOnLastWindowClosed(false);

    AppDelegate delegate;
    QTimer::singleShot(0, &delegate, &AppDelegate::applicationDidFinishLaunching);
    return QApplication::exec();
}
