#include "settings/SettingsViewModel.h"

#include "config/AppConfig.h"
#include "config/SettingsNotifier.h"
#include "service/RaindropAPI.h"
#include "service/ServiceError.h"

#include <QPointer>

#include <algorithm>

using namespace Qt::StringLiterals;

SettingsViewModel::SettingsViewModel(QString apiBase, QObject* parent)
    : QObject(parent)
    , m_apiBase(std::move(apiBase)) {
    const AppConfig config = AppConfig::load();
    m_token = config.token;
    m_pinnedCollectionIds =
        QSet<qint64>(config.pinnedCollectionIds.cbegin(), config.pinnedCollectionIds.cend());
    m_pinnedTags = QSet<QString>(config.pinnedTags.cbegin(), config.pinnedTags.cend());
    // The window never starts without a shortcut; only the user's "Clear" removes it.
    m_openMenuShortcut = config.openMenuShortcut.value_or(ShortcutConfig::defaultShortcut());
}

void SettingsViewModel::setToken(const QString& token) {
    if (m_token == token)
        return;
    m_token = token;
    Q_EMIT tokenChanged();
}

void SettingsViewModel::setOpenMenuShortcut(const std::optional<ShortcutConfig>& shortcut) {
    if (m_openMenuShortcut == shortcut)
        return;
    m_openMenuShortcut = shortcut;
    Q_EMIT openMenuShortcutChanged();
}

void SettingsViewModel::setCollections(const QList<Collection>& collections) {
    if (m_collections == collections)
        return;
    m_collections = collections;
    Q_EMIT collectionsChanged();
}

void SettingsViewModel::setTags(const QList<Tag>& tags) {
    if (m_tags == tags)
        return;
    m_tags = tags;
    Q_EMIT tagsChanged();
}

void SettingsViewModel::setIsLoading(bool isLoading) {
    if (m_isLoading == isLoading)
        return;
    m_isLoading = isLoading;
    Q_EMIT isLoadingChanged();
}

void SettingsViewModel::setErrorMessage(const std::optional<QString>& message) {
    if (m_errorMessage == message)
        return;
    m_errorMessage = message;
    Q_EMIT errorMessageChanged();
}

QCoro::Task<void> SettingsViewModel::loadData(std::shared_ptr<RequestCanceller> canceller) {
    const QString trimmed = m_token.trimmed();
    if (trimmed.isEmpty())
        co_return;
    // The window lives for the whole process, but a model made elsewhere may go away while
    // the requests run; nothing of it is touched after that.
    const QPointer<SettingsViewModel> self(this);
    // A load that is called off changes nothing, so an earlier failure's message comes back.
    const std::optional<QString> earlierError = m_errorMessage;
    setIsLoading(true);
    setErrorMessage(std::nullopt);

    // A fresh client per load: the typed token counts at once, without saving, and nothing is
    // shared with the menu's client.
    const auto api = RaindropAPI::create(trimmed, m_apiBase);
    // One canceller for both requests, so that the first failure, or the caller, stops the
    // request still running.
    const auto requests = std::make_shared<RequestCanceller>();
    if (canceller) {
        QObject::connect(canceller.get(), &RequestCanceller::cancelled, requests.get(),
                         &RequestCanceller::cancel);
        if (canceller->isCancelled())
            requests->cancel();
    }

    // Both requests are under way before either is awaited.
    QCoro::Task<QList<Collection>> collectionsTask = api->fetchCollections(requests);
    QCoro::Task<QList<Tag>> tagsTask = api->fetchTags(requests);

    std::optional<QString> failure;
    QList<Collection> collections;
    QList<Tag> tags;
    try {
        collections = co_await collectionsTask;
    } catch (const ServiceError& error) {
        failure = error.message();
        requests->cancel();
    }
    // After a failure this only waits for the cancelled request to end.
    try {
        tags = co_await tagsTask;
    } catch (const ServiceError& error) {
        if (!failure)
            failure = error.message();
    }

    if (!self)
        co_return;
    if (canceller && canceller->isCancelled()) {
        // Called off by the caller: nothing went wrong that the user needs to read, and what
        // was wrong before still is.
        setErrorMessage(earlierError);
        setIsLoading(false);
        co_return;
    }
    if (failure) {
        setErrorMessage(u"Could not load: "_s + *failure);
        setIsLoading(false);
        co_return;
    }
    setCollections(collections);
    setTags(tags);
    setIsLoading(false);
}

void SettingsViewModel::toggleCollection(qint64 id) {
    if (!m_pinnedCollectionIds.remove(id))
        m_pinnedCollectionIds.insert(id);
    Q_EMIT pinnedCollectionIdsChanged();
}

void SettingsViewModel::toggleTag(const QString& name) {
    if (!m_pinnedTags.remove(name))
        m_pinnedTags.insert(name);
    Q_EMIT pinnedTagsChanged();
}

void SettingsViewModel::save() {
    // Start from the file so that anything this window does not edit would survive; the four
    // fields it edits are all replaced.
    AppConfig config = AppConfig::load();
    config.token = m_token;
    // Sets have no order; sorting keeps the file the same from one save to the next.
    config.pinnedCollectionIds =
        QList<qint64>(m_pinnedCollectionIds.cbegin(), m_pinnedCollectionIds.cend());
    std::sort(config.pinnedCollectionIds.begin(), config.pinnedCollectionIds.end());
    config.pinnedTags = QStringList(m_pinnedTags.cbegin(), m_pinnedTags.cend());
    config.pinnedTags.sort();
    config.openMenuShortcut = m_openMenuShortcut;
    // A failed write is not reported: the notification still goes out, and the application
    // then simply reloads the file as it is.
    config.save();
    SettingsNotifier::instance().post();
}
