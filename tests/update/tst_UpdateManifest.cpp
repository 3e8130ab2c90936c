#include "update/UpdateManifest.h"

#include <QTest>

using namespace Qt::StringLiterals;

class tst_UpdateManifest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void parsesStrings();
    void ignoresOtherStringKeys();
    void failures_data();
    void failures();
};

void tst_UpdateManifest::parsesStrings() {
    const auto manifest = UpdateManifest::parse(
        R"({"version": "1.4.2", "download_url": "https://quillmar.app/download"})");
    QVERIFY(manifest);
    QCOMPARE(manifest->version, u"1.4.2"_s);
    QCOMPARE(manifest->downloadUrl, u"https://quillmar.app/download"_s);
}

void tst_UpdateManifest::ignoresOtherStringKeys() {
    const auto manifest = UpdateManifest::parse(
        R"({"notes": "Faster menus", "download_url": "", "version": "2.0", "date": "2026-01-01"})");
    QVERIFY(manifest);
    QCOMPARE(manifest->version, u"2.0"_s);
    QCOMPARE(manifest->downloadUrl, QString());
}

void tst_UpdateManifest::failures_data() {
    QTest::addColumn<QByteArray>("body");
    QTest::newRow("empty body") << QByteArray();
    QTest::newRow("white space") << QByteArray(" \n");
    QTest::newRow("not JSON") << QByteArray("version=2.0");
    QTest::newRow("HTML page") << QByteArray("<html><body>Not Found</body></html>");
    QTest::newRow("truncated object") << QByteArray(R"({"version": "2.0", "download_url": "htt)");
    QTest::newRow("trailing garbage") << QByteArray(R"({"version": "2.0", "download_url": ""} x)");
    QTest::newRow("array") << QByteArray(R"([{"version": "2.0", "download_url": ""}])");
    QTest::newRow("string") << QByteArray(R"("2.0")");
    QTest::newRow("number") << QByteArray("2");
    QTest::newRow("null") << QByteArray("null");
    QTest::newRow("empty object") << QByteArray("{}");
    QTest::newRow("version missing") << QByteArray(R"({"download_url": "https://x.test/"})");
    QTest::newRow("download_url missing") << QByteArray(R"({"version": "2.0"})");
    QTest::newRow("keys differ in case")
        << QByteArray(R"({"Version": "2.0", "Download_URL": "https://x.test/"})");
    QTest::newRow("numeric version")
        << QByteArray(R"({"version": 2.0, "download_url": "https://x.test/"})");
    QTest::newRow("null version") << QByteArray(
        R"({"version": null, "download_url": "https://x.test/"})");
    QTest::newRow("object download_url")
        << QByteArray(R"({"version": "2.0", "download_url": {"href": "https://x.test/"}})");
    QTest::newRow("extra number") << QByteArray(
        R"({"version": "2.0", "download_url": "https://x.test/", "build": 7})");
    QTest::newRow("extra boolean")
        << QByteArray(R"({"version": "2.0", "download_url": "https://x.test/", "beta": false})");
    QTest::newRow("extra null") << QByteArray(
        R"({"version": "2.0", "download_url": "https://x.test/", "notes": null})");
    QTest::newRow("extra array") << QByteArray(
        R"({"version": "2.0", "download_url": "https://x.test/", "mirrors": []})");
    QTest::newRow("extra object") << QByteArray(
        R"({"version": "2.0", "download_url": "https://x.test/", "meta": {}})");
}

void tst_UpdateManifest::failures() {
    QFETCH(QByteArray, body);
    QVERIFY(!UpdateManifest::parse(body));
}

QTEST_APPLESS_MAIN(tst_UpdateManifest)
#include "tst_UpdateManifest.moc"
