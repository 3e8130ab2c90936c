#include "menu/ClipboardSaver.h"

#include "app/alert/Alert.h"
#include "app/clipboard/SystemClipboard.h"
#include "app/tray/StatusItem.h"
#include "menu/ClipboardURL.h"
#include "menu/ServiceAction.h"
#include "service/RaindropAPI.h"

#include <QPointer>

using namespace Qt::StringLiterals;

ClipboardSaver::ClipboardSaver(const StatusItem* statusItem, std::shared_ptr<RaindropAPI> api,
                               std::chrono::milliseconds pageTitleTimeout, QObject* parent)
    : QObject(parent)
    , m_statusItem(statusItem)
    , m_api(std::move(api))
    , m_pageTitle(pageTitleTimeout) {}

// Offered when the clipboard holds an address, and when it cannot be read now (Wayland shows it
// only to the program with the focus, which a panel's open menu keeps), so that the item is
// there and reads it when chosen.
bool ClipboardSaver::offersItem() {
    if (m_statusItem->isPanelMenuOpen() && !SystemClipboard::readableInBackground())
        return true;
    // Where every change is told, the clipboard is read again only after one: reading it costs
    // round trips to the display server and the program that holds it, before the menu shows.
    if (m_offer)
        return *m_offer;
    const std::optional<QString> text = SystemClipboard::text();
    const bool offer = !text || ClipboardURL::extract(*text).has_value();
    if (text && SystemClipboard::announcesEveryChange())
        m_offer = offer;
    return offer;
}

std::optional<QString> ClipboardSaver::clipboardURL() const {
    const std::optional<QString> text = SystemClipboard::text();
    if (!text)
        return std::nullopt;
    return ClipboardURL::extract(*text);
}

void ClipboardSaver::addClipboardURL() {
    // Read now where the clipboard is at hand, after a moment where it is not.
    SystemClipboard::readText([self = QPointer<ClipboardSaver>(this)](std::optional<QString> text) {
        if (!self)
            return;
        const std::optional<QString> url = text ? ClipboardURL::extract(*text) : std::nullopt;
        if (!url) {
            Alert::run(u"Quillmar"_s, u"No URL found on clipboard."_s, Alert::Style::Warning);
            return;
        }
        saveWithTitle(self->m_api, self->m_pageTitle, *url);
    });
}

QCoro::Task<> ClipboardSaver::saveWithTitle(std::shared_ptr<RaindropAPI> api,
                                            PageTitleReader reader, QString url) {
    const std::optional<QString> title = co_await reader.read(url);
    co_await ServiceAction::run(api->createRaindrop(url, title), u"Failed to save: "_s);
}

QCoro::Task<std::optional<QString>> ClipboardSaver::fetchPageTitle(QString url) const {
    return m_pageTitle.read(std::move(url));
}

QCoro::Task<> ClipboardSaver::saveURL(QString url, std::optional<QString> title) {
    return ServiceAction::run(m_api->createRaindrop(std::move(url), std::move(title)),
                              u"Failed to save: "_s);
}
