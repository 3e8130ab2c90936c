#include "service/HtmlEntities.h"

#include <QTest>

using namespace Qt::StringLiterals;

class tst_HtmlEntities : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void decodes_data();
    void decodes();
};

void tst_HtmlEntities::decodes_data() {
    QTest::addColumn<QString>("input");
    QTest::addColumn<QString>("expected");

    QTest::newRow("plain text") << u"Plain title"_s << u"Plain title"_s;
    QTest::newRow("empty") << QString() << QString();

    // The seven fixed references.
    QTest::newRow("amp") << u"Fish &amp; Chips"_s << u"Fish & Chips"_s;
    QTest::newRow("lt") << u"a &lt; b"_s << u"a < b"_s;
    QTest::newRow("gt") << u"a &gt; b"_s << u"a > b"_s;
    QTest::newRow("quot") << u"&quot;quoted&quot;"_s << u"\"quoted\""_s;
    QTest::newRow("#39") << u"it&#39;s"_s << u"it's"_s;
    QTest::newRow("apos") << u"it&apos;s"_s << u"it's"_s;
    QTest::newRow("nbsp is an ordinary space") << u"a&nbsp;b"_s << u"a b"_s;
    QTest::newRow("every occurrence") << u"&lt;&lt;&gt;&gt;"_s << u"<<>>"_s;

    // One pass per row, "&amp;" first: what the first row produces is seen by the later rows,
    // never by the first row again.
    QTest::newRow("double escaped amp stays once escaped")
        << u"Fish &amp;amp; Chips"_s << u"Fish &amp; Chips"_s;
    QTest::newRow("escaped lt decoded twice") << u"&amp;lt;b&amp;gt;"_s << u"<b>"_s;
    QTest::newRow("escaped nbsp decoded twice") << u"a&amp;nbsp;b"_s << u"a b"_s;
    QTest::newRow("escaped numeric decoded twice") << u"&amp;#65;"_s << u"A"_s;
    QTest::newRow("escaped #39 decoded twice") << u"&amp;#39;"_s << u"'"_s;
    // "&lt;" comes before "&quot;": "&lt;quot;" is not a quote reference once "&lt;" is gone.
    QTest::newRow("rows run in order") << u"&amp;lt;quot;"_s << u"<quot;"_s;
    QTest::newRow("case sensitive") << u"&AMP; &Lt; &NBSP;"_s << u"&AMP; &Lt; &NBSP;"_s;
    QTest::newRow("other named references stay")
        << u"&mdash; &copy; &hellip;"_s << u"&mdash; &copy; &hellip;"_s;
    QTest::newRow("without semicolon stays") << u"&amp &lt"_s << u"&amp &lt"_s;

    // Decimal references.
    QTest::newRow("em dash") << u"a&#8212;b"_s << u"a\u2014b"_s;
    QTest::newRow("two in a row") << u"&#65;&#66;"_s << u"AB"_s;
    QTest::newRow("leading zeros") << u"&#00065;"_s << u"A"_s;
    QTest::newRow("zero") << u"&#0;"_s << QString(QChar(0));
    QTest::newRow("supplementary plane") << u"&#128512;"_s << u"\U0001F600"_s;
    QTest::newRow("highest code point") << u"&#1114111;"_s << u"\U0010FFFF"_s;
    QTest::newRow("one past the highest stays") << u"&#1114112;"_s << u"&#1114112;"_s;
    QTest::newRow("first surrogate stays") << u"&#55296;"_s << u"&#55296;"_s;
    QTest::newRow("last surrogate stays") << u"&#57343;"_s << u"&#57343;"_s;
    QTest::newRow("around the surrogates")
        << u"&#55295;&#57344;"_s << QString(QChar(0xD7FF)) + QChar(0xE000);
    QTest::newRow("overflow stays") << u"&#99999999999;"_s << u"&#99999999999;"_s;
    QTest::newRow("32-bit maximum stays") << u"&#4294967295;"_s << u"&#4294967295;"_s;
    QTest::newRow("one past 32 bits stays") << u"&#4294967296;"_s << u"&#4294967296;"_s;
    QTest::newRow("hexadecimal stays") << u"&#x2014;"_s << u"&#x2014;"_s;
    QTest::newRow("no digits stays") << u"&#;"_s << u"&#;"_s;
    QTest::newRow("negative stays") << u"&#-65;"_s << u"&#-65;"_s;
    QTest::newRow("skipped ones keep their place")
        << u"&#65;&#55296;&#66;&#99999999999;&#67;"_s << u"A&#55296;B&#99999999999;C"_s;
    // A replacement of two UTF-16 units before a later one must not shift where the later one
    // lands: the matches are walked from the last to the first.
    QTest::newRow("wide replacements before others")
        << u"&#128512;x&#128513;y&#65;"_s << u"\U0001F600x\U0001F601yA"_s;
    QTest::newRow("after non-BMP text") << u"\U0001F600 &#233;t&#233;"_s << u"\U0001F600 été"_s;
    // Digits that are not ASCII do not form a reference.
    QTest::newRow("arabic-indic digits stay") << u"&#\u0664\u0665;"_s << u"&#\u0664\u0665;"_s;
    QTest::newRow("mixed") << u"Tom &amp; Jerry&#39;s &lt;Show&gt; &#8212; S01"_s
                           << u"Tom & Jerry's <Show> \u2014 S01"_s;
}

void tst_HtmlEntities::decodes() {
    QFETCH(QString, input);
    QFETCH(QString, expected);
    QCOMPARE(decodingHTMLEntities(input), expected);
}

QTEST_MAIN(tst_HtmlEntities)
#include "tst_HtmlEntities.moc"
