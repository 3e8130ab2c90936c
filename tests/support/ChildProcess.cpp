#include "ChildProcess.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QSet>
#include <QThread>

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

std::vector<char*> pointersTo(const QStringList& texts, std::vector<QByteArray>& storage) {
    for (const QString& text : texts)
        storage.push_back(text.toLocal8Bit());
    std::vector<char*> pointers;
    for (QByteArray& text : storage)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

// Forks and executes command with stdout going to outFd and stderr to errFd, with environment
// (none: this process's). Everything the child needs is prepared before the fork, because after
// it only async-signal-safe calls are allowed.
pid_t spawn(const QStringList& command, int outFd, int errFd, const QStringList& environment = {}) {
    std::vector<QByteArray> storage;
    std::vector<char*> argv = pointersTo(command, storage);
    std::vector<QByteArray> environmentStorage;
    std::vector<char*> envp = pointersTo(environment, environmentStorage);
    char** const childEnvironment = environment.isEmpty() ? environ : envp.data();
    const pid_t parent = getpid();

    const pid_t pid = fork();
    if (pid != 0)
        return pid;
    // The child: dies with the test process, and leads its own process group so that stop()
    // reaches whatever it starts in turn.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent)
        _exit(127);
    setpgid(0, 0);
    const int devNull = open("/dev/null", O_RDONLY);
    dup2(devNull, STDIN_FILENO);
    dup2(outFd, STDOUT_FILENO);
    dup2(errFd, STDERR_FILENO);
    execvpe(argv[0], argv.data(), childEnvironment);
    _exit(127);
}

int openLog(const QString& path) {
    if (path.isEmpty())
        return open("/dev/null", O_WRONLY | O_CLOEXEC);
    return open(path.toLocal8Bit().constData(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
}

void drain(int fd, QByteArray& into) {
    char chunk[4096];
    for (;;) {
        const ssize_t n = read(fd, chunk, sizeof chunk);
        if (n <= 0)
            return;
        into.append(chunk, n);
    }
}

// The programs started through start() that have not been reaped yet.
QSet<pid_t>& running() {
    static QSet<pid_t> pids;
    return pids;
}

} // namespace

bool ChildProcess::isStartedProgram(pid_t pid) {
    return running().contains(pid);
}

ChildProcess::~ChildProcess() {
    stop();
}

bool ChildProcess::start(const QStringList& command, const QString& logFile, bool captureOutput) {
    stop();
    m_exitCode = -1;
    const int logFd = openLog(logFile);
    if (logFd < 0)
        return false;
    int outFd = logFd;
    int pipeFds[2] = {-1, -1};
    if (captureOutput) {
        if (pipe2(pipeFds, O_CLOEXEC) != 0) {
            close(logFd);
            return false;
        }
        outFd = pipeFds[1];
    }
    m_pid = spawn(command, outFd, logFd, m_environment);
    if (m_pid > 0)
        running().insert(m_pid);
    close(logFd);
    if (captureOutput) {
        close(pipeFds[1]);
        m_outputFd = pipeFds[0];
        fcntl(m_outputFd, F_SETFL, O_NONBLOCK);
    }
    return m_pid > 0;
}

std::optional<QByteArray> ChildProcess::readLine(std::chrono::milliseconds timeout) {
    QElapsedTimer timer;
    timer.start();
    while (m_outputFd >= 0) {
        const qsizetype end = m_buffer.indexOf('\n');
        if (end >= 0) {
            const QByteArray line = m_buffer.left(end);
            m_buffer.remove(0, end + 1);
            return line;
        }
        const qint64 left = timeout.count() - timer.elapsed();
        if (left <= 0)
            return std::nullopt;
        pollfd fd{m_outputFd, POLLIN, 0};
        if (poll(&fd, 1, int(left)) <= 0)
            continue;
        const qsizetype before = m_buffer.size();
        drain(m_outputFd, m_buffer);
        if (m_buffer.size() == before && (fd.revents & POLLHUP))
            return std::nullopt;
    }
    return std::nullopt;
}

bool ChildProcess::reap(bool wait) {
    if (m_pid <= 0)
        return true;
    int status = 0;
    const pid_t done = waitpid(m_pid, &status, wait ? 0 : WNOHANG);
    if (done == m_pid || (done < 0 && errno == ECHILD)) {
        m_exitCode = done == m_pid && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        running().remove(m_pid);
        m_pid = -1;
        return true;
    }
    return false;
}

bool ChildProcess::isRunning() {
    return !reap(false);
}

void ChildProcess::stop() {
    if (m_pid > 0) {
        kill(-m_pid, SIGTERM);
        kill(m_pid, SIGTERM);
        QElapsedTimer timer;
        timer.start();
        while (!reap(false) && timer.elapsed() < 3000)
            QThread::msleep(10);
        if (m_pid > 0) {
            kill(-m_pid, SIGKILL);
            kill(m_pid, SIGKILL);
            reap(true);
        }
    }
    if (m_outputFd >= 0) {
        close(m_outputFd);
        m_outputFd = -1;
    }
    m_buffer.clear();
}

ChildProcess::Result ChildProcess::run(const QStringList& command,
                                       std::chrono::milliseconds timeout, bool withErrors) {
    Result result;
    int pipeFds[2];
    if (pipe2(pipeFds, O_CLOEXEC) != 0)
        return result;
    const int errFd = withErrors ? pipeFds[1] : open("/dev/null", O_WRONLY | O_CLOEXEC);
    const pid_t pid = spawn(command, pipeFds[1], errFd);
    close(pipeFds[1]);
    if (!withErrors)
        close(errFd);
    if (pid <= 0) {
        close(pipeFds[0]);
        return result;
    }
    fcntl(pipeFds[0], F_SETFL, O_NONBLOCK);
    QElapsedTimer timer;
    timer.start();
    int status = 0;
    bool ended = false;
    while (!ended) {
        drain(pipeFds[0], result.output);
        ended = waitpid(pid, &status, WNOHANG) == pid;
        if (ended)
            break;
        if (timer.elapsed() > timeout.count()) {
            kill(-pid, SIGKILL);
            kill(pid, SIGKILL);
            waitpid(pid, &status, 0);
            status = -1;
            break;
        }
        if (QCoreApplication::instance())
            QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
        else
            QThread::msleep(5);
    }
    drain(pipeFds[0], result.output);
    close(pipeFds[0]);
    if (ended && WIFEXITED(status))
        result.exitCode = WEXITSTATUS(status);
    return result;
}
