#include "menu/PageTitle.h"

#include <QTest>

using namespace Qt::StringLiterals;

class tst_PageTitle : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void extract_data();
    void extract();
    void prefixIgnoresCutCharacter();
    void prefixAgreesWithWholeBody_data();
    void prefixAgreesWithWholeBody();
    void mayEndTitle();
};

void tst_PageTitle::extract_data() {
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QString>("expected"); // null: no title

    QTest::newRow("plain") << QByteArray("<html><title>Hello</title></html>") << u"Hello"_s;
    QTest::newRow("upper-case tags") << QByteArray("<TITLE>Hello</TITLE>") << u"Hello"_s;
    QTest::newRow("mixed-case tags with attributes")
        << QByteArray("<Title lang=\"en\" data-x='1'>Hello</tItLe>") << u"Hello"_s;
    QTest::newRow("trimmed") << QByteArray("<title>\n   Hello  world \r\n\t</title>")
                             << u"Hello  world"_s;
    QTest::newRow("white space only gives an empty title")
        << QByteArray("<title> \n </title>") << u""_s;
    QTest::newRow("empty element") << QByteArray("<title></title>") << QString();
    QTest::newRow("no element") << QByteArray("<html><body>x</body></html>") << QString();
    QTest::newRow("unclosed") << QByteArray("<title>Hello") << QString();
    QTest::newRow("markup inside") << QByteArray("<title>a<b>c</b></title>") << QString();
    QTest::newRow("first of two") << QByteArray("<title>One</title><title>Two</title>") << u"One"_s;
    QTest::newRow("empty first, then another")
        << QByteArray("<title></title><title>Two</title>") << u"Two"_s;
    QTest::newRow("ampersand entity")
        << QByteArray("<title>Fish &amp; Chips</title>") << u"Fish & Chips"_s;
    QTest::newRow("escaped reference") << QByteArray("<title>a &amp;lt; b</title>") << u"a < b"_s;
    QTest::newRow("numeric entities")
        << QByteArray("<title>A&#8212;B &#x2014;</title>") << u"A—B &#x2014;"_s;
    QTest::newRow("trimmed before decoding")
        << QByteArray("<title>&nbsp;Spaced&nbsp;</title>") << u" Spaced "_s;
    QTest::newRow("UTF-8") << QByteArray("<title>Caf\xC3\xA9 \xF0\x9F\x98\x80</title>")
                           << u"Café 😀"_s;
    QTest::newRow("Latin-1") << QByteArray("<title>Caf\xE9</title>") << u"Café"_s;
    QTest::newRow("invalid UTF-8 after the title makes it Latin-1")
        << QByteArray("<title>Caf\xC3\xA9</title>\xFF") << u"CafÃ©"_s;
    QTest::newRow("title across lines") << QByteArray("<title>a\nb</title>") << u"a\nb"_s;
    QTest::newRow("NUL bytes around") << QByteArray("\0<title>x</title>\0", 19) << u"x"_s;
}

void tst_PageTitle::extract() {
    QFETCH(QByteArray, body);
    QFETCH(QString, expected);
    const std::optional<QString> title = PageTitle::extract(body);
    if (expected.isNull()) {
        QVERIFY2(!title, qPrintable(title.value_or(QString())));
    } else {
        QVERIFY(title);
        QCOMPARE(*title, expected);
    }
}

void tst_PageTitle::prefixIgnoresCutCharacter() {
    // The read stopped in the middle of "é" after the title: the text is still UTF-8.
    const QByteArray prefix("<title>Caf\xC3\xA9</title><p>\xC3");
    QCOMPARE(PageTitle::extractFromPrefix(prefix), std::optional<QString>(u"Café"_s));
    // As a whole body the same bytes are not UTF-8.
    QCOMPARE(PageTitle::extract(prefix), std::optional<QString>(u"CafÃ©"_s));
    // Cut inside a four-byte character, at each of its bytes.
    const QByteArray emoji("\xF0\x9F\x98\x80");
    for (int kept = 1; kept < 4; ++kept) {
        const QByteArray cut = QByteArray("<title>\xC3\xA9</title>") + emoji.left(kept);
        QCOMPARE(PageTitle::extractFromPrefix(cut), std::optional<QString>(u"é"_s));
    }
    // Invalid bytes that are not a cut character keep the Latin-1 reading.
    for (const QByteArray& invalid :
         {QByteArray("\xFF"), QByteArray("\xF5\x80"), QByteArray("\xE0\x80"),
          QByteArray("\xED\xA0"), QByteArray("\xC0"), QByteArray("\x80")}) {
        QCOMPARE(PageTitle::extractFromPrefix(QByteArray("<title>Caf\xC3\xA9</title>") + invalid),
                 std::optional<QString>(u"CafÃ©"_s));
    }
}

void tst_PageTitle::prefixAgreesWithWholeBody_data() {
    QTest::addColumn<QByteArray>("body");
    QTest::newRow("simple") << QByteArray("<html><head><title>Hello</title></head></html>");
    QTest::newRow("attributes and case")
        << QByteArray("<TITLE class=\"a>b\">x</TITLE><title>y</title>");
    QTest::newRow("first element empty")
        << QByteArray("<title></title><title >\xC3\xA9t\xC3\xA9 \xF0\x9F\x98\x80</title>z");
    QTest::newRow("unfinished tags before")
        << QByteArray("<title x <title>a</title ><title>b</title>");
    QTest::newRow("no title") << QByteArray("<title>a</titl><p>\xE2\x82\xAC</p>");
}

void tst_PageTitle::prefixAgreesWithWholeBody() {
    // Stopping the read once a title is found gives the title of the whole page.
    QFETCH(QByteArray, body);
    const std::optional<QString> whole = PageTitle::extract(body);
    for (qsizetype length = 0; length <= body.size(); ++length) {
        const std::optional<QString> early = PageTitle::extractFromPrefix(body.left(length));
        if (early)
            QCOMPARE(early, whole);
    }
    QCOMPARE(PageTitle::extractFromPrefix(body), whole);
}

void tst_PageTitle::mayEndTitle() {
    QVERIFY(PageTitle::mayEndTitle("abc</title>", 0));
    QVERIFY(PageTitle::mayEndTitle("abc</TiTlE", 0));
    QVERIFY(PageTitle::mayEndTitle("abc</title", 3));
    QVERIFY(!PageTitle::mayEndTitle("abc</title", 4));
    QVERIFY(!PageTitle::mayEndTitle("abc</titl", 0));
    QVERIFY(!PageTitle::mayEndTitle("<title>", 0));
    QVERIFY(PageTitle::mayEndTitle("</title>", -7));
    QVERIFY(!PageTitle::mayEndTitle("", 0));
}

QTEST_GUILESS_MAIN(tst_PageTitle)
#include "tst_PageTitle.moc"
