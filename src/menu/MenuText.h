#pragma once

#include "service/Raindrop.h"

#include <QString>

// Texts of menu items that come from the service.
class MenuText {
public:
    // Bookmark labels are cut to this many user-perceived characters.
    static constexpr int bookmarkTitleLimit = 70;

    // The bookmark's title, or its link when the title is empty, cut to the first
    // bookmarkTitleLimit user-perceived characters without an ellipsis.
    static QString bookmarkLabel(const Raindrop& bookmark);

    // The first count user-perceived characters (grapheme clusters) of text.
    static QString firstCharacters(const QString& text, int count);

    // The text to give a menu item so that it shows text as it stands: a menu reads "&" as the
    // mark of a keyboard mnemonic and a tab as the start of the shortcut column.
    static QString escaped(const QString& text);
};
