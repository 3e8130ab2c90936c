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

void X11Input::moveTo(QPoint at) {
    xdotool(
        {QStringLiteral("mousemove"), QStringLiteral("--sync"), number(at.x()), number(at.y())});
}

void X11Input::click(QPoint at, int button) {
    moveTo(at);
    xdotool({QStringLiteral("click"), number(button)});
}

void X11Input::doubleClick(QPoint at) {
    moveTo(at);
    xdotool({QStringLiteral("click"), QStringLiteral("--repeat"), QStringLiteral("2"),
             QStringLiteral("--delay"), QStringLiteral("80"), QStringLiteral("1")});
}

void X11Input::scroll(QPoint at, bool up, int steps) {
    moveTo(at);
    xdotool({QStringLiteral("click"), QStringLiteral("--repeat"), number(steps),
             up ? QStringLiteral("4") : QStringLiteral("5")});
}

void X11Input::pressKeys(const QString& keys) {
    xdotool({QStringLiteral("key"), keys});
}
