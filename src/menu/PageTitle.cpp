#include "menu/PageTitle.h"

#include "service/HtmlEntities.h"

#include <QRegularExpression>
#include <QStringDecoder>

using namespace Qt::StringLiterals;

namespace {

QString decode(const QByteArray& body) {
    QStringDecoder utf8(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    const QString text = utf8.decode(body);
    if (!utf8.hasError())
        return text;
    return QString::fromLatin1(body);
}

// How many bytes a UTF-8 sequence that begins with lead has; 0 when lead cannot begin one.
int sequenceLength(unsigned char lead) {
    if (lead >= 0xC2 && lead <= 0xDF)
        return 2;
    if (lead >= 0xE0 && lead <= 0xEF)
        return 3;
    if (lead >= 0xF0 && lead <= 0xF4)
        return 4;
    return 0;
}

// Whether second may follow lead (the first bytes of a sequence, without overlong forms,
// surrogates or code points above U+10FFFF).
bool mayFollow(unsigned char lead, unsigned char second) {
    switch (lead) {
    case 0xE0:
        return second >= 0xA0 && second <= 0xBF;
    case 0xED:
        return second >= 0x80 && second <= 0x9F;
    case 0xF0:
        return second >= 0x90 && second <= 0xBF;
    case 0xF4:
        return second >= 0x80 && second <= 0x8F;
    default:
        return (second & 0xC0) == 0x80;
    }
}

// The length of body without a valid but unfinished UTF-8 sequence at its end.
qsizetype completeLength(const QByteArray& body) {
    const qsizetype size = body.size();
    for (qsizetype i = size - 1; i >= 0 && i >= size - 3; --i) {
        const auto byte = static_cast<unsigned char>(body.at(i));
        if ((byte & 0xC0) == 0x80)
            continue; // a continuation byte: look for the lead byte before it
        const int length = sequenceLength(byte);
        if (length == 0 || size - i >= length)
            return size;
        if (size - i >= 2 && !mayFollow(byte, static_cast<unsigned char>(body.at(i + 1))))
            return size;
        return i;
    }
    return size;
}

} // namespace

std::optional<QString> PageTitle::extract(const QByteArray& body) {
    static const QRegularExpression pattern(u"<title[^>]*>([^<]+)</title>"_s,
                                            QRegularExpression::CaseInsensitiveOption);
    const QRegularExpressionMatch match = pattern.match(decode(body));
    if (!match.hasMatch())
        return std::nullopt;
    return decodingHTMLEntities(match.captured(1).trimmed());
}

std::optional<QString> PageTitle::extractFromPrefix(const QByteArray& prefix) {
    return extract(prefix.left(completeLength(prefix)));
}

bool PageTitle::mayEndTitle(const QByteArray& data, qsizetype from) {
    static const QByteArray closing = QByteArrayLiteral("</title");
    for (qsizetype i = qMax<qsizetype>(from, 0); i + closing.size() <= data.size(); ++i) {
        if (data.at(i) != '<')
            continue;
        if (data.mid(i, closing.size()).toLower() == closing)
            return true;
    }
    return false;
}
