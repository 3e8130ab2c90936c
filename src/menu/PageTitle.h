#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

// Reads the title of a web page from its body.
class PageTitle {
public:
    // A page is read no further than this.
    static constexpr qsizetype readLimit = 2 * 1024 * 1024;

    // The body is text in UTF-8, or in Latin-1 when it is not valid UTF-8. The title is the text
    // of the first <title ...>...</title> element (tags in any case), trimmed of white space,
    // with HTML character references decoded; none when there is no such element.
    static std::optional<QString> extract(const QByteArray& body);

    // The same for the first bytes of a longer body. A title found here is the one the whole
    // body gives; none means that the title has not been seen yet. A character cut off at the
    // end does not make the text Latin-1.
    static std::optional<QString> extractFromPrefix(const QByteArray& prefix);

    // Whether "</title" (in any case) occurs in data at or after from: only then can a title
    // have been completed by the bytes there.
    static bool mayEndTitle(const QByteArray& data, qsizetype from);
};
