#include "SwayInput.h"

#include <QStringList>

#include <sys/stat.h>

namespace {

// wtype's name of a modifier that xdotool names otherwise.
QString wtypeModifier(const QString& modifier) {
    return modifier == QStringLiteral("super") ? QStringLiteral("logo") : modifier;
}

} // namespace

SwayInput::~SwayInput() {
    stop();
}

bool SwayInput::start(QSize screen, const QString& folder) {
    const QString pipe = folder + QStringLiteral("/pointer.pipe");
    QFile::remove(pipe);
    if (mkfifo(QFile::encodeName(pipe).constData(), 0600) != 0)
        return false;
    if (!m_pointer.start({QStringLiteral(QUILLMAR_TEST_POINTER), QString::number(screen.width()),
                          QString::number(screen.height()), pipe},
                         folder + QStringLiteral("/pointer.log"), true))
        return false;
    const auto ready = m_pointer.readLine(std::chrono::seconds(20));
    if (!ready || *ready != "ready")
        return false;
    m_pointerCommands.setFileName(pipe);
    if (!m_pointerCommands.open(QIODevice::WriteOnly | QIODevice::Unbuffered))
        return false;
    // A keyboard that stays, as a real one does: wtype's own comes and goes with each call, and
    // a seat whose keyboards all went gives no program the keyboard.
    return m_keyboard.start(
        {QStringLiteral("wtype"), QStringLiteral("-s"), QStringLiteral("86400000")},
        folder + QStringLiteral("/keyboard.log"));
}

void SwayInput::stop() {
    m_pointerCommands.close();
    m_pointer.stop();
    m_keyboard.stop();
}

bool SwayInput::pointerCommand(const QString& command) {
    if (m_pointerCommands.write(command.toUtf8() + '\n') <= 0)
        return false;
    const auto answer = m_pointer.readLine(std::chrono::seconds(10));
    return answer && *answer == "ok";
}

void SwayInput::moveTo(QPoint at) {
    // A few steps, as a hand moves: the window under the pointer gets an enter and then
    // motions (menus react to motion, and Qt 6.4 drops the first events on a window that has
    // just taken the pointer).
    for (const int dx : {-4, -2, 0})
        pointerCommand(QStringLiteral("move %1 %2").arg(at.x() + dx).arg(at.y()));
}

void SwayInput::click(QPoint at, int button) {
    moveTo(at);
    pointerCommand(QStringLiteral("click %1").arg(linuxButton(button)));
}

void SwayInput::doubleClick(QPoint at) {
    click(at);
    pointerCommand(QStringLiteral("click %1").arg(linuxButton(1)));
}

void SwayInput::scroll(QPoint at, bool up, int steps) {
    moveTo(at);
    pointerCommand(QStringLiteral("scroll %1").arg(up ? -steps : steps));
}

void SwayInput::pressKeys(const QString& keys) {
    // wtype holds the modifiers down (-M), types the key (-k) and lets them go (-m).
    QStringList modifiers = keys.split(u'+');
    const QString key = modifiers.takeLast();
    QStringList arguments;
    for (const QString& modifier : modifiers)
        arguments << QStringLiteral("-M") << wtypeModifier(modifier);
    arguments << QStringLiteral("-k") << key;
    for (auto it = modifiers.crbegin(); it != modifiers.crend(); ++it)
        arguments << QStringLiteral("-m") << wtypeModifier(*it);
    ChildProcess::run(QStringList{QStringLiteral("wtype")} + arguments);
}
