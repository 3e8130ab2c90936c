// The floor of the hot key and idle figures: a bare Qt program with a tray icon and a menu of the
// same items as Quillmar's full menu, read from the file that "bench_quillmar menu" wrote, which
// the same key grab (Quillmar's own hot key code) pops up below the icon. The colour emoji font
// is chosen on the first press, as Quillmar chooses it when its menu first opens. Prints "ready"
// once the key is grabbed.
//
//   bench_menu_floor MENU_FILE
#include "app/hotkey/HotKeyManager.h"
#include "config/ShortcutConfig.h"

#include <QApplication>
#include <QFile>
#include <QFontInfo>
#include <QIcon>
#include <QKeySequence>
#include <QMenu>
#include <QPixmap>
#include <QSystemTrayIcon>
#include <QTimer>

#include <cstdio>

namespace {

// One line per item: depth, kind ("item", "separator", "submenu"), "on" or "off", the key
// sequence, the text; separated by tabs. A submenu's items follow it one level deeper.
bool readMenu(const QString& path, QMenu* root) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return false;
    QList<QMenu*> levels{root};
    for (const QByteArray& line : file.readAll().split('\n')) {
        const QList<QByteArray> fields = line.split('\t');
        if (fields.size() != 5)
            continue;
        const int depth = fields[0].toInt();
        if (depth >= levels.size())
            return false;
        levels.resize(depth + 1);
        QMenu* menu = levels.constLast();
        const QString text = QString::fromUtf8(fields[4]);
        QAction* action = nullptr;
        if (fields[1] == "separator") {
            action = menu->addSeparator();
        } else if (fields[1] == "submenu") {
            QMenu* submenu = menu->addMenu(text);
            action = submenu->menuAction();
            levels.append(submenu);
        } else {
            action = menu->addAction(text);
        }
        action->setEnabled(fields[2] == "on");
        if (!fields[3].isEmpty())
            action->setShortcut(QKeySequence(QString::fromUtf8(fields[3])));
    }
    return true;
}

} // namespace

int main(int argc, char* argv[]) {
    QApplication app(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false);
    if (argc < 2) {
        std::fputs("usage: bench_menu_floor MENU_FILE\n", stderr);
        return 2;
    }
    QMenu menu;
    if (!readMenu(QString::fromLocal8Bit(argv[1]), &menu)) {
        std::fputs("cannot read the menu\n", stderr);
        return 1;
    }
    QPixmap pixmap(22, 22);
    pixmap.fill(Qt::darkBlue);
    QSystemTrayIcon icon{QIcon(pixmap)};
    icon.setContextMenu(&menu);
    icon.show();

    bool fontChosen = false;
    HotKeyManager hotKey;
    hotKey.update(ShortcutConfig::defaultShortcut(), [&] {
        if (!fontChosen) {
            fontChosen = true;
            QFont font = QApplication::font();
            font.setFamilies({QFontInfo(font).family(), QStringLiteral("Noto Color Emoji")});
            QApplication::setFont(font);
            menu.setFont(font);
        }
        menu.popup(icon.geometry().bottomLeft() + QPoint(0, 1));
    });
    QTimer::singleShot(0, [] {
        std::puts("ready");
        std::fflush(stdout);
    });
    return QApplication::exec();
}
