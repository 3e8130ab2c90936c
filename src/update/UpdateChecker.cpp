#include "update/UpdateChecker.h"

#include "app/alert/Alert.h"
#include "config/AppConfig.h"
#include "service/HttpFetch.h"
#include "update/VersionComparison.h"

#include <QDesktopServices>
#include <QDir>
#include <QFileInfo>
#include <QNetworkRequest>
#include <QSettings>
#include <QTimer>

#include <memory>

using namespace Qt::StringLiterals;

namespace {

std::unique_ptr<QSettings> openSettings() {
    return std::make_unique<QSettings>(UpdateChecker::settingsFilePath(), QSettings::IniFormat);
}

std::optional<QString> notifiedVersion() {
    const QVariant value = openSettings()->value(UpdateChecker::notifiedVersionKey());
    if (!value.isValid())
        return std::nullopt;
    return value.toString();
}

void recordNotifiedVersion(const QString& version) {
    auto settings = openSettings();
    settings->setValue(UpdateChecker::notifiedVersionKey(), version);
    // Written through before the alert, which may stay open for a long time.
    settings->sync();
}

} // namespace

UpdateChecker::UpdateChecker(const QString& manifestUrl, const QString& currentVersion,
                             QObject* parent)
    : UpdateChecker(manifestUrl, currentVersion, Timings(), parent) {}

UpdateChecker::UpdateChecker(const QString& manifestUrl, const QString& currentVersion,
                             Timings timings, QObject* parent)
    : QObject(parent)
    , m_manifestUrl(manifestUrl, QUrl::StrictMode)
    , m_currentVersion(currentVersion.isEmpty() ? u"0.0.0"_s : currentVersion)
    , m_timings(timings) {}

QString UpdateChecker::settingsFilePath() {
    return QFileInfo(AppConfig::filePath()).dir().filePath(u"quillmar.ini"_s);
}

QString UpdateChecker::notifiedVersionKey() {
    return u"lastNotifiedUpdateVersion"_s;
}

UpdateChecker::Check UpdateChecker::check() const {
    return {m_manifestUrl, m_currentVersion, m_timings.fetchTimeout};
}

void UpdateChecker::scheduleUpdateChecks() {
    delete m_updateCheckTimer;
    // The checker as context: the firing is dropped once the checker is gone.
    QTimer::singleShot(m_timings.firstCheckDelay, this, [this] { checkForUpdatesSilently(); });
    m_updateCheckTimer = new QTimer(this);
    connect(m_updateCheckTimer, &QTimer::timeout, this, [this] { checkForUpdatesSilently(); });
    m_updateCheckTimer->start(m_timings.checkInterval);
}

void UpdateChecker::checkForUpdates() {
    runManualCheck(check());
}

QCoro::Task<void> UpdateChecker::checkForUpdatesSilently() {
    return runSilentCheck(check());
}

QCoro::Task<std::optional<UpdateManifest>> UpdateChecker::fetchManifest(Check check) {
    // Its status does not matter: an error page carrying a valid manifest is still a manifest.
    // Redirects are followed, but never from HTTPS down to plain HTTP.
    const HttpFetch::Result result = co_await HttpFetch::get(
        QNetworkRequest(check.manifestUrl), {.deadline = check.fetchTimeout,
                                             .bodyLimit = maximumManifestSize,
                                             .redirects = HttpFetch::Redirects::FollowNoLessSafe});
    if (!result.answered())
        co_return std::nullopt;
    co_return UpdateManifest::parse(result.body);
}

QCoro::Task<void> UpdateChecker::runManualCheck(Check check) {
    const std::optional<UpdateManifest> manifest = co_await fetchManifest(check);
    if (!manifest) {
        Alert::run(u"Quillmar"_s,
                   u"Couldn't check for updates.\nMake sure you're connected to the internet."_s,
                   Alert::Style::Warning);
        co_return;
    }
    if (!VersionComparison::isNewer(manifest->version, check.currentVersion)) {
        Alert::run(u"You're up to date"_s,
                   u"Quillmar "_s + check.currentVersion + u" is the latest version."_s,
                   Alert::Style::Informational);
        co_return;
    }
    recordNotifiedVersion(manifest->version);
    showUpdateAlert(*manifest, check.currentVersion);
}

QCoro::Task<void> UpdateChecker::runSilentCheck(Check check) {
    const std::optional<UpdateManifest> manifest = co_await fetchManifest(check);
    if (!manifest || !VersionComparison::isNewer(manifest->version, check.currentVersion))
        co_return;
    // Read only now, after the fetch: of two checks in flight, the one finishing second finds
    // the version recorded by the first and stays silent.
    if (notifiedVersion() == manifest->version)
        co_return;
    recordNotifiedVersion(manifest->version);
    showUpdateAlert(*manifest, check.currentVersion);
}

void UpdateChecker::showUpdateAlert(const UpdateManifest& manifest, const QString& currentVersion) {
    const int pressed = Alert::run(u"Update Available"_s,
                                   u"Quillmar "_s + manifest.version +
                                       u" is available (you have "_s + currentVersion + u")."_s,
                                   Alert::Style::Informational, {u"Download"_s, u"Later"_s});
    if (pressed != 0)
        return;
    const QUrl url(manifest.downloadUrl, QUrl::StrictMode);
    if (url.isValid() && !url.scheme().isEmpty())
        QDesktopServices::openUrl(url);
}
