#pragma once

#include "app/tray/StatusItem.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QKeySequence>
#include <QMenu>
#include <QStringList>

#include <algorithm>
#include <chrono>

// Reads menus back for the tests: one line per item ("---" for a separator; "(off) " before a
// disabled item; " ▸" after an item with a submenu; " [Ctrl+R]" after a key equivalent). Texts
// are the items' own, so "&&" shows where a title holds "&".
class MenuTree {
public:
    static QStringList describe(const QMenu* menu) {
        QStringList lines;
        const QList<QAction*> actions = menu->actions();
        for (const QAction* action : actions) {
            if (action->isSeparator()) {
                lines.append(QStringLiteral("---"));
                continue;
            }
            QString line = action->isEnabled() ? QString() : QStringLiteral("(off) ");
            line += action->text();
            if (action->menu() || opensSubmenuOnDemand(action))
                line += QStringLiteral(" ▸");
            if (!action->shortcut().isEmpty())
                line += QStringLiteral(" [") +
                        action->shortcut().toString(QKeySequence::PortableText) +
                        QStringLiteral("]");
            lines.append(line);
        }
        return lines;
    }

    // The item of menu whose text is text, or null.
    static QAction* item(const QMenu* menu, const QString& text) {
        const QList<QAction*> actions = menu->actions();
        for (QAction* action : actions)
            if (action->text() == text)
                return action;
        return nullptr;
    }
    // The submenu of the item of menu whose text is text, or null. An entry whose submenu is
    // made when it is highlighted (the collections, the tags) is highlighted first, as a person
    // pointing at it does.
    static QMenu* submenu(const QMenu* menu, const QString& text) {
        QAction* found = item(menu, text);
        if (found && opensSubmenuOnDemand(found))
            found->hover();
        return found ? found->menu() : nullptr;
    }

    // Whether action is an entry whose menu makes its submenu when it is highlighted.
    static bool opensSubmenuOnDemand(const QAction* action) {
        const QList<QObject*> holders = action->associatedObjects();
        return !action->menu() && !action->isSeparator() &&
               std::any_of(holders.cbegin(), holders.cend(), [](const QObject* holder) {
                   return holder->property("submenusOnDemand").toBool();
               });
    }

    static bool isFull(const QMenu* menu) {
        return menu && !menu->actions().isEmpty() &&
               menu->actions().constFirst()->text() == QStringLiteral("📋 Add Clipboard URL");
    }

    // Spins the event loop until the status item carries a full menu other than previous.
    // previous may be gone by then, and a new menu may have its address: each menu returned
    // here is marked, and a menu at previous's address without the mark is a new one.
    static QMenu* waitForFullMenu(const StatusItem& statusItem, const QMenu* previous = nullptr,
                                  std::chrono::milliseconds timeout = std::chrono::seconds(30)) {
        static const char* const returnedMark = "returnedByWaitForFullMenu";
        QDeadlineTimer deadline(timeout);
        while (!deadline.hasExpired()) {
            QMenu* menu = statusItem.menu();
            if (isFull(menu) && (menu != previous || !menu->property(returnedMark).toBool())) {
                menu->setProperty(returnedMark, true);
                return menu;
            }
            QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
        }
        return nullptr;
    }

    // Spins the event loop until the submenu's items differ from before (or time is up).
    static bool waitForChange(const QMenu* menu, const QStringList& before,
                              std::chrono::milliseconds timeout = std::chrono::seconds(5)) {
        QDeadlineTimer deadline(timeout);
        while (!deadline.hasExpired()) {
            if (describe(menu) != before)
                return true;
            QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
        }
        return false;
    }
};
