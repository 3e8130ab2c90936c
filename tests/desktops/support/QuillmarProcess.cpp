#include "QuillmarProcess.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcessEnvironment>
#include <QTest>

namespace {

// Writes each address it is given on a line of its own.
const char browserScript[] = "#!/bin/sh\nprintf '%s\\n' \"$@\" >> '%1'\n";

} // namespace

QuillmarProcess::QuillmarProcess(QString program, QString folder)
    : m_program(std::move(program))
    , m_folder(std::move(folder)) {
    QDir().mkpath(m_folder + QStringLiteral("/bin"));
    QFile browser(m_folder + QStringLiteral("/bin/browser"));
    if (browser.open(QIODevice::WriteOnly)) {
        browser.write(QString::fromLatin1(browserScript)
                          .arg(m_folder + QStringLiteral("/opened-urls.txt"))
                          .toUtf8());
        browser.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }
    // Qt hands addresses to xdg-open when there is one, which would pick the desktop's own
    // browser; the stand-in takes that name too.
    QFile::link(browser.fileName(), m_folder + QStringLiteral("/bin/xdg-open"));
}

QuillmarProcess::~QuillmarProcess() {
    m_process.stop();
}

QStringList QuillmarProcess::environment() const {
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("BROWSER"), m_folder + QStringLiteral("/bin/browser"));
    // Its own menu is read as a screen reader reads it.
    environment.insert(QStringLiteral("QT_LINUX_ACCESSIBILITY_ALWAYS_ON"), QStringLiteral("1"));
    environment.insert(QStringLiteral("PATH"), m_folder + QStringLiteral("/bin:") +
                                                   environment.value(QStringLiteral("PATH")));
    return environment.toStringList();
}

QStringList QuillmarProcess::command(const Addresses& addresses,
                                     const QStringList& extraArguments) const {
    return QStringList{m_program,
                       QStringLiteral("--api-base"),
                       addresses.apiBase,
                       QStringLiteral("--web-app"),
                       addresses.webApp,
                       QStringLiteral("--update-manifest"),
                       addresses.updateManifest} +
           extraArguments;
}

bool QuillmarProcess::start(const Addresses& addresses, const QStringList& extraArguments) {
    m_process.setProcessEnvironment(environment());
    return m_process.start(command(addresses, extraArguments),
                           m_folder + QStringLiteral("/quillmar.log"));
}

int QuillmarProcess::startSecondInstance(const Addresses& addresses) {
    ChildProcess second;
    second.setProcessEnvironment(environment());
    if (!second.start(command(addresses, {}), m_folder + QStringLiteral("/quillmar.log")))
        return -1;
    QElapsedTimer timer;
    timer.start();
    while (second.isRunning() && timer.elapsed() < 20000)
        QTest::qWait(50);
    return second.exitCode();
}

bool QuillmarProcess::waitForExit(std::chrono::milliseconds timeout) {
    QElapsedTimer timer;
    timer.start();
    while (m_process.isRunning()) {
        if (timer.elapsed() > timeout.count())
            return false;
        QTest::qWait(50);
    }
    return true;
}

QString QuillmarProcess::output() const {
    QFile log(m_folder + QStringLiteral("/quillmar.log"));
    return log.open(QIODevice::ReadOnly) ? QString::fromUtf8(log.readAll()) : QString();
}

QStringList QuillmarProcess::openedUrls() const {
    QFile record(m_folder + QStringLiteral("/opened-urls.txt"));
    if (!record.open(QIODevice::ReadOnly))
        return {};
    return QString::fromUtf8(record.readAll()).split(u'\n', Qt::SkipEmptyParts);
}
