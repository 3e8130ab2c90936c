#pragma once

#include "config/ShortcutConfig.h"
#include "service/Collection.h"
#include "service/RequestCanceller.h"
#include "service/Tag.h"

#include <QCoroTask>
#include <QList>
#include <QObject>
#include <QSet>
#include <QString>

#include <memory>
#include <optional>

// The editable state behind the settings window: a copy of the configuration, the account's
// collections and tags to pin from, and the status of the last load. Views observe the
// properties through their change signals; every change runs on the main thread.
class SettingsViewModel : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString token READ token WRITE setToken NOTIFY tokenChanged)
    Q_PROPERTY(QList<Collection> collections READ collections NOTIFY collectionsChanged)
    Q_PROPERTY(QList<Tag> tags READ tags NOTIFY tagsChanged)
    Q_PROPERTY(
        QSet<qint64> pinnedCollectionIds READ pinnedCollectionIds NOTIFY pinnedCollectionIdsChanged)
    Q_PROPERTY(QSet<QString> pinnedTags READ pinnedTags NOTIFY pinnedTagsChanged)
    Q_PROPERTY(std::optional<ShortcutConfig> openMenuShortcut READ openMenuShortcut WRITE
                   setOpenMenuShortcut NOTIFY openMenuShortcutChanged)
    Q_PROPERTY(bool isLoading READ isLoading NOTIFY isLoadingChanged)
    Q_PROPERTY(std::optional<QString> errorMessage READ errorMessage NOTIFY errorMessageChanged)

public:
    // Reads the configuration file; the service is reached at apiBase.
    explicit SettingsViewModel(QString apiBase, QObject* parent = nullptr);

    QString token() const { return m_token; }
    void setToken(const QString& token);
    QList<Collection> collections() const { return m_collections; }
    QList<Tag> tags() const { return m_tags; }
    QSet<qint64> pinnedCollectionIds() const { return m_pinnedCollectionIds; }
    QSet<QString> pinnedTags() const { return m_pinnedTags; }
    std::optional<ShortcutConfig> openMenuShortcut() const { return m_openMenuShortcut; }
    void setOpenMenuShortcut(const std::optional<ShortcutConfig>& shortcut);
    bool isLoading() const { return m_isLoading; }
    std::optional<QString> errorMessage() const { return m_errorMessage; }

    // Fetches collections and tags with the trimmed token through a fresh client. Failures end
    // up in errorMessage, never at the caller. A caller that gives a canceller and cancels it
    // ends the load early without an error message of its own; the lists and the message of an
    // earlier failure then stay as they were.
    QCoro::Task<void> loadData(std::shared_ptr<RequestCanceller> canceller = {});
    void toggleCollection(qint64 id);
    void toggleTag(const QString& name);
    // Writes the configuration built from this model and announces the change, even when the
    // file could not be written.
    void save();

Q_SIGNALS:
    void tokenChanged();
    void collectionsChanged();
    void tagsChanged();
    void pinnedCollectionIdsChanged();
    void pinnedTagsChanged();
    void openMenuShortcutChanged();
    void isLoadingChanged();
    void errorMessageChanged();

private:
    void setCollections(const QList<Collection>& collections);
    void setTags(const QList<Tag>& tags);
    void setIsLoading(bool isLoading);
    void setErrorMessage(const std::optional<QString>& message);

    QString m_apiBase;
    QString m_token;
    QList<Collection> m_collections;
    QList<Tag> m_tags;
    QSet<qint64> m_pinnedCollectionIds;
    QSet<QString> m_pinnedTags;
    std::optional<ShortcutConfig> m_openMenuShortcut;
    bool m_isLoading = false;
    std::optional<QString> m_errorMessage;
};
