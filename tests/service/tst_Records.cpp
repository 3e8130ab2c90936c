#include "service/ListEnvelope.h"

#include <QTest>

using namespace Qt::StringLiterals;

namespace {

// One bookmark inside a list answer; "fields" is the inside of the bookmark object.
std::optional<QList<Raindrop>> decodeBookmarks(const QByteArray& fields) {
    const auto envelope = RaindropsResponse::decode("{\"items\": [{" + fields + "}]}");
    if (!envelope)
        return std::nullopt;
    return envelope->items;
}

std::optional<Raindrop> decodeBookmark(const QByteArray& fields) {
    const auto items = decodeBookmarks(fields);
    if (!items || items->size() != 1)
        return std::nullopt;
    return items->first();
}

const QByteArray minimalBookmark = R"("_id": 1, "title": "T", "link": "https://example.com/")";

} // namespace

class tst_Records : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void bookmarkMinimal();
    void bookmarkAllFields();
    void bookmarkCollectionId_data();
    void bookmarkCollectionId();
    void bookmarkImportant_data();
    void bookmarkImportant();
    void bookmarkExcerpt_data();
    void bookmarkExcerpt();
    void bookmarkRequiredFields_data();
    void bookmarkRequiredFields();
    void realisticBookmarkAnswer();
    void realisticCollectionsAnswer();
    void realisticTagsAnswer();
    void collectionFields_data();
    void collectionFields();
    void tagFields_data();
    void tagFields();
    void idsAreExact_data();
    void idsAreExact();
    void numbersInFloatingPointForm_data();
    void numbersInFloatingPointForm();
    void envelope_data();
    void envelope();
    void oneBadElementFailsTheList_data();
    void oneBadElementFailsTheList();
    void itemsKeepTheirOrder();
    void keysAreCaseSensitive();
};

void tst_Records::bookmarkMinimal() {
    const auto raindrop = decodeBookmark(minimalBookmark);
    QVERIFY(raindrop);
    QCOMPARE(raindrop->id, 1);
    QCOMPARE(raindrop->title, u"T"_s);
    QCOMPARE(raindrop->link, u"https://example.com/"_s);
    QCOMPARE(raindrop->excerpt, std::nullopt);
    QCOMPARE(raindrop->important, false);
    QCOMPARE(raindrop->collectionId, -1);
}

void tst_Records::bookmarkAllFields() {
    const auto raindrop = decodeBookmark(
        R"("_id": 1234567890, "title": "Qt \u00e9t\u00e9 \ud83d\ude00", "link": "not even a URL",
           "excerpt": "Some text", "important": true, "collection": {"$id": 42})");
    QVERIFY(raindrop);
    QCOMPARE(raindrop->id, 1234567890);
    QCOMPARE(raindrop->title, u"Qt été \U0001F600"_s);
    // The link is kept as the text it is; nothing checks or normalises it.
    QCOMPARE(raindrop->link, u"not even a URL"_s);
    QCOMPARE(raindrop->excerpt, u"Some text"_s);
    QCOMPARE(raindrop->important, true);
    QCOMPARE(raindrop->collectionId, 42);
}

void tst_Records::bookmarkCollectionId_data() {
    QTest::addColumn<QByteArray>("collection");
    QTest::addColumn<qint64>("expected");

    QTest::newRow("missing") << QByteArray() << qint64(-1);
    QTest::newRow("null") << QByteArray(R"(, "collection": null)") << qint64(-1);
    QTest::newRow("number") << QByteArray(R"(, "collection": 5)") << qint64(-1);
    QTest::newRow("text") << QByteArray(R"(, "collection": "5")") << qint64(-1);
    QTest::newRow("array") << QByteArray(R"(, "collection": [{"$id": 5}])") << qint64(-1);
    QTest::newRow("bool") << QByteArray(R"(, "collection": true)") << qint64(-1);
    QTest::newRow("empty object") << QByteArray(R"(, "collection": {})") << qint64(-1);
    QTest::newRow("$id null") << QByteArray(R"(, "collection": {"$id": null})") << qint64(-1);
    QTest::newRow("$id text") << QByteArray(R"(, "collection": {"$id": "x"})") << qint64(-1);
    QTest::newRow("$id numeric text")
        << QByteArray(R"(, "collection": {"$id": "42"})") << qint64(-1);
    QTest::newRow("$id bool") << QByteArray(R"(, "collection": {"$id": true})") << qint64(-1);
    QTest::newRow("$id object") << QByteArray(R"(, "collection": {"$id": {}})") << qint64(-1);
    QTest::newRow("$id fraction") << QByteArray(R"(, "collection": {"$id": 4.5})") << qint64(-1);
    QTest::newRow("$id beyond 64 bits")
        << QByteArray(R"(, "collection": {"$id": 18446744073709551616})") << qint64(-1);
    QTest::newRow("only oid") << QByteArray(R"(, "collection": {"oid": 42})") << qint64(-1);
    QTest::newRow("$id 42") << QByteArray(R"(, "collection": {"$id": 42})") << qint64(42);
    QTest::newRow("$id 0") << QByteArray(R"(, "collection": {"$id": 0})") << qint64(0);
    QTest::newRow("unsorted") << QByteArray(R"(, "collection": {"$id": -1})") << qint64(-1);
    QTest::newRow("trash") << QByteArray(R"(, "collection": {"$id": -99})") << qint64(-99);
    QTest::newRow("service shape")
        << QByteArray(R"(, "collection": {"$ref": "collections", "$id": 1512345678, "oid": 7})")
        << qint64(1512345678);
    QTest::newRow("$id beyond 2^53")
        << QByteArray(R"(, "collection": {"$id": 9007199254740993})") << qint64(9007199254740993);
}

void tst_Records::bookmarkCollectionId() {
    QFETCH(QByteArray, collection);
    QFETCH(qint64, expected);
    const auto raindrop = decodeBookmark(minimalBookmark + collection);
    QVERIFY(raindrop);
    QCOMPARE(raindrop->collectionId, expected);
}

void tst_Records::bookmarkImportant_data() {
    QTest::addColumn<QByteArray>("important");
    QTest::addColumn<bool>("decodes");
    QTest::addColumn<bool>("expected");

    QTest::newRow("missing") << QByteArray() << true << false;
    QTest::newRow("null") << QByteArray(R"(, "important": null)") << true << false;
    QTest::newRow("true") << QByteArray(R"(, "important": true)") << true << true;
    QTest::newRow("false") << QByteArray(R"(, "important": false)") << true << false;
    QTest::newRow("text") << QByteArray(R"(, "important": "true")") << false << false;
    QTest::newRow("number") << QByteArray(R"(, "important": 1)") << false << false;
    QTest::newRow("object") << QByteArray(R"(, "important": {})") << false << false;
}

void tst_Records::bookmarkImportant() {
    QFETCH(QByteArray, important);
    QFETCH(bool, decodes);
    QFETCH(bool, expected);
    const auto raindrop = decodeBookmark(minimalBookmark + important);
    QCOMPARE(bool(raindrop), decodes);
    if (raindrop)
        QCOMPARE(raindrop->important, expected);
}

void tst_Records::bookmarkExcerpt_data() {
    QTest::addColumn<QByteArray>("excerpt");
    QTest::addColumn<bool>("decodes");
    QTest::addColumn<std::optional<QString>>("expected");

    QTest::newRow("missing") << QByteArray() << true << std::optional<QString>();
    QTest::newRow("null") << QByteArray(R"(, "excerpt": null)") << true << std::optional<QString>();
    // The service usually sends an empty text: that is an excerpt, an empty one.
    QTest::newRow("empty") << QByteArray(R"(, "excerpt": "")") << true
                           << std::optional<QString>(QString(u""_s));
    QTest::newRow("text") << QByteArray(R"(, "excerpt": "x")") << true
                          << std::optional<QString>(u"x"_s);
    QTest::newRow("number") << QByteArray(R"(, "excerpt": 3)") << false << std::optional<QString>();
    QTest::newRow("bool") << QByteArray(R"(, "excerpt": false)") << false
                          << std::optional<QString>();
    QTest::newRow("array") << QByteArray(R"(, "excerpt": ["x"])") << false
                           << std::optional<QString>();
}

void tst_Records::bookmarkExcerpt() {
    QFETCH(QByteArray, excerpt);
    QFETCH(bool, decodes);
    QFETCH(std::optional<QString>, expected);
    const auto raindrop = decodeBookmark(minimalBookmark + excerpt);
    QCOMPARE(bool(raindrop), decodes);
    if (raindrop) {
        QCOMPARE(raindrop->excerpt.has_value(), expected.has_value());
        if (expected) {
            QCOMPARE(*raindrop->excerpt, *expected);
            QVERIFY(!raindrop->excerpt->isNull());
        }
    }
}

void tst_Records::bookmarkRequiredFields_data() {
    QTest::addColumn<QByteArray>("fields");

    QTest::newRow("no _id") << QByteArray(R"("title": "T", "link": "L")");
    QTest::newRow("_id null") << QByteArray(R"("_id": null, "title": "T", "link": "L")");
    QTest::newRow("_id text") << QByteArray(R"("_id": "1", "title": "T", "link": "L")");
    QTest::newRow("_id fraction") << QByteArray(R"("_id": 1.5, "title": "T", "link": "L")");
    QTest::newRow("_id beyond 64 bits")
        << QByteArray(R"("_id": 9223372036854775808, "title": "T", "link": "L")");
    QTest::newRow("no title") << QByteArray(R"("_id": 1, "link": "L")");
    QTest::newRow("title null") << QByteArray(R"("_id": 1, "title": null, "link": "L")");
    QTest::newRow("title number") << QByteArray(R"("_id": 1, "title": 5, "link": "L")");
    QTest::newRow("no link") << QByteArray(R"("_id": 1, "title": "T")");
    QTest::newRow("link null") << QByteArray(R"("_id": 1, "title": "T", "link": null)");
    QTest::newRow("link object") << QByteArray(R"("_id": 1, "title": "T", "link": {})");
}

void tst_Records::bookmarkRequiredFields() {
    QFETCH(QByteArray, fields);
    QCOMPARE(decodeBookmarks(fields), std::nullopt);
}

void tst_Records::realisticBookmarkAnswer() {
    // Shaped like the service's own answers: many keys beside the ones read, "important"
    // missing, "excerpt" empty, "creatorRef" as an object in one and a bare number in the other.
    const QByteArray body = R"({
  "result": true,
  "items": [
    {
      "_id": 1598765432,
      "link": "https://doc.qt.io/qt-6/qnetworkaccessmanager.html",
      "title": "QNetworkAccessManager Class | Qt Network 6.4",
      "excerpt": "",
      "note": "",
      "type": "link",
      "user": {"$ref": "users", "$id": 123456},
      "cover": "",
      "media": [],
      "tags": ["qt", "network"],
      "highlights": [],
      "domain": "doc.qt.io",
      "creatorRef": {"_id": 123456, "name": "someone", "avatar": "", "email": ""},
      "sort": 1598765432,
      "broken": false,
      "lastUpdate": "2023-05-01T10:00:00.000Z",
      "created": "2023-05-01T10:00:00.000Z",
      "collection": {"$ref": "collections", "$id": 1512345678, "oid": 1512345678},
      "collectionId": 1512345678,
      "__v": 0
    },
    {
      "_id": 1598765433,
      "link": "https://example.com/",
      "title": "Example &amp; more",
      "excerpt": "An example",
      "important": true,
      "creatorRef": 123456,
      "collection": {"$ref": "collections", "$id": -1, "oid": -1},
      "__v": 0
    }
  ],
  "count": 2,
  "collectionId": 0
})";
    const auto envelope = RaindropsResponse::decode(body);
    QVERIFY(envelope);
    QCOMPARE(envelope->items.size(), 2);

    const Raindrop first = envelope->items.at(0);
    QCOMPARE(first.id, 1598765432);
    QCOMPARE(first.title, u"QNetworkAccessManager Class | Qt Network 6.4"_s);
    QCOMPARE(first.link, u"https://doc.qt.io/qt-6/qnetworkaccessmanager.html"_s);
    QCOMPARE(first.excerpt, u""_s);
    QCOMPARE(first.important, false);
    QCOMPARE(first.collectionId, 1512345678);

    const Raindrop second = envelope->items.at(1);
    QCOMPARE(second.id, 1598765433);
    // Titles of the service are not entity-decoded: that is for fetched page titles only.
    QCOMPARE(second.title, u"Example &amp; more"_s);
    QCOMPARE(second.excerpt, u"An example"_s);
    QCOMPARE(second.important, true);
    QCOMPARE(second.collectionId, -1);
}

void tst_Records::realisticCollectionsAnswer() {
    const QByteArray body = R"({"result": true, "items": [
      {"_id": 1512345678, "title": "Reading", "count": 12, "public": false, "view": "list",
       "access": {"level": 4, "draggable": true}, "sort": 3, "expanded": true,
       "user": {"$ref": "users", "$id": 123456}, "creatorRef": {"_id": 123456, "name": "x"},
       "parent": {"$ref": "collections", "$id": 1500000000}, "cover": [], "color": "#ff0000",
       "lastAction": "2023-05-01T10:00:00.000Z", "created": "2023-01-01T10:00:00.000Z",
       "__v": 0},
      {"_id": 1512345679, "title": "", "count": 0, "creatorRef": 123456}
    ]})";
    const auto envelope = CollectionsResponse::decode(body);
    QVERIFY(envelope);
    QCOMPARE(envelope->items,
             (QList<Collection>{{1512345678, u"Reading"_s, 12}, {1512345679, u""_s, 0}}));
}

void tst_Records::realisticTagsAnswer() {
    const QByteArray body =
        R"({"result": true, "items": [{"_id": "reading", "count": 3}, {"_id": "qt", "count": 17}]})";
    const auto envelope = TagsResponse::decode(body);
    QVERIFY(envelope);
    QCOMPARE(envelope->items, (QList<Tag>{{u"reading"_s, 3}, {u"qt"_s, 17}}));
}

void tst_Records::collectionFields_data() {
    QTest::addColumn<QByteArray>("element");
    QTest::addColumn<bool>("decodes");

    QTest::newRow("complete") << QByteArray(R"({"_id": 1, "title": "A", "count": 0})") << true;
    QTest::newRow("negative count")
        << QByteArray(R"({"_id": -1, "title": "A", "count": -3})") << true;
    QTest::newRow("no _id") << QByteArray(R"({"title": "A", "count": 0})") << false;
    QTest::newRow("_id text") << QByteArray(R"({"_id": "1", "title": "A", "count": 0})") << false;
    QTest::newRow("no title") << QByteArray(R"({"_id": 1, "count": 0})") << false;
    QTest::newRow("title null") << QByteArray(R"({"_id": 1, "title": null, "count": 0})") << false;
    QTest::newRow("no count") << QByteArray(R"({"_id": 1, "title": "A"})") << false;
    QTest::newRow("count null") << QByteArray(R"({"_id": 1, "title": "A", "count": null})")
                                << false;
    QTest::newRow("count text") << QByteArray(R"({"_id": 1, "title": "A", "count": "3"})") << false;
    QTest::newRow("count fraction")
        << QByteArray(R"({"_id": 1, "title": "A", "count": 0.5})") << false;
    QTest::newRow("not an object") << QByteArray(R"([1, "A", 0])") << false;
    QTest::newRow("null element") << QByteArray("null") << false;
}

void tst_Records::collectionFields() {
    QFETCH(QByteArray, element);
    QFETCH(bool, decodes);
    QCOMPARE(bool(CollectionsResponse::decode("{\"items\": [" + element + "]}")), decodes);
}

void tst_Records::tagFields_data() {
    QTest::addColumn<QByteArray>("element");
    QTest::addColumn<bool>("decodes");

    QTest::newRow("complete") << QByteArray(R"({"_id": "reading", "count": 3})") << true;
    QTest::newRow("no count") << QByteArray(R"({"_id": "reading"})") << false;
    QTest::newRow("count null") << QByteArray(R"({"_id": "reading", "count": null})") << false;
    QTest::newRow("count text") << QByteArray(R"({"_id": "reading", "count": "3"})") << false;
    QTest::newRow("no _id") << QByteArray(R"({"count": 3})") << false;
    QTest::newRow("_id number") << QByteArray(R"({"_id": 7, "count": 3})") << false;
    // The tag's text is under "_id"; a "name" key is not read.
    QTest::newRow("name instead of _id")
        << QByteArray(R"({"name": "reading", "count": 3})") << false;
}

void tst_Records::tagFields() {
    QFETCH(QByteArray, element);
    QFETCH(bool, decodes);
    const auto envelope = TagsResponse::decode("{\"items\": [" + element + "]}");
    QCOMPARE(bool(envelope), decodes);
    if (envelope)
        QCOMPARE(envelope->items, (QList<Tag>{{u"reading"_s, 3}}));
}

void tst_Records::idsAreExact_data() {
    QTest::addColumn<QByteArray>("number");
    QTest::addColumn<qint64>("expected");

    QTest::newRow("2^53 + 1") << QByteArray("9007199254740993") << qint64(9007199254740993);
    QTest::newRow("-(2^53 + 1)") << QByteArray("-9007199254740993") << qint64(-9007199254740993);
    QTest::newRow("2^63 - 1") << QByteArray("9223372036854775807")
                              << std::numeric_limits<qint64>::max();
    QTest::newRow("-2^63") << QByteArray("-9223372036854775808")
                           << std::numeric_limits<qint64>::min();
    QTest::newRow("service size") << QByteArray("1512345678") << qint64(1512345678);
}

void tst_Records::idsAreExact() {
    QFETCH(QByteArray, number);
    QFETCH(qint64, expected);

    const auto raindrop = decodeBookmark(R"("_id": )" + number + R"(, "title": "T", "link": "L",
        "collection": {"$id": )" + number +
                                         "}");
    QVERIFY(raindrop);
    QCOMPARE(raindrop->id, expected);
    QCOMPARE(raindrop->collectionId, expected);

    const auto collections =
        CollectionsResponse::decode(R"({"items": [{"_id": )" + number + R"(, "title": "A",
        "count": )" + number + "}]}");
    QVERIFY(collections);
    QCOMPARE(collections->items.first().id, expected);
    QCOMPARE(collections->items.first().count, expected);

    const auto tags = TagsResponse::decode(R"({"items": [{"_id": "t", "count": )" + number + "}]}");
    QVERIFY(tags);
    QCOMPARE(tags->items.first().count, expected);
}

void tst_Records::numbersInFloatingPointForm_data() {
    QTest::addColumn<QByteArray>("number");
    QTest::addColumn<bool>("decodes");
    QTest::addColumn<qint64>("expected");

    // A whole number written with a fraction or an exponent is that number.
    QTest::newRow("7.0") << QByteArray("7.0") << true << qint64(7);
    QTest::newRow("7e0") << QByteArray("7e0") << true << qint64(7);
    QTest::newRow("1.5e3") << QByteArray("1.5e3") << true << qint64(1500);
    QTest::newRow("-0.0") << QByteArray("-0.0") << true << qint64(0);
    QTest::newRow("2^53 - 1 as double")
        << QByteArray("9007199254740991.0") << true << qint64(9007199254740991);
    QTest::newRow("1e300") << QByteArray("1e300") << false << qint64(0);
    QTest::newRow("7.5") << QByteArray("7.5") << false << qint64(0);
    QTest::newRow("-0.5") << QByteArray("-0.5") << false << qint64(0);
}

void tst_Records::numbersInFloatingPointForm() {
    QFETCH(QByteArray, number);
    QFETCH(bool, decodes);
    QFETCH(qint64, expected);
    const auto raindrop = decodeBookmark(R"("_id": )" + number + R"(, "title": "T", "link": "L")");
    QCOMPARE(bool(raindrop), decodes);
    if (raindrop)
        QCOMPARE(raindrop->id, expected);
}

void tst_Records::envelope_data() {
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<bool>("decodes");
    QTest::addColumn<int>("count");

    QTest::newRow("empty items") << QByteArray(R"({"items": []})") << true << 0;
    QTest::newRow("extra keys") << QByteArray(R"({"result": true, "items": [], "count": 5,
        "collectionId": 0})") << true
                                << 0;
    QTest::newRow("one item") << QByteArray(R"({"items": [{"_id": 1, "title": "T",
        "link": "L"}]})") << true
                              << 1;
    QTest::newRow("no items") << QByteArray(R"({"result": true, "count": 0})") << false << 0;
    QTest::newRow("items null") << QByteArray(R"({"items": null})") << false << 0;
    QTest::newRow("items object") << QByteArray(R"({"items": {}})") << false << 0;
    QTest::newRow("items text") << QByteArray(R"({"items": "[]"})") << false << 0;
    QTest::newRow("top-level array") << QByteArray("[]") << false << 0;
    QTest::newRow("top-level number") << QByteArray("5") << false << 0;
    QTest::newRow("empty body") << QByteArray() << false << 0;
    QTest::newRow("truncated") << QByteArray(R"({"items": [{"_id": 1, "tit)") << false << 0;
    QTest::newRow("trailing garbage") << QByteArray(R"({"items": []} x)") << false << 0;
    QTest::newRow("html") << QByteArray("<html><body>Bad Gateway</body></html>") << false << 0;
    QTest::newRow("binary") << QByteArray("\x00\xff\xfe{\"items\":[]}", 16) << false << 0;
}

void tst_Records::envelope() {
    QFETCH(QByteArray, body);
    QFETCH(bool, decodes);
    QFETCH(int, count);
    const auto envelope = RaindropsResponse::decode(body);
    QCOMPARE(bool(envelope), decodes);
    if (envelope)
        QCOMPARE(envelope->items.size(), count);
    QCOMPARE(bool(CollectionsResponse::decode(body)), decodes && count == 0);
    QCOMPARE(bool(TagsResponse::decode(body)), decodes && count == 0);
}

void tst_Records::oneBadElementFailsTheList_data() {
    QTest::addColumn<QByteArray>("body");

    const QByteArray good = R"({"_id": 1, "title": "T", "link": "L"})";
    QTest::newRow("bad first") << QByteArray(R"({"items": [{"_id": 1}, )" + good + "]}");
    QTest::newRow("bad middle") << QByteArray(R"({"items": [)" + good + R"(, {"_id": 2, "title":
        "T", "link": "L", "important": "yes"}, )" +
                                              good + "]}");
    QTest::newRow("bad last") << QByteArray(R"({"items": [)" + good + ", " + good +
                                            R"(, {"_id": 3, "link": "L"}]})");
    QTest::newRow("null element") << QByteArray(R"({"items": [)" + good + ", null]}");
    QTest::newRow("number element") << QByteArray(R"({"items": [)" + good + ", 5]}");
}

void tst_Records::oneBadElementFailsTheList() {
    QFETCH(QByteArray, body);
    QCOMPARE(RaindropsResponse::decode(body).has_value(), false);
}

void tst_Records::itemsKeepTheirOrder() {
    const auto envelope = CollectionsResponse::decode(
        R"({"items": [{"_id": 3, "title": "c", "count": 1}, {"_id": 1, "title": "a", "count": 9},
                      {"_id": 2, "title": "b", "count": 5}]})");
    QVERIFY(envelope);
    QCOMPARE(envelope->items, (QList<Collection>{{3, u"c"_s, 1}, {1, u"a"_s, 9}, {2, u"b"_s, 5}}));
}

void tst_Records::keysAreCaseSensitive() {
    QVERIFY(!RaindropsResponse::decode(R"({"Items": []})"));
    QVERIFY(!RaindropsResponse::decode(R"({"items": [{"_ID": 1, "title": "T", "link": "L"}]})"));
    const auto raindrop = decodeBookmark(minimalBookmark + R"(, "Important": true,
        "Collection": {"$id": 4}, "collection": {"$ID": 5})");
    QVERIFY(raindrop);
    QCOMPARE(raindrop->important, false);
    QCOMPARE(raindrop->collectionId, -1);
}

QTEST_MAIN(tst_Records)
#include "tst_Records.moc"
