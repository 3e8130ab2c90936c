#include "X11Input.h"

#include "ChildProcess.h"

#include <QStringList>

namespace {

QString xdotool(const QStringList& arguments) {
    return QString::fromUtf8(
        ChildProcess::run(QStringList{QStringLiteral("xdotool")} + arguments).output);
}

QString number(int value) {
    return QString::number(value);
}

} // namespace

namespace X11Input {

void moveTo(QPoint at) {
    xdotool(
        {QStringLiteral("mousemove"), QStringLiteral("--sync"), number(at.x()), number(at.y())});
}

void click(QPoint at, int button) {
    moveTo(at);
    xdotool({QStringLiteral("click"), number(button)});
}

void doubleClick(QPoint at) {
    moveTo(at);
    xdotool({QStringLiteral("click"), QStringLiteral("--repeat"), QStringLiteral("2"),
             QStringLiteral("--delay"), QStringLiteral("80"), QStringLiteral("1")});
}

void scroll(QPoint at, bool up, int steps) {
    moveTo(at);
    xdotool({QStringLiteral("click"), QStringLiteral("--repeat"), number(steps),
             up ? QStringLiteral("4") : QStringLiteral("5")});
}

void pressKeys(const QString& keys) {
    xdotool({QStringLiteral("key"), keys});
}

QPoint pointer() {
    QPoint at;
    for (const QString& line :
         xdotool({QStringLiteral("getmouselocation"), QStringLiteral("--shell")}).split(u'\n')) {
        if (line.startsWith(QStringLiteral("X=")))
            at.setX(line.mid(2).toInt());
        else if (line.startsWith(QStringLiteral("Y=")))
            at.setY(line.mid(2).toInt());
    }
    return at;
}

} // namespace X11Input
