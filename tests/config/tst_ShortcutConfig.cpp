#include "config/ShortcutConfig.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

std::optional<ShortcutConfig> fromText(const QByteArray& json) {
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson("[" + json + "]", &error);
    if (error.error != QJsonParseError::NoError)
        qFatal("bad test data: %s", json.constData());
    return ShortcutConfig::fromJson(document.array().first());
}

} // namespace

class tst_ShortcutConfig : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void flagValues();
    void defaultShortcut();
    void displayString_data();
    void displayString();
    void fromJson_data();
    void fromJson();
    void toJson();
    void roundTrip_data();
    void roundTrip();
    void equality();
};

void tst_ShortcutConfig::flagValues() {
    QCOMPARE(ShortcutConfig::ControlFlag, 0x40000u);
    QCOMPARE(ShortcutConfig::OptionFlag, 0x80000u);
    QCOMPARE(ShortcutConfig::ShiftFlag, 0x20000u);
    QCOMPARE(ShortcutConfig::CommandFlag, 0x100000u);
    QCOMPARE(ShortcutConfig::ModifierMask, 0x1E0000u);
}

void tst_ShortcutConfig::defaultShortcut() {
    const ShortcutConfig shortcut = ShortcutConfig::defaultShortcut();
    QCOMPARE(shortcut.keyCode, 15);
    QCOMPARE(shortcut.modifierFlags, 0x180000u);
    QCOMPARE(shortcut.displayKey, u"R"_s);
    QCOMPARE(shortcut.displayString(), u"⌥⌘R"_s);
}

void tst_ShortcutConfig::displayString_data() {
    QTest::addColumn<quint64>("flags");
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("expected");

    QTest::newRow("all four") << quint64(0x1E0000) << u"K"_s << u"⌃⌥⇧⌘K"_s;
    QTest::newRow("none") << quint64(0) << u"F5"_s << u"F5"_s;
    QTest::newRow("option command") << quint64(0x180000) << u"R"_s << u"⌥⌘R"_s;
    QTest::newRow("control shift command") << quint64(0x160000) << u"K"_s << u"⌃⇧⌘K"_s;
    QTest::newRow("control") << quint64(0x40000) << u"A"_s << u"⌃A"_s;
    QTest::newRow("option") << quint64(0x80000) << u"A"_s << u"⌥A"_s;
    QTest::newRow("shift") << quint64(0x20000) << u"A"_s << u"⇧A"_s;
    QTest::newRow("command") << quint64(0x100000) << u"A"_s << u"⌘A"_s;
    QTest::newRow("control option") << quint64(0xC0000) << u"1"_s << u"⌃⌥1"_s;
    QTest::newRow("shift command") << quint64(0x120000) << u"Space"_s << u"⇧⌘Space"_s;
    // Bits outside the four are kept in the record but never shown.
    QTest::newRow("unknown bits only")
        << quint64(0x1 | 0x10000 | 0x200000 | (1ull << 40)) << u"X"_s << u"X"_s;
    QTest::newRow("unknown bits with command")
        << quint64(0x100000 | 0x800000 | 0x100) << u"X"_s << u"⌘X"_s;
    QTest::newRow("top bit") << quint64(0x8000000000040000ull) << u"X"_s << u"⌃X"_s;
    // The key is shown as it was captured, whatever it is.
    QTest::newRow("empty key") << quint64(0x100000) << QString() << u"⌘"_s;
    QTest::newRow("symbol key") << quint64(0x80000) << u"§"_s << u"⌥§"_s;
    QTest::newRow("emoji key") << quint64(0) << u"\U0001F600"_s << u"\U0001F600"_s;
    QTest::newRow("key that looks like a symbol") << quint64(0x40000) << u"⌘"_s << u"⌃⌘"_s;
}

void tst_ShortcutConfig::displayString() {
    QFETCH(quint64, flags);
    QFETCH(QString, key);
    QFETCH(QString, expected);
    // The key code plays no part in the text.
    for (std::uint16_t keyCode : {std::uint16_t(0), std::uint16_t(15), std::uint16_t(65535)})
        QCOMPARE((ShortcutConfig{keyCode, flags, key}.displayString()), expected);
}

void tst_ShortcutConfig::fromJson_data() {
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<bool>("decodes");
    QTest::addColumn<int>("keyCode");
    QTest::addColumn<quint64>("flags");
    QTest::addColumn<QString>("key");

    QTest::newRow("complete")
        << QByteArray(R"({"keyCode": 15, "modifierFlags": 1572864, "displayKey": "R"})") << true
        << 15 << quint64(0x180000) << u"R"_s;
    QTest::newRow("unknown keys ignored")
        << QByteArray(
               R"({"keyCode": 1, "modifierFlags": 0, "displayKey": "S", "keyName": "s", "x": [1]})")
        << true << 1 << quint64(0) << u"S"_s;
    QTest::newRow("keyCode 0") << QByteArray(R"({"keyCode": 0, "modifierFlags": 0,
        "displayKey": "A"})") << true
                               << 0 << quint64(0) << u"A"_s;
    QTest::newRow("keyCode 65535") << QByteArray(R"({"keyCode": 65535, "modifierFlags": 0,
        "displayKey": "A"})") << true
                                   << 65535 << quint64(0) << u"A"_s;
    QTest::newRow("unknown modifier bits kept")
        << QByteArray(R"({"keyCode": 15, "modifierFlags": 1099513200640, "displayKey": "R"})")
        << true << 15 << quint64(0x180000 | (1ull << 40)) << u"R"_s;
    QTest::newRow("largest flags") << QByteArray(R"({"keyCode": 15,
        "modifierFlags": 9223372036854775807, "displayKey": "R"})")
                                   << true << 15 << quint64(0x7FFFFFFFFFFFFFFF) << u"R"_s;
    QTest::newRow("empty displayKey") << QByteArray(R"({"keyCode": 15, "modifierFlags": 0,
        "displayKey": ""})") << true << 15
                                      << quint64(0) << QString();
    QTest::newRow("whole number with fraction") << QByteArray(R"({"keyCode": 15.0,
        "modifierFlags": 1572864.0, "displayKey": "R"})")
                                                << true << 15 << quint64(0x180000) << u"R"_s;

    const auto fails = [](const char* name, const char* json) {
        QTest::newRow(name) << QByteArray(json) << false << 0 << quint64(0) << QString();
    };
    fails("no displayKey", R"({"keyCode": 15, "modifierFlags": 0})");
    fails("no keyCode", R"({"modifierFlags": 0, "displayKey": "R"})");
    fails("no modifierFlags", R"({"keyCode": 15, "displayKey": "R"})");
    fails("displayKey null", R"({"keyCode": 15, "modifierFlags": 0, "displayKey": null})");
    fails("displayKey number", R"({"keyCode": 15, "modifierFlags": 0, "displayKey": 5})");
    fails("keyCode null", R"({"keyCode": null, "modifierFlags": 0, "displayKey": "R"})");
    fails("keyCode text", R"({"keyCode": "15", "modifierFlags": 0, "displayKey": "R"})");
    fails("keyCode bool", R"({"keyCode": true, "modifierFlags": 0, "displayKey": "R"})");
    fails("keyCode 65536", R"({"keyCode": 65536, "modifierFlags": 0, "displayKey": "R"})");
    fails("keyCode 1000000", R"({"keyCode": 1000000, "modifierFlags": 0, "displayKey": "R"})");
    fails("keyCode -1", R"({"keyCode": -1, "modifierFlags": 0, "displayKey": "R"})");
    fails("keyCode fraction", R"({"keyCode": 15.5, "modifierFlags": 0, "displayKey": "R"})");
    fails("keyCode 1e100", R"({"keyCode": 1e100, "modifierFlags": 0, "displayKey": "R"})");
    fails("modifierFlags -1", R"({"keyCode": 15, "modifierFlags": -1, "displayKey": "R"})");
    fails("modifierFlags most negative",
          R"({"keyCode": 15, "modifierFlags": -9223372036854775808, "displayKey": "R"})");
    fails("modifierFlags fraction",
          R"({"keyCode": 15, "modifierFlags": 1572864.5, "displayKey": "R"})");
    fails("modifierFlags text", R"({"keyCode": 15, "modifierFlags": "0", "displayKey": "R"})");
    fails("modifierFlags null", R"({"keyCode": 15, "modifierFlags": null, "displayKey": "R"})");
    fails("camel case only", R"({"key_code": 15, "modifier_flags": 0, "display_key": "R"})");
    fails("array", R"([15, 0, "R"])");
    fails("text", R"("⌥⌘R")");
    fails("number", "15");
    fails("null", "null");
    fails("empty object", "{}");
}

void tst_ShortcutConfig::fromJson() {
    QFETCH(QByteArray, json);
    QFETCH(bool, decodes);
    QFETCH(int, keyCode);
    QFETCH(quint64, flags);
    QFETCH(QString, key);
    const auto shortcut = fromText(json);
    QCOMPARE(shortcut.has_value(), decodes);
    if (shortcut) {
        QCOMPARE(shortcut->keyCode, keyCode);
        QCOMPARE(shortcut->modifierFlags, flags);
        QCOMPARE(shortcut->displayKey, key);
    }
}

void tst_ShortcutConfig::toJson() {
    const QJsonObject object = ShortcutConfig{65535, 0x1E0000 | (1ull << 40), u"K"_s}.toJson();
    QCOMPARE(object.keys(), (QStringList{u"displayKey"_s, u"keyCode"_s, u"modifierFlags"_s}));
    QCOMPARE(QJsonDocument(object).toJson(QJsonDocument::Compact),
             QByteArray(R"({"displayKey":"K","keyCode":65535,"modifierFlags":1099513593856})"));
}

void tst_ShortcutConfig::roundTrip_data() {
    QTest::addColumn<ShortcutConfig>("shortcut");
    QTest::newRow("default") << ShortcutConfig::defaultShortcut();
    QTest::newRow("extremes") << ShortcutConfig{65535, 0x7FFFFFFFFFFFFFFF, u"\U0001F600"_s};
    QTest::newRow("zero") << ShortcutConfig{0, 0, QString()};
    QTest::newRow("beyond double precision")
        << ShortcutConfig{15, 0x20000000000001ull | 0x100000, u"R"_s};
}

void tst_ShortcutConfig::roundTrip() {
    QFETCH(ShortcutConfig, shortcut);
    QCOMPARE(ShortcutConfig::fromJson(shortcut.toJson()), shortcut);
    // Through text as well: the file is text.
    const QByteArray text = QJsonDocument(shortcut.toJson()).toJson();
    QCOMPARE(fromText(text), shortcut);
}

void tst_ShortcutConfig::equality() {
    const ShortcutConfig base{15, 0x180000, u"R"_s};
    QVERIFY(base == (ShortcutConfig{15, 0x180000, u"R"_s}));
    QVERIFY(base != (ShortcutConfig{16, 0x180000, u"R"_s}));
    QVERIFY(base != (ShortcutConfig{15, 0x180001, u"R"_s}));
    QVERIFY(base != (ShortcutConfig{15, 0x180000, u"r"_s}));
}

QTEST_MAIN(tst_ShortcutConfig)
#include "tst_ShortcutConfig.moc"
