#pragma once

#include <QMenu>

#include <functional>

class QAction;
class QStyleOptionMenuItem;

// A menu of entries each of which opens a submenu of bookmarks (the collections, the tags), and
// whose submenus are made only when their entries are first highlighted: a large account has
// thousands of collections, few of which a person opens. Until then an entry is a plain item
// that looks and behaves like one with a submenu, to Qt's menu and to a panel (through the
// properties "submenusOnDemand" and "submenuPlaceholder", which the exported menu reads).
class LazyEntryMenu : public QMenu {
    Q_OBJECT
public:
    // Makes the submenu of an entry and gives it to the entry (QAction::setMenu).
    using MakeSubmenu = std::function<void(QAction* entry)>;

    // placeholder: what a submenu shows when made, until its bookmarks come ("Loading…").
    LazyEntryMenu(const QString& title, const QString& placeholder, MakeSubmenu makeSubmenu,
                  QWidget* parent = nullptr);
    ~LazyEntryMenu() override;

    // Gives entry its submenu now, if it has none yet.
    void makeSubmenu(QAction* entry);

protected:
    void initStyleOption(QStyleOptionMenuItem* option, const QAction* action) const override;

private:
    MakeSubmenu m_makeSubmenu;
};
