#include "menu/MenuText.h"

#include <QTextBoundaryFinder>

using namespace Qt::StringLiterals;

QString MenuText::bookmarkLabel(const Raindrop& bookmark) {
    return firstCharacters(bookmark.title.isEmpty() ? bookmark.link : bookmark.title,
                           bookmarkTitleLimit);
}

QString MenuText::firstCharacters(const QString& text, int count) {
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    qsizetype end = 0;
    for (int i = 0; i < count; ++i) {
        const qsizetype next = finder.toNextBoundary();
        if (next < 0)
            return text;
        end = next;
    }
    return text.left(end);
}

QString MenuText::escaped(const QString& text) {
    QString result = text;
    result.replace(u'&', u"&&"_s);
    result.replace(u'\t', u' ');
    return result;
}
