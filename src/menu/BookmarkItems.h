#pragma once

#include "service/Raindrop.h"

#include <QObject>
#include <QString>

#include <memory>

class QAction;
class QMenu;
class RaindropAPI;
class SubmenuPlacement;

// The item of a bookmark in the menu, with the submenu of its actions, and those actions. An
// action given an item reads the bookmark the item carries.
class BookmarkItems : public QObject {
    Q_OBJECT
public:
    // webApp: the web application's address, where bookmarks are edited.
    BookmarkItems(std::shared_ptr<RaindropAPI> api, QString webApp, SubmenuPlacement* placement,
                  QObject* parent = nullptr);

    // Appends bookmark's item to menu.
    void add(const Raindrop& bookmark, QMenu* menu);

    void openWebApp();
    void open(QAction* item);
    void copyLink(QAction* item);
    void copyMarkdown(QAction* item);
    void edit(QAction* item);
    void toggleFavourite(QAction* item);

private:
    void addAction(QMenu* menu, const QString& title, const QVariant& bookmark,
                   void (BookmarkItems::*action)(QAction*));

    std::shared_ptr<RaindropAPI> m_api;
    QString m_webApp;
    SubmenuPlacement* m_placement;
};
