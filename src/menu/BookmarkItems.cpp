#include "menu/BookmarkItems.h"

#include "app/clipboard/SystemClipboard.h"
#include "menu/MenuText.h"
#include "menu/ServiceAction.h"
#include "menu/SubmenuPlacement.h"
#include "service/RaindropAPI.h"

#include <QDesktopServices>
#include <QMenu>
#include <QUrl>

#include <optional>

using namespace Qt::StringLiterals;

namespace {

std::optional<Raindrop> bookmarkOf(const QAction* item) {
    if (!item || item->data().metaType() != QMetaType::fromType<Raindrop>())
        return std::nullopt;
    return item->data().value<Raindrop>();
}

// Opens an absolute address; anything else is ignored.
void openAddress(const QString& address) {
    const QUrl url(address);
    if (url.isValid() && !url.isRelative())
        QDesktopServices::openUrl(url);
}

} // namespace

BookmarkItems::BookmarkItems(std::shared_ptr<RaindropAPI> api, QString webApp,
                             SubmenuPlacement* placement, QObject* parent)
    : QObject(parent)
    , m_api(std::move(api))
    , m_webApp(std::move(webApp))
    , m_placement(placement) {}

void BookmarkItems::add(const Raindrop& bookmark, QMenu* menu) {
    const QVariant data = QVariant::fromValue(bookmark);
    auto* submenu =
        m_placement->newSubmenu(MenuText::escaped(MenuText::bookmarkLabel(bookmark)), menu);
    QAction* item = submenu->menuAction();
    item->setData(data);
    connect(item, &QAction::triggered, this, [this, item] { open(item); });
    addAction(submenu, u"↗ Open"_s, data, &BookmarkItems::open);
    submenu->addSeparator();
    addAction(submenu, u"⎘ Copy URL"_s, data, &BookmarkItems::copyLink);
    addAction(submenu, u"[ ] Copy as Markdown"_s, data, &BookmarkItems::copyMarkdown);
    addAction(submenu, u"✎ Edit in Raindrop"_s, data, &BookmarkItems::edit);
    submenu->addSeparator();
    addAction(submenu,
              bookmark.important ? u"♥ Remove from Favourites"_s : u"♡ Add to Favourites"_s, data,
              &BookmarkItems::toggleFavourite);
    menu->addAction(item);
}

void BookmarkItems::addAction(QMenu* menu, const QString& title, const QVariant& bookmark,
                              void (BookmarkItems::*action)(QAction*)) {
    QAction* item = menu->addAction(title);
    item->setData(bookmark);
    connect(item, &QAction::triggered, this, [this, item, action] { (this->*action)(item); });
}

void BookmarkItems::openWebApp() {
    openAddress(m_webApp);
}

void BookmarkItems::open(QAction* item) {
    if (const auto bookmark = bookmarkOf(item))
        openAddress(bookmark->link);
}

void BookmarkItems::copyLink(QAction* item) {
    if (const auto bookmark = bookmarkOf(item))
        SystemClipboard::setText(bookmark->link);
}

void BookmarkItems::copyMarkdown(QAction* item) {
    const auto bookmark = bookmarkOf(item);
    if (!bookmark)
        return;
    // The whole title, nothing escaped.
    const QString label = bookmark->title.isEmpty() ? bookmark->link : bookmark->title;
    SystemClipboard::setText(u"["_s + label + u"]("_s + bookmark->link + u")"_s);
}

void BookmarkItems::edit(QAction* item) {
    if (const auto bookmark = bookmarkOf(item))
        openAddress(m_webApp + u"/my/"_s + QString::number(bookmark->collectionId) + u"/item/"_s +
                    QString::number(bookmark->id) + u"/edit"_s);
}

void BookmarkItems::toggleFavourite(QAction* item) {
    if (const auto bookmark = bookmarkOf(item))
        ServiceAction::run(m_api->setFavourite(bookmark->id, !bookmark->important),
                           u"Failed to update favourite: "_s);
}
