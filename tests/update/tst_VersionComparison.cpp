#include "update/VersionComparison.h"

#include <QTest>

using namespace Qt::StringLiterals;

class tst_VersionComparison : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void compare_data();
    void compare();
    void isNewer_data();
    void isNewer();
};

void tst_VersionComparison::compare_data() {
    QTest::addColumn<QString>("a");
    QTest::addColumn<QString>("b");
    QTest::addColumn<int>("expected"); // -1, 0 or 1

    const QString longRun = u"1."_s + QString(400, u'9');
    const QString longerRun = u"1.1"_s + QString(400, u'0');

    QTest::newRow("runs by value") << u"1.10"_s << u"1.9"_s << 1;
    QTest::newRow("runs by value, reversed") << u"1.9"_s << u"1.10"_s << -1;
    QTest::newRow("equal") << u"2.0"_s << u"2.0"_s << 0;
    QTest::newRow("no padding of missing parts") << u"1.2.0"_s << u"1.2"_s << 1;
    QTest::newRow("shorter is smaller") << u"1.2"_s << u"1.2.0"_s << -1;
    QTest::newRow("major wins") << u"2.0"_s << u"1.99.99"_s << 1;
    QTest::newRow("patch") << u"1.4.2"_s << u"1.4.10"_s << -1;
    QTest::newRow("both empty") << QString() << QString() << 0;
    QTest::newRow("empty before anything") << QString() << u"0"_s << -1;
    QTest::newRow("anything after empty") << u"0.0.1"_s << QString() << 1;
    QTest::newRow("leading zeros ignored") << u"1.01"_s << u"1.1"_s << 0;
    QTest::newRow("leading zeros, then the rest decides") << u"1.01.2"_s << u"1.1.1"_s << 1;
    QTest::newRow("only zeros") << u"000"_s << u"0"_s << 0;
    QTest::newRow("zero run against larger") << u"1.00"_s << u"1.1"_s << -1;
    QTest::newRow("letters by code") << u"1.0a"_s << u"1.0b"_s << -1;
    QTest::newRow("no case folding") << u"1.0B"_s << u"1.0a"_s << -1;
    QTest::newRow("digit against letter by code") << u"1.0.1"_s << u"1.0.a"_s << -1;
    QTest::newRow("dot against dash by code") << u"1-2"_s << u"1.2"_s << -1;
    QTest::newRow("suffix makes it longer") << u"1.0-beta"_s << u"1.0"_s << 1;
    QTest::newRow("text before numbers") << u"v10"_s << u"v9"_s << 1;
    QTest::newRow("beyond 64 bits") << u"18446744073709551616"_s << u"18446744073709551615"_s << 1;
    QTest::newRow("beyond 64 bits, equal")
        << u"99999999999999999999999"_s << u"99999999999999999999999"_s << 0;
    QTest::newRow("very long runs by length") << longerRun << longRun << 1;
    QTest::newRow("very long runs by digits")
        << (u"1."_s + QString(399, u'9') + u'8') << longRun << -1;
    QTest::newRow("very long run with leading zeros")
        << (u"1."_s + QString(300, u'0') + u"7"_s) << u"1.7"_s << 0;
    QTest::newRow("non-ASCII digits are characters")
        << u"1.\u0663"_s << u"1.9"_s << 1; // ARABIC-INDIC DIGIT THREE orders after '9'
    QTest::newRow("code points, not UTF-16 units")
        << u"1.\U0001F600"_s << u"1.\uFFFD"_s << 1; // a surrogate pair is below U+FFFD as units
}

void tst_VersionComparison::compare() {
    QFETCH(QString, a);
    QFETCH(QString, b);
    QFETCH(int, expected);
    const int order = VersionComparison::compare(a, b);
    QCOMPARE((order > 0) - (order < 0), expected);
    const int reversed = VersionComparison::compare(b, a);
    QCOMPARE((reversed > 0) - (reversed < 0), -expected);
}

void tst_VersionComparison::isNewer_data() {
    QTest::addColumn<QString>("candidate");
    QTest::addColumn<QString>("current");
    QTest::addColumn<bool>("newer");

    QTest::newRow("1.10 over 1.9") << u"1.10"_s << u"1.9"_s << true;
    QTest::newRow("1.9 under 1.10") << u"1.9"_s << u"1.10"_s << false;
    QTest::newRow("equal is not newer") << u"2.0"_s << u"2.0"_s << false;
    QTest::newRow("1.2.0 over 1.2") << u"1.2.0"_s << u"1.2"_s << true;
    QTest::newRow("older") << u"1.0.0"_s << u"1.0.1"_s << false;
    QTest::newRow("anything over 0.0.0") << u"0.0.1"_s << u"0.0.0"_s << true;
    QTest::newRow("0.0.0 itself") << u"0.0.0"_s << u"0.0.0"_s << false;
    QTest::newRow("leading zero is the same release") << u"1.01"_s << u"1.1"_s << false;
}

void tst_VersionComparison::isNewer() {
    QFETCH(QString, candidate);
    QFETCH(QString, current);
    QFETCH(bool, newer);
    QCOMPARE(VersionComparison::isNewer(candidate, current), newer);
}

QTEST_APPLESS_MAIN(tst_VersionComparison)
#include "tst_VersionComparison.moc"
