// The floor of the start-up and memory figures: a Qt program that shows a tray icon with a menu
// of 20 items and does nothing else.
#include <QApplication>
#include <QIcon>
#include <QMenu>
#include <QPixmap>
#include <QSystemTrayIcon>

int main(int argc, char* argv[]) {
    QApplication app(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false);
    QMenu menu;
    for (int i = 1; i <= 20; ++i)
        menu.addAction(QStringLiteral("Item %1").arg(i));
    QPixmap pixmap(22, 22);
    pixmap.fill(Qt::darkBlue);
    QSystemTrayIcon icon{QIcon(pixmap)};
    icon.setContextMenu(&menu);
    icon.show();
    return QApplication::exec();
}
