#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <chrono>
#include <optional>
#include <sys/types.h>

// A program started by a test: X server, tray host, bus daemon, an outside X client. It is
// stopped when this object goes, and the kernel kills it should the test process die first, so
// nothing outlives a failed or crashed test. Works before a QCoreApplication exists.
class ChildProcess {
public:
    struct Result {
        int exitCode = -1; // -1: did not end in time, or was killed by a signal
        QByteArray output; // standard output (and error, when asked for)
    };

    ChildProcess() = default;
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    // Starts command (the program, then its arguments; looked up on PATH). Standard error and,
    // unless captureOutput, standard output are appended to logFile; with captureOutput the
    // standard output is kept for readLine.
    bool start(const QStringList& command, const QString& logFile, bool captureOutput = false);
    // The environment ("NAME=value" entries) of the programs started from now on, in place of
    // this process's own; empty: this process's own.
    void setProcessEnvironment(const QStringList& environment) { m_environment = environment; }
    // The next line of a captured standard output, without its line break; none when none
    // arrives in time or the program ended.
    std::optional<QByteArray> readLine(std::chrono::milliseconds timeout);
    bool isRunning();
    // The exit code once the program has ended by itself; -1 while it runs or when a signal
    // ended it.
    int exitCode() const { return m_exitCode; }
    // Asks the program to end, then kills it after a grace period; waits for it either way.
    void stop();
    pid_t pid() const { return m_pid; }
    // Whether pid is a program that a ChildProcess started and still looks after.
    static bool isStartedProgram(pid_t pid);

    // Runs command to its end and returns its exit code and standard output (withErrors: and
    // its standard error, as the program interleaves them); kills it when it takes longer than
    // timeout. While waiting, a running application's events are processed, so that the program
    // may talk to the test's own windows (a clipboard read, for example).
    static Result run(const QStringList& command,
                      std::chrono::milliseconds timeout = std::chrono::seconds(10),
                      bool withErrors = false);

private:
    bool reap(bool wait);

    QStringList m_environment;
    pid_t m_pid = -1;
    int m_exitCode = -1;
    int m_outputFd = -1;
    QByteArray m_buffer;
};
