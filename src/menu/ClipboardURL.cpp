#include "menu/ClipboardURL.h"

#include <QRegularExpression>

using namespace Qt::StringLiterals;

std::optional<QString> ClipboardURL::extract(const QString& text) {
    // Most clipboards hold no address at all: the matcher (and its compiler) is not needed then.
    if (!text.contains(u"http"_s))
        return std::nullopt;
    static const QRegularExpression pattern(u"https?://[^\\t\\n\\f\\r\\p{Z}]+"_s);
    // The matcher refuses text with a lone surrogate; a replacement character of the same
    // length (and no more white space than a surrogate) keeps every position.
    QString matchable = text;
    for (qsizetype i = 0; i < matchable.size(); ++i) {
        const QChar c = matchable.at(i);
        if (c.isHighSurrogate() && i + 1 < matchable.size() && matchable.at(i + 1).isLowSurrogate())
            ++i;
        else if (c.isSurrogate())
            matchable[i] = QChar::ReplacementCharacter;
    }
    const QRegularExpressionMatch match = pattern.match(matchable);
    if (!match.hasMatch())
        return std::nullopt;
    QString url = text.mid(match.capturedStart(), match.capturedLength());
    // The match begins with the scheme, so only its end can carry such punctuation.
    static const QString trailing = u".,;:!?)\"'"_s;
    qsizetype end = url.size();
    while (end > 0 && trailing.contains(url.at(end - 1)))
        --end;
    url.truncate(end);
    return url;
}
