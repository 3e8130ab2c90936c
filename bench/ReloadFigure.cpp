#include "ReloadFigure.h"

#include "BenchService.h"
#include "ChildProcess.h"
#include "FakeLogind.h"
#include "FakeNetworkManager.h"

#include <csignal>
#include <thread>

using namespace std::chrono_literals;
using State = FakeNetworkManager::State;

namespace {

double millisecondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
        .count();
}

} // namespace

bool ReloadFigure::expect(ChildProcess& program, const char* line) {
    const std::optional<QByteArray> read = program.readLine(30s);
    if (read == std::optional<QByteArray>(line))
        return true;
    m_error = QStringLiteral("expected \"%1\", read \"%2\"")
                  .arg(QString::fromLatin1(line), QString::fromUtf8(read.value_or("nothing")));
    return false;
}

std::optional<double> ReloadFigure::networkReturns(ChildProcess& program, const QString& apiBase) {
    // The menu outdated (the machine slept) and the network down: the first reload, when the
    // network seems back but the service is out of reach, fails.
    m_service.setRefusing(apiBase, true);
    m_networkManager.setState(State::Disconnected);
    kill(program.pid(), SIGUSR1);
    std::this_thread::sleep_for(50ms);
    m_networkManager.setState(State::ConnectedGlobal);
    if (!expect(program, "failed"))
        return std::nullopt;
    // Now the service is in reach when the network returns.
    m_networkManager.setState(State::Disconnected);
    m_service.setRefusing(apiBase, false);
    std::this_thread::sleep_for(200ms);
    const auto start = std::chrono::steady_clock::now();
    m_networkManager.setState(State::ConnectedGlobal);
    if (!expect(program, "full"))
        return std::nullopt;
    return millisecondsSince(start);
}

std::optional<double> ReloadFigure::resume(ChildProcess& program) {
    m_logind.prepareForSleep(true);
    kill(program.pid(), SIGUSR1);
    std::this_thread::sleep_for(200ms);
    const auto start = std::chrono::steady_clock::now();
    m_logind.prepareForSleep(false);
    if (!expect(program, "full"))
        return std::nullopt;
    return millisecondsSince(start);
}

std::optional<ReloadFigure::Result> ReloadFigure::measure(const QStringList& command,
                                                          const QString& apiBase,
                                                          const QString& logFile, int rounds) {
    m_networkManager.setState(State::ConnectedGlobal);
    ChildProcess program;
    if (!program.start(command, logFile, true) || !expect(program, "full"))
        return std::nullopt;
    Result result;
    for (int round = 0; round <= rounds; ++round) {
        // The pinned lists are fetched in the background after each build; they come to rest.
        std::this_thread::sleep_for(500ms);
        const auto network = networkReturns(program, apiBase);
        if (!network)
            return std::nullopt;
        std::this_thread::sleep_for(500ms);
        const auto resumed = resume(program);
        if (!resumed)
            return std::nullopt;
        if (round > 0) { // the first round warms up
            result.networkMs.append(*network);
            result.resumeMs.append(*resumed);
        }
    }
    program.stop();
    return result;
}
