#pragma once

#include "menu/PageTitleReader.h"

#include <QCoroTask>
#include <QObject>
#include <QString>

#include <chrono>
#include <memory>
#include <optional>

class RaindropAPI;
class StatusItem;

// "📋 Add Clipboard URL": whether the item is offered, and saving the address on the clipboard
// as a bookmark titled as its page.
class ClipboardSaver : public QObject {
    Q_OBJECT
public:
    ClipboardSaver(const StatusItem* statusItem, std::shared_ptr<RaindropAPI> api,
                   std::chrono::milliseconds pageTitleTimeout, QObject* parent = nullptr);

    // Whether the item is enabled: the clipboard holds an address, or it cannot be read now (it
    // is read again when chosen).
    bool offersItem();
    // The clipboard changed: the next offersItem reads it again.
    void forgetOffer() { m_offer.reset(); }
    // The web address on the clipboard's plain text, if any.
    std::optional<QString> clipboardURL() const;
    // Reads the clipboard and saves its address; an alert tells when there is none.
    void addClipboardURL();
    // The title of the page at url; none when it cannot be read in time or has no title.
    QCoro::Task<std::optional<QString>> fetchPageTitle(QString url) const;
    // Creates the bookmark; a failure is reported in an alert.
    QCoro::Task<> saveURL(QString url, std::optional<QString> title);

private:
    static QCoro::Task<> saveWithTitle(std::shared_ptr<RaindropAPI> api, PageTitleReader reader,
                                       QString url);

    const StatusItem* m_statusItem;
    std::shared_ptr<RaindropAPI> m_api;
    PageTitleReader m_pageTitle;
    // What offersItem found, kept until the clipboard changes.
    std::optional<bool> m_offer;
};
