#include "service/HtmlEntities.h"

#include <QList>
#include <QRegularExpression>

#include <limits>

namespace {

struct Replacement {
    QLatin1StringView from;
    QLatin1StringView to;
};

// The order matters: "&amp;" goes first, so "&amp;lt;" ends up as "<".
constexpr Replacement fixedReplacements[] = {
    {QLatin1StringView("&amp;"), QLatin1StringView("&")},
    {QLatin1StringView("&lt;"), QLatin1StringView("<")},
    {QLatin1StringView("&gt;"), QLatin1StringView(">")},
    {QLatin1StringView("&quot;"), QLatin1StringView("\"")},
    {QLatin1StringView("&#39;"), QLatin1StringView("'")},
    {QLatin1StringView("&apos;"), QLatin1StringView("'")},
    {QLatin1StringView("&nbsp;"), QLatin1StringView(" ")},
};

std::optional<quint32> parseCodePoint(QStringView digits) {
    quint64 value = 0;
    for (QChar c : digits) {
        if (c < u'0' || c > u'9')
            return std::nullopt;
        value = value * 10 + quint64(c.unicode() - u'0');
        if (value > std::numeric_limits<quint32>::max())
            return std::nullopt;
    }
    return digits.isEmpty() ? std::nullopt : std::optional<quint32>(quint32(value));
}

} // namespace

QString decodingHTMLEntities(const QString& text) {
    QString result = text;
    for (const Replacement& replacement : fixedReplacements)
        result.replace(replacement.from, replacement.to);

    static const QRegularExpression numericReference(QStringLiteral("&#(\\d+);"));
    if (!numericReference.isValid())
        return result;

    QList<QRegularExpressionMatch> matches;
    for (auto it = numericReference.globalMatch(result); it.hasNext();)
        matches.append(it.next());

    // From the last match to the first, so earlier offsets stay valid.
    for (auto it = matches.crbegin(); it != matches.crend(); ++it) {
        const auto codePoint = parseCodePoint(it->capturedView(1));
        if (!codePoint || *codePoint >= 0x110000 || (*codePoint >= 0xD800 && *codePoint <= 0xDFFF))
            continue;
        const char32_t character = *codePoint;
        result.replace(it->capturedStart(0), it->capturedLength(0),
                       QString::fromUcs4(&character, 1));
    }
    return result;
}
