#include "menu/ClipboardURL.h"

#include <QTest>

using namespace Qt::StringLiterals;

class tst_ClipboardURL : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void extract_data();
    void extract();
};

void tst_ClipboardURL::extract_data() {
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("expected"); // null: no URL

    QTest::newRow("comma and more words")
        << u"read https://example.com/a, then more"_s << u"https://example.com/a"_s;
    QTest::newRow("alone") << u"https://example.com"_s << u"https://example.com"_s;
    QTest::newRow("http") << u"http://example.com/x?y=1#z"_s << u"http://example.com/x?y=1#z"_s;
    QTest::newRow("in parentheses, then a full stop")
        << u"(see https://example.com/page)."_s << u"https://example.com/page"_s;
    QTest::newRow("all nine trimmed")
        << u"https://a.example/b.,;:!?)\"'"_s << u"https://a.example/b"_s;
    QTest::newRow("inner punctuation kept")
        << u"https://a.example/b.c,d;e"_s << u"https://a.example/b.c,d;e"_s;
    QTest::newRow("opening parenthesis kept")
        << u"https://a.example/b("_s << u"https://a.example/b("_s;
    QTest::newRow("closing bracket kept")
        << u"[https://a.example/b]"_s << u"https://a.example/b]"_s;
    QTest::newRow("closing angle bracket kept")
        << u"<https://a.example/b>"_s << u"https://a.example/b>"_s;
    QTest::newRow("first of two") << u"http://one.example https://two.example"_s
                                  << u"http://one.example"_s;
    QTest::newRow("inside a word") << u"xhttps://a.example"_s << u"https://a.example"_s;
    QTest::newRow("ftp only") << u"ftp://example.com/file"_s << QString();
    QTest::newRow("host without scheme") << u"example.com/page"_s << QString();
    QTest::newRow("upper-case scheme") << u"HTTPS://EXAMPLE.COM"_s << QString();
    QTest::newRow("mixed-case scheme") << u"Https://example.com"_s << QString();
    QTest::newRow("scheme alone") << u"https://"_s << QString();
    QTest::newRow("scheme then space") << u"https:// example.com"_s << QString();
    QTest::newRow("empty") << QString() << QString();
    QTest::newRow("only punctuation after the scheme") << u"https://..."_s << u"https://"_s;
    QTest::newRow("tab") << u"https://a.example/b\tc"_s << u"https://a.example/b"_s;
    QTest::newRow("line feed") << u"https://a.example/b\nc"_s << u"https://a.example/b"_s;
    QTest::newRow("carriage return") << u"https://a.example/b\rc"_s << u"https://a.example/b"_s;
    QTest::newRow("form feed") << u"https://a.example/b\fc"_s << u"https://a.example/b"_s;
    QTest::newRow("no-break space") << u"https://a.example/b\u00A0c"_s << u"https://a.example/b"_s;
    QTest::newRow("em space") << u"https://a.example/b\u2003c"_s << u"https://a.example/b"_s;
    QTest::newRow("ideographic space")
        << u"https://a.example/b\u3000c"_s << u"https://a.example/b"_s;
    QTest::newRow("line separator") << u"https://a.example/b\u2028c"_s << u"https://a.example/b"_s;
    QTest::newRow("paragraph separator")
        << u"https://a.example/b\u2029c"_s << u"https://a.example/b"_s;
    // Not white space to the matching rule: the address runs on.
    QTest::newRow("vertical tab") << u"https://a.example/b\u000Bc"_s
                                  << u"https://a.example/b\u000Bc"_s;
    QTest::newRow("next line") << u"https://a.example/b\u0085c"_s
                               << u"https://a.example/b\u0085c"_s;
    QTest::newRow("zero-width space")
        << u"https://a.example/b\u200Bc"_s << u"https://a.example/b\u200Bc"_s;
    QTest::newRow("emoji") << u"https://a.example/😀 x"_s << u"https://a.example/😀"_s;
    QTest::newRow("non-Latin host")
        << u"go to https://例え.jp/パス。"_s << u"https://例え.jp/パス。"_s;
    QTest::newRow("lone surrogate after")
        << u"https://a.example/b "_s + QChar(0xD800) << u"https://a.example/b"_s;
}

void tst_ClipboardURL::extract() {
    QFETCH(QString, text);
    QFETCH(QString, expected);
    const std::optional<QString> url = ClipboardURL::extract(text);
    if (expected.isNull()) {
        QVERIFY2(!url, qPrintable(url.value_or(QString())));
    } else {
        QVERIFY(url);
        QCOMPARE(*url, expected);
    }
}

QTEST_GUILESS_MAIN(tst_ClipboardURL)
#include "tst_ClipboardURL.moc"
