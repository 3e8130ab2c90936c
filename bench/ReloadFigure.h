#pragma once

#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

class BenchService;
class ChildProcess;
class FakeLogind;
class FakeNetworkManager;

// "Reload after the network returns" and "Reload after resume": from NetworkManager's or
// logind's signal on the system bus until the program has attached its whole menu again, with
// the program running as it runs on a laptop ("bench_quillmar reload", whose clock a SIGUSR1
// moves on as a suspend does).
class ReloadFigure {
public:
    struct Result {
        QList<double> networkMs;
        QList<double> resumeMs;
    };

    ReloadFigure(BenchService& service, FakeNetworkManager& networkManager, FakeLogind& logind)
        : m_service(service)
        , m_networkManager(networkManager)
        , m_logind(logind) {}

    // Starts command (serving apiBase) and measures rounds reloads of each kind after one of
    // each to warm up; none when the program did not do what was expected.
    std::optional<Result> measure(const QStringList& command, const QString& apiBase,
                                  const QString& logFile, int rounds);
    QString errorString() const { return m_error; }

private:
    bool expect(ChildProcess& program, const char* line);
    std::optional<double> networkReturns(ChildProcess& program, const QString& apiBase);
    std::optional<double> resume(ChildProcess& program);

    BenchService& m_service;
    FakeNetworkManager& m_networkManager;
    FakeLogind& m_logind;
    QString m_error;
};
