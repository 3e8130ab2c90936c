#pragma once

#include "ChildProcess.h"

#include <QString>
#include <QStringList>

#include <chrono>

// The program under test, run inside a desktop session as its own process: the test-only
// build of Quillmar that takes the service's, the web application's and the update manifest's
// addresses on its command line. Its standard output and error go to one log that a test reads
// back; the web pages it opens reach a stand-in browser that only writes their addresses down.
class QuillmarProcess {
public:
    struct Addresses {
        QString apiBase;
        QString webApp;
        QString updateManifest;
    };

    // program: the test-only executable; folder: where its log, browser record and stand-in
    // browser go.
    QuillmarProcess(QString program, QString folder);
    ~QuillmarProcess();

    // Starts it; extraArguments go after the addresses (--refresh-seconds N).
    bool start(const Addresses& addresses, const QStringList& extraArguments = {});
    // Starts a second instance with the same addresses and waits for it to end; its exit code.
    int startSecondInstance(const Addresses& addresses);
    bool isRunning() { return m_process.isRunning(); }
    // Waits for the program to end by itself; false when it still runs after timeout.
    bool waitForExit(std::chrono::milliseconds timeout);
    int exitCode() const { return m_process.exitCode(); }
    void stop() { m_process.stop(); }
    qint64 pid() const { return m_process.pid(); }

    // Everything it printed, standard output and error, since the first start.
    QString output() const;
    // The addresses it asked the desktop to open, oldest first.
    QStringList openedUrls() const;

private:
    QStringList command(const Addresses& addresses, const QStringList& extraArguments) const;
    QStringList environment() const;

    QString m_program;
    QString m_folder;
    ChildProcess m_process;
};
