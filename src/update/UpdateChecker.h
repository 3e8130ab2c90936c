#pragma once

#include "update/UpdateManifest.h"

#include <QCoroTask>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QTimer>
#include <QUrl>

#include <chrono>
#include <optional>

// Tells the user when the maker has published a newer release: silently on a schedule, speaking
// only about a version the user has not been told about, and on request, always answering.
// Owned by its host; its schedule stops with it.
class UpdateChecker : public QObject {
    Q_OBJECT
public:
    struct Timings {
        // From each scheduling to its silent check.
        std::chrono::milliseconds firstCheckDelay = std::chrono::seconds(10);
        // The repeating check, re-armed by each scheduling.
        std::chrono::milliseconds checkInterval = std::chrono::hours(24);
        // A manifest that has not arrived in full by then counts as a failed fetch, so that a
        // dead server cannot keep a check waiting.
        std::chrono::milliseconds fetchTimeout = std::chrono::seconds(15);
    };

    // A manifest is a few lines; a larger answer is not one and fails the fetch.
    static constexpr qint64 maximumManifestSize = 1024 * 1024;

    // Reads the manifest at manifestUrl and compares its version with currentVersion (empty
    // when the build carries none).
    UpdateChecker(const QString& manifestUrl, const QString& currentVersion,
                  QObject* parent = nullptr);
    UpdateChecker(const QString& manifestUrl, const QString& currentVersion, Timings timings,
                  QObject* parent = nullptr);

    // The silent check after the first-check delay (that one-shot is never cancelled, not even
    // by a later scheduling), and a repeating check that replaces the previous one.
    void scheduleUpdateChecks();
    // Starts a check that answers with an alert whatever its outcome, and returns at once.
    void checkForUpdates();
    // One check that raises the update alert only for a version not yet announced.
    QCoro::Task<void> checkForUpdatesSilently();

    // The program's own version, "0.0.0" when the build carries none.
    QString currentVersion() const { return m_currentVersion; }

    // The settings key of the last version the update alert was raised for.
    static QString notifiedVersionKey();
    // The file that keeps it: quillmar.ini beside the configuration file, in the same folder
    // under the home directory whatever XDG_CONFIG_HOME says.
    static QString settingsFilePath();

private:
    struct Check {
        QUrl manifestUrl;
        QString currentVersion;
        std::chrono::milliseconds fetchTimeout;
    };

    // The checks take their inputs by value and never touch the checker once they have started,
    // so a check in flight survives its checker.
    Check check() const;
    static QCoro::Task<std::optional<UpdateManifest>> fetchManifest(Check check);
    static QCoro::Task<void> runManualCheck(Check check);
    static QCoro::Task<void> runSilentCheck(Check check);
    static void showUpdateAlert(const UpdateManifest& manifest, const QString& currentVersion);

    QUrl m_manifestUrl;
    QString m_currentVersion;
    Timings m_timings;
    QPointer<QTimer> m_updateCheckTimer;
};
