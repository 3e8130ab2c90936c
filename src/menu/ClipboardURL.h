#pragma once

#include <QString>

#include <optional>

// Finds the web address in a text copied by the user.
class ClipboardURL {
public:
    // The first "http://" or "https://" address (lower-case scheme) in text, running up to the
    // next white space, without the punctuation that may follow it in a sentence (.,;:!?)"').
    // White space is Unicode's: tab, line feed, form feed, carriage return and every separator
    // (spaces, line and paragraph separators). Nothing else is checked.
    static std::optional<QString> extract(const QString& text);
};
