#include "config/AppConfig.h"
#include "config/SettingsNotifier.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QTest>

#include <sys/stat.h>

using namespace Qt::StringLiterals;

class tst_AppConfig : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();

    void filePathIsUnderHome();
    void filePathIsComputedOnce();

    void loadsOnlyToken();
    void loadsEverything();
    void loadsWithoutTokenAsDefault();
    void loadsShortcutWithoutDisplayKeyAsDefault();
    void loadsNullListsAsEmpty();
    void loadsNullShortcutAsAbsent();
    void ignoresUnknownKeys();
    void keepsWhitespaceToken();
    void keepsIdsExact();
    void keepsUnknownModifierBits();

    void loadsDefaultWhenMissing();
    void loadsDefaultWhenUnreadable_data();
    void loadsDefaultWhenUnreadable();
    void loadsDefaultWhenDamaged_data();
    void loadsDefaultWhenDamaged();
    void loadsDefaultForEveryTruncation();
    void loadsDefaultForBinaryGarbage();
    void loadsDefaultForHugeFile_data();
    void loadsDefaultForHugeFile();
    void loadsDefaultForWrongTypes_data();
    void loadsDefaultForWrongTypes();

    void savesWithoutShortcut();
    void savesWithShortcut();
    void savesDefaultConfiguration();
    void savesIdsExact();
    void savesUnknownModifierBits();
    void savesTextExactly();
    void saveCreatesFolders();
    void saveIntoExistingFolder();
    void saveLeavesNoTemporaryFile();
    void saveReplacesFileWhole();
    void saveReplacesRatherThanRewrites();
    void saveUsesDefaultPermissions();
    void saveFailsWhenFolderCannotBeMade();
    void saveFailsWhenTargetIsAFolder();
    void saveThenLoadRoundTrips_data();
    void saveThenLoadRoundTrips();

    void settingsChangedIsSynchronous();

private:
    static void writeFile(const QByteArray& bytes);
    static QByteArray readFile();
    static QString folder() { return QFileInfo(AppConfig::filePath()).absolutePath(); }

    QTemporaryDir m_home;
};

void tst_AppConfig::initTestCase() {
    // The file lives under HOME; point HOME at a fresh folder before the path is first computed,
    // so that nothing here can touch a real configuration.
    QVERIFY(m_home.isValid());
    qputenv("HOME", QFile::encodeName(m_home.path()));
}

void tst_AppConfig::init() {
    QVERIFY(QDir(m_home.path() + u"/.config"_s).removeRecursively());
}

void tst_AppConfig::writeFile(const QByteArray& bytes) {
    QVERIFY(QDir().mkpath(folder()));
    QFile file(AppConfig::filePath());
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    QCOMPARE(file.write(bytes), bytes.size());
}

QByteArray tst_AppConfig::readFile() {
    QFile file(AppConfig::filePath());
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return file.readAll();
}

void tst_AppConfig::filePathIsUnderHome() {
    QCOMPARE(AppConfig::filePath(), m_home.path() + u"/.config/quillmar/config.json"_s);
}

void tst_AppConfig::filePathIsComputedOnce() {
    const QString before = AppConfig::filePath();
    const QByteArray home = qgetenv("HOME");
    qputenv("HOME", "/nonexistent-home");
    const QString after = AppConfig::filePath();
    qputenv("HOME", home);
    QCOMPARE(after, before);
}

void tst_AppConfig::loadsOnlyToken() {
    writeFile(R"({"token": "abc"})");
    const AppConfig config = AppConfig::load();
    QCOMPARE(config.token, u"abc"_s);
    QVERIFY(config.pinnedCollectionIds.isEmpty());
    QVERIFY(config.pinnedTags.isEmpty());
    QVERIFY(!config.openMenuShortcut);
}

void tst_AppConfig::loadsEverything() {
    writeFile(R"({
        "token": "t-123",
        "pinned_collections": [1512345678, -1, 0],
        "pinned_tags": ["reading", "a b", "ünïcödé"],
        "open_menu_shortcut": {"keyCode": 40, "modifierFlags": 393216, "displayKey": "K"}
    })");
    const AppConfig config = AppConfig::load();
    QCOMPARE(config.token, u"t-123"_s);
    QCOMPARE(config.pinnedCollectionIds, (QList<qint64>{1512345678, -1, 0}));
    QCOMPARE(config.pinnedTags, (QStringList{u"reading"_s, u"a b"_s, u"ünïcödé"_s}));
    QVERIFY(config.openMenuShortcut);
    QCOMPARE(*config.openMenuShortcut, (ShortcutConfig{40, 0x60000, u"K"_s}));
}

void tst_AppConfig::loadsWithoutTokenAsDefault() {
    writeFile(R"({"pinned_collections": [1], "pinned_tags": ["x"],
        "open_menu_shortcut": {"keyCode": 15, "modifierFlags": 1572864, "displayKey": "R"}})");
    QCOMPARE(AppConfig::load(), AppConfig{});
}

void tst_AppConfig::loadsShortcutWithoutDisplayKeyAsDefault() {
    writeFile(R"({"token": "abc", "pinned_tags": ["x"],
        "open_menu_shortcut": {"keyCode": 15, "modifierFlags": 1572864}})");
    const AppConfig config = AppConfig::load();
    QCOMPARE(config, AppConfig{});
    QCOMPARE(config.token, QString());
}

void tst_AppConfig::loadsNullListsAsEmpty() {
    writeFile(R"({"token": "abc", "pinned_collections": null, "pinned_tags": null})");
    const AppConfig config = AppConfig::load();
    QCOMPARE(config.token, u"abc"_s);
    QVERIFY(config.pinnedCollectionIds.isEmpty());
    QVERIFY(config.pinnedTags.isEmpty());
}

void tst_AppConfig::loadsNullShortcutAsAbsent() {
    writeFile(R"({"token": "abc", "open_menu_shortcut": null})");
    const AppConfig config = AppConfig::load();
    QCOMPARE(config.token, u"abc"_s);
    QVERIFY(!config.openMenuShortcut);
}

void tst_AppConfig::ignoresUnknownKeys() {
    writeFile(R"({"token": "abc", "theme": "dark", "Token": 5, "pinnedTags": 7,
        "open_menu_shortcut": {"keyCode": 15, "modifierFlags": 0, "displayKey": "R",
                               "extra": null}})");
    const AppConfig config = AppConfig::load();
    QCOMPARE(config.token, u"abc"_s);
    QVERIFY(config.pinnedTags.isEmpty());
    QCOMPARE(config.openMenuShortcut, (ShortcutConfig{15, 0, u"R"_s}));
}

void tst_AppConfig::keepsWhitespaceToken() {
    // The file's token is kept as written; only the service client trims it.
    writeFile(R"({"token": "  abc\n"})");
    QCOMPARE(AppConfig::load().token, u"  abc\n"_s);
    writeFile(R"({"token": " "})");
    QCOMPARE(AppConfig::load().token, u" "_s);
    writeFile(R"({"token": ""})");
    QCOMPARE(AppConfig::load().token, QString());
}

void tst_AppConfig::keepsIdsExact() {
    writeFile(R"({"token": "abc", "pinned_collections": [9007199254740993, -9007199254740993,
        9223372036854775807, -9223372036854775808]})");
    QCOMPARE(AppConfig::load().pinnedCollectionIds,
             (QList<qint64>{9007199254740993, -9007199254740993, std::numeric_limits<qint64>::max(),
                            std::numeric_limits<qint64>::min()}));
}

void tst_AppConfig::keepsUnknownModifierBits() {
    writeFile(R"({"token": "abc", "open_menu_shortcut":
        {"keyCode": 15, "modifierFlags": 1099513200897, "displayKey": "R"}})");
    const AppConfig config = AppConfig::load();
    QVERIFY(config.openMenuShortcut);
    QCOMPARE(config.openMenuShortcut->modifierFlags, 0x180000u | (1ull << 40) | 0x101u);
    QCOMPARE(config.openMenuShortcut->displayString(), u"⌥⌘R"_s);
}

void tst_AppConfig::loadsDefaultWhenMissing() {
    QVERIFY(!QFileInfo::exists(AppConfig::filePath()));
    QCOMPARE(AppConfig::load(), AppConfig{});
    // Loading creates nothing.
    QVERIFY(!QFileInfo::exists(folder()));
}

void tst_AppConfig::loadsDefaultWhenUnreadable_data() {
    QTest::addColumn<QString>("kind");
    // Made unreadable in ways that hold for every user, root included (file modes do not).
    QTest::newRow("a folder") << u"folder"_s;
    QTest::newRow("a link to itself") << u"loop"_s;
    QTest::newRow("a dangling link") << u"dangling"_s;
    QTest::newRow("a link into a missing folder") << u"missing parent"_s;
}

void tst_AppConfig::loadsDefaultWhenUnreadable() {
    QFETCH(QString, kind);
    QVERIFY(QDir().mkpath(folder()));
    const QString path = AppConfig::filePath();
    if (kind == u"folder"_s) {
        QVERIFY(QDir().mkpath(path));
        // Even a folder holding a valid configuration.
        QFile inside(path + u"/config.json"_s);
        QVERIFY(inside.open(QIODevice::WriteOnly));
        inside.write(R"({"token": "abc"})");
    } else if (kind == u"loop"_s) {
        QVERIFY(QFile::link(path, path));
    } else if (kind == u"dangling"_s) {
        QVERIFY(QFile::link(m_home.path() + u"/nowhere.json"_s, path));
    } else {
        QVERIFY(QFile::link(m_home.path() + u"/no-folder/config.json"_s, path));
    }
    QCOMPARE(AppConfig::load(), AppConfig{});
}

void tst_AppConfig::loadsDefaultWhenDamaged_data() {
    QTest::addColumn<QByteArray>("bytes");

    QTest::newRow("empty") << QByteArray();
    QTest::newRow("whitespace") << QByteArray(" \n\t\r\n ");
    QTest::newRow("not JSON") << QByteArray("token = abc\n");
    QTest::newRow("YAML") << QByteArray("token: abc\npinned_tags:\n  - x\n");
    QTest::newRow("JSON null") << QByteArray("null");
    QTest::newRow("JSON text") << QByteArray(R"("abc")");
    QTest::newRow("JSON number") << QByteArray("42");
    QTest::newRow("JSON array") << QByteArray(R"([{"token": "abc"}])");
    QTest::newRow("empty object") << QByteArray("{}");
    QTest::newRow("trailing comma") << QByteArray(R"({"token": "abc",})");
    QTest::newRow("single quotes") << QByteArray(R"({'token': 'abc'})");
    QTest::newRow("comment") << QByteArray("// mine\n{\"token\": \"abc\"}");
    QTest::newRow("two objects") << QByteArray(R"({"token": "abc"}{"token": "def"})");
    QTest::newRow("trailing garbage") << QByteArray(R"({"token": "abc"} x)");
    QTest::newRow("unterminated text") << QByteArray(R"({"token": "abc})");
    QTest::newRow("invalid UTF-8 in the token") << QByteArray("{\"token\": \"a\xff\xfe\"}");
    QTest::newRow("UTF-16") << QByteArray("\xff\xfe{\0\"\0t\0o\0k\0e\0n\0\"\0:\0\"\0a\0\"\0}\0",
                                          26);
    QTest::newRow("NaN") << QByteArray(R"({"token": "abc", "pinned_collections": [NaN]})");
    QTest::newRow("deep nesting") << QByteArray(R"({"token": "abc", "x": )") +
                                         QByteArray(100000, '[') + QByteArray(100000, ']') + "}";
}

void tst_AppConfig::loadsDefaultWhenDamaged() {
    QFETCH(QByteArray, bytes);
    writeFile(bytes);
    QCOMPARE(AppConfig::load(), AppConfig{});
}

void tst_AppConfig::loadsDefaultForEveryTruncation() {
    const AppConfig full{
        u"abc"_s, {1512345678, -1}, {u"reading"_s, u"ünï"_s}, ShortcutConfig{15, 0x180000, u"R"_s}};
    const QByteArray bytes = full.encode();
    // Every cut ends inside the outer object, so none of them is JSON any more.
    for (qsizetype length = 0; length < bytes.trimmed().size(); ++length) {
        writeFile(bytes.left(length));
        if (AppConfig::load() != AppConfig{})
            QFAIL(qPrintable(u"cut after %1 bytes loaded something"_s.arg(length)));
    }
    writeFile(bytes);
    QCOMPARE(AppConfig::load(), full);
}

void tst_AppConfig::loadsDefaultForBinaryGarbage() {
    QRandomGenerator random(20240521);
    for (int round = 0; round < 200; ++round) {
        QByteArray bytes(qsizetype(random.bounded(1, 4096)), Qt::Uninitialized);
        for (char& byte : bytes)
            byte = char(random.bounded(256));
        // Half of them start like a configuration.
        if (round % 2)
            bytes.prepend(R"({"token": "abc", )");
        writeFile(bytes);
        QCOMPARE(AppConfig::load(), AppConfig{});
    }
}

void tst_AppConfig::loadsDefaultForHugeFile_data() {
    // The 50 MB contents are made one at a time in the test, not held in the table together.
    QTest::addColumn<QString>("kind");
    QTest::newRow("50 MB of text") << u"text"_s;
    QTest::newRow("50 MB unterminated list") << u"unterminated"_s;
    QTest::newRow("50 MB of zero bytes") << u"zeros"_s;
    QTest::newRow("50 MB of opening brackets") << u"brackets"_s;
}

void tst_AppConfig::loadsDefaultForHugeFile() {
    QFETCH(QString, kind);
    constexpr qsizetype huge = 50 * 1024 * 1024;
    QByteArray bytes;
    if (kind == u"text"_s) {
        bytes = QByteArray(huge, 'x');
    } else if (kind == u"unterminated"_s) {
        bytes = R"({"token": "abc", "pinned_tags": [)";
        bytes.reserve(huge + 64);
        while (bytes.size() < huge)
            bytes += R"("reading", "qt", "network", )";
    } else if (kind == u"zeros"_s) {
        bytes = QByteArray(huge, '\0');
    } else {
        bytes = QByteArray(huge, '[');
    }
    writeFile(bytes);
    bytes.clear();
    QCOMPARE(AppConfig::load(), AppConfig{});
}

void tst_AppConfig::loadsDefaultForWrongTypes_data() {
    QTest::addColumn<QByteArray>("json");

    const auto row = [](const char* name, const QByteArray& json) {
        QTest::newRow(name) << json;
    };
    // Each key in turn holds a value of the wrong type; all the other keys are valid.
    const QByteArray shortcut = R"("open_menu_shortcut": {"keyCode": 15, "modifierFlags": 0,
                                   "displayKey": "R"})";
    const auto withToken = [&](const QByteArray& rest) {
        return R"({"token": "abc", )" + rest + "}";
    };
    row("token null", R"({"token": null, "pinned_tags": ["x"]})");
    row("token number", R"({"token": 123})");
    row("token bool", R"({"token": true})");
    row("token array", R"({"token": ["abc"]})");
    row("token object", R"({"token": {"value": "abc"}})");

    row("collections text", withToken(R"("pinned_collections": "1,2", )" + shortcut));
    row("collections number", withToken(R"("pinned_collections": 1, )" + shortcut));
    row("collections object", withToken(R"("pinned_collections": {"1": 1})"));
    row("collections bool", withToken(R"("pinned_collections": false)"));
    row("collections of texts", withToken(R"("pinned_collections": ["1"])"));
    row("collections with null", withToken(R"("pinned_collections": [1, null])"));
    row("collections with fraction", withToken(R"("pinned_collections": [1, 2.5])"));
    row("collections with bool", withToken(R"("pinned_collections": [true])"));
    row("collections nested", withToken(R"("pinned_collections": [[1]])"));
    row("collections beyond 64 bits", withToken(R"("pinned_collections": [9223372036854775808])"));

    row("tags text", withToken(R"("pinned_tags": "reading", )" + shortcut));
    row("tags number", withToken(R"("pinned_tags": 3)"));
    row("tags object", withToken(R"("pinned_tags": {"reading": true})"));
    row("tags of numbers", withToken(R"("pinned_tags": [1, 2])"));
    row("tags with null", withToken(R"("pinned_tags": ["reading", null])"));
    row("tags nested", withToken(R"("pinned_tags": [["reading"]])"));

    row("shortcut text", withToken(R"("open_menu_shortcut": "⌥⌘R")"));
    row("shortcut number", withToken(R"("open_menu_shortcut": 15)"));
    row("shortcut array", withToken(R"("open_menu_shortcut": [15, 0, "R"])"));
    row("shortcut bool", withToken(R"("open_menu_shortcut": true)"));
    row("shortcut empty", withToken(R"("open_menu_shortcut": {})"));
    row("keyCode missing", withToken(R"("open_menu_shortcut": {"modifierFlags": 0,
        "displayKey": "R"})"));
    row("keyCode text", withToken(R"("open_menu_shortcut": {"keyCode": "15",
        "modifierFlags": 0, "displayKey": "R"})"));
    row("keyCode null", withToken(R"("open_menu_shortcut": {"keyCode": null,
        "modifierFlags": 0, "displayKey": "R"})"));
    row("keyCode 65536", withToken(R"("open_menu_shortcut": {"keyCode": 65536,
        "modifierFlags": 0, "displayKey": "R"})"));
    row("keyCode -1", withToken(R"("open_menu_shortcut": {"keyCode": -1, "modifierFlags": 0,
        "displayKey": "R"})"));
    row("keyCode fraction", withToken(R"("open_menu_shortcut": {"keyCode": 15.5,
        "modifierFlags": 0, "displayKey": "R"})"));
    row("modifierFlags missing", withToken(R"("open_menu_shortcut": {"keyCode": 15,
        "displayKey": "R"})"));
    row("modifierFlags negative", withToken(R"("open_menu_shortcut": {"keyCode": 15,
        "modifierFlags": -1572864, "displayKey": "R"})"));
    row("modifierFlags fraction", withToken(R"("open_menu_shortcut": {"keyCode": 15,
        "modifierFlags": 0.5, "displayKey": "R"})"));
    row("modifierFlags text", withToken(R"("open_menu_shortcut": {"keyCode": 15,
        "modifierFlags": "1572864", "displayKey": "R"})"));
    row("displayKey number", withToken(R"("open_menu_shortcut": {"keyCode": 15,
        "modifierFlags": 0, "displayKey": 7})"));
    row("displayKey null", withToken(R"("open_menu_shortcut": {"keyCode": 15,
        "modifierFlags": 0, "displayKey": null})"));
}

void tst_AppConfig::loadsDefaultForWrongTypes() {
    QFETCH(QByteArray, json);
    writeFile(json);
    QCOMPARE(AppConfig::load(), AppConfig{});
}

void tst_AppConfig::savesWithoutShortcut() {
    const AppConfig config{u"abc"_s, {}, {}, std::nullopt};
    QCOMPARE(config.save(), std::nullopt);
    const QByteArray text = readFile();
    QVERIFY(!text.contains("open_menu_shortcut"));
    QVERIFY(!text.contains("null"));
    // Both lists are always written, also when empty.
    QVERIFY(text.contains(R"("pinned_collections": [)"));
    QVERIFY(text.contains(R"("pinned_tags": [)"));
}

void tst_AppConfig::savesWithShortcut() {
    const AppConfig config{u"abc"_s, {1}, {u"x"_s}, ShortcutConfig{15, 0x180000, u"R"_s}};
    QCOMPARE(config.save(), std::nullopt);
    const QByteArray text = readFile();
    const QList<qsizetype> positions{text.indexOf(R"("open_menu_shortcut")"),
                                     text.indexOf(R"("displayKey")"),
                                     text.indexOf(R"("keyCode")"),
                                     text.indexOf(R"("modifierFlags")"),
                                     text.indexOf(R"("pinned_collections")"),
                                     text.indexOf(R"("pinned_tags")"),
                                     text.indexOf(R"("token")")};
    QVERIFY(!positions.contains(-1));
    QVERIFY(std::is_sorted(positions.begin(), positions.end()));
}

void tst_AppConfig::savesDefaultConfiguration() {
    QCOMPARE(AppConfig{}.save(), std::nullopt);
    QCOMPARE(readFile(), QByteArray("{\n"
                                    "    \"pinned_collections\": [\n"
                                    "    ],\n"
                                    "    \"pinned_tags\": [\n"
                                    "    ],\n"
                                    "    \"token\": \"\"\n"
                                    "}\n"));
    QCOMPARE(AppConfig::load(), AppConfig{});
}

void tst_AppConfig::savesIdsExact() {
    const AppConfig config{u"abc"_s,
                           {9007199254740993, -9007199254740993, std::numeric_limits<qint64>::max(),
                            std::numeric_limits<qint64>::min()},
                           {},
                           std::nullopt};
    QCOMPARE(config.save(), std::nullopt);
    const QByteArray text = readFile();
    QVERIFY(text.contains("        9007199254740993,\n"));
    QVERIFY(text.contains("        -9007199254740993,\n"));
    QVERIFY(text.contains("        9223372036854775807,\n"));
    QVERIFY(text.contains("        -9223372036854775808\n"));
    QCOMPARE(AppConfig::load(), config);
}

void tst_AppConfig::savesUnknownModifierBits() {
    const AppConfig config{
        u"abc"_s, {}, {}, ShortcutConfig{15, 0x180000 | (1ull << 40) | 0x101, u"R"_s}};
    QCOMPARE(config.save(), std::nullopt);
    QVERIFY(readFile().contains(R"("modifierFlags": 1099513200897)"));
    QCOMPARE(AppConfig::load(), config);
}

void tst_AppConfig::savesTextExactly() {
    const AppConfig config{u"tok\"en/ü"_s,
                           {1512345678, -1, 9007199254740993},
                           {u"reading"_s, u"a b"_s, u"ünï"_s},
                           ShortcutConfig{65535, 0x1E0000, u"K"_s}};
    QCOMPARE(config.save(), std::nullopt);
    QCOMPARE(readFile(), QByteArray("{\n"
                                    "    \"open_menu_shortcut\": {\n"
                                    "        \"displayKey\": \"K\",\n"
                                    "        \"keyCode\": 65535,\n"
                                    "        \"modifierFlags\": 1966080\n"
                                    "    },\n"
                                    "    \"pinned_collections\": [\n"
                                    "        1512345678,\n"
                                    "        -1,\n"
                                    "        9007199254740993\n"
                                    "    ],\n"
                                    "    \"pinned_tags\": [\n"
                                    "        \"reading\",\n"
                                    "        \"a b\",\n"
                                    "        \"\xc3\xbcn\xc3\xaf\"\n"
                                    "    ],\n"
                                    "    \"token\": \"tok\\\"en/\xc3\xbc\"\n"
                                    "}\n"));
    QCOMPARE(AppConfig::load(), config);
}

void tst_AppConfig::saveCreatesFolders() {
    QVERIFY(!QFileInfo::exists(m_home.path() + u"/.config"_s));
    QCOMPARE((AppConfig{u"abc"_s, {}, {}, std::nullopt}.save()), std::nullopt);
    QVERIFY(QFileInfo(m_home.path() + u"/.config"_s).isDir());
    QVERIFY(QFileInfo(m_home.path() + u"/.config/quillmar"_s).isDir());
    QVERIFY(QFileInfo(AppConfig::filePath()).isFile());
    QCOMPARE(AppConfig::load().token, u"abc"_s);
}

void tst_AppConfig::saveIntoExistingFolder() {
    QVERIFY(QDir().mkpath(folder()));
    QFile other(folder() + u"/other.txt"_s);
    QVERIFY(other.open(QIODevice::WriteOnly));
    other.write("keep me");
    other.close();
    QCOMPARE((AppConfig{u"abc"_s, {}, {}, std::nullopt}.save()), std::nullopt);
    QCOMPARE(AppConfig::load().token, u"abc"_s);
    QVERIFY(other.open(QIODevice::ReadOnly));
    QCOMPARE(other.readAll(), QByteArray("keep me"));
}

void tst_AppConfig::saveLeavesNoTemporaryFile() {
    for (int round = 0; round < 3; ++round)
        QCOMPARE((AppConfig{u"abc%1"_s.arg(round), {}, {}, std::nullopt}.save()), std::nullopt);
    QCOMPARE(QDir(folder()).entryList(QDir::AllEntries | QDir::Hidden | QDir::System |
                                      QDir::NoDotAndDotDot),
             QStringList{u"config.json"_s});
}

void tst_AppConfig::saveReplacesFileWhole() {
    // A longer old file: nothing of its tail may survive.
    writeFile(QByteArray(R"({"token": "old", "pinned_tags": [)") + QByteArray(10000, ' ') + "]}");
    const AppConfig config{u"new"_s, {}, {}, std::nullopt};
    QCOMPARE(config.save(), std::nullopt);
    QCOMPARE(readFile(), config.encode());
}

void tst_AppConfig::saveReplacesRatherThanRewrites() {
    // The new text goes into a new file that takes the old one's place in one step: a second
    // name for the old file still shows the old text, whole.
    const QByteArray old = R"({"token": "old"})";
    writeFile(old);
    const QString second = m_home.path() + u"/old-config.json"_s;
    QCOMPARE(::link(QFile::encodeName(AppConfig::filePath()).constData(),
                    QFile::encodeName(second).constData()),
             0);
    struct stat before {};
    QCOMPARE(::stat(QFile::encodeName(AppConfig::filePath()).constData(), &before), 0);

    QCOMPARE((AppConfig{u"new"_s, {}, {}, std::nullopt}.save()), std::nullopt);

    struct stat after {};
    QCOMPARE(::stat(QFile::encodeName(AppConfig::filePath()).constData(), &after), 0);
    QVERIFY(after.st_ino != before.st_ino);
    QFile oldFile(second);
    QVERIFY(oldFile.open(QIODevice::ReadOnly));
    QCOMPARE(oldFile.readAll(), old);
    QCOMPARE(AppConfig::load().token, u"new"_s);
}

void tst_AppConfig::saveUsesDefaultPermissions() {
    // No mode of its own: the file and the folders get what the user's umask leaves.
    for (const mode_t mask : {mode_t(022), mode_t(077)}) {
        QVERIFY(QDir(m_home.path() + u"/.config"_s).removeRecursively());
        const mode_t previous = ::umask(mask);
        const auto error = AppConfig{u"abc"_s, {}, {}, std::nullopt}.save();
        ::umask(previous);
        QCOMPARE(error, std::nullopt);
        struct stat file {};
        QCOMPARE(::stat(QFile::encodeName(AppConfig::filePath()).constData(), &file), 0);
        QCOMPARE(file.st_mode & 0777, 0666 & ~mask);
        struct stat folder {};
        QCOMPARE(::stat(QFile::encodeName(tst_AppConfig::folder()).constData(), &folder), 0);
        QCOMPARE(folder.st_mode & 0777, 0777 & ~mask);
    }
}

void tst_AppConfig::saveFailsWhenFolderCannotBeMade() {
    // A file where the .config folder should be.
    QFile blocker(m_home.path() + u"/.config"_s);
    QVERIFY(blocker.open(QIODevice::WriteOnly));
    blocker.write("not a folder");
    blocker.close();

    const auto error = AppConfig{u"abc"_s, {}, {}, std::nullopt}.save();
    QVERIFY(error);
    QVERIFY(!error->isEmpty());
    QVERIFY(!error->contains(u"abc"_s));
    QVERIFY(QFileInfo(blocker.fileName()).isFile());
    QVERIFY(blocker.open(QIODevice::ReadOnly));
    QCOMPARE(blocker.readAll(), QByteArray("not a folder"));
    QVERIFY(blocker.remove());
}

void tst_AppConfig::saveFailsWhenTargetIsAFolder() {
    QVERIFY(QDir().mkpath(AppConfig::filePath()));
    const auto error = AppConfig{u"secret-token"_s, {}, {}, std::nullopt}.save();
    QVERIFY(error);
    QVERIFY(!error->isEmpty());
    QVERIFY(!error->contains(u"secret-token"_s));
    QVERIFY(QFileInfo(AppConfig::filePath()).isDir());
    // Nothing is left behind beside it.
    QCOMPARE(QDir(folder()).entryList(QDir::AllEntries | QDir::Hidden | QDir::System |
                                      QDir::NoDotAndDotDot),
             QStringList{u"config.json"_s});
}

void tst_AppConfig::saveThenLoadRoundTrips_data() {
    QTest::addColumn<AppConfig>("config");
    QTest::newRow("default") << AppConfig{};
    QTest::newRow("token only") << AppConfig{u"abc"_s, {}, {}, std::nullopt};
    QTest::newRow("whitespace token") << AppConfig{u"  abc\n"_s, {}, {}, std::nullopt};
    QTest::newRow("everything") << AppConfig{
        u"abc"_s, {3, 1, 2}, {u"b"_s, u"a"_s, u"\U0001F600"_s}, ShortcutConfig::defaultShortcut()};
    QTest::newRow("duplicates kept") << AppConfig{u"abc"_s, {1, 1}, {u"x"_s, u"x"_s}, {}};
    QTest::newRow("control characters")
        << AppConfig{u"a\tb\u0001c\\d"_s, {}, {u"\n"_s}, ShortcutConfig{0, 0, u"\""_s}};
}

void tst_AppConfig::saveThenLoadRoundTrips() {
    QFETCH(AppConfig, config);
    QCOMPARE(config.save(), std::nullopt);
    QCOMPARE(AppConfig::load(), config);
    QCOMPARE(AppConfig::decode(config.encode()), config);
}

void tst_AppConfig::settingsChangedIsSynchronous() {
    QCOMPARE(QByteArray(SettingsNotifier::name), QByteArray("QuillmarSettingsChanged"));
    int received = 0;
    QObject receiver;
    connect(&SettingsNotifier::instance(), &SettingsNotifier::settingsChanged, &receiver,
            [&received] { ++received; });
    SettingsNotifier::instance().post();
    // Delivered during the post, without an event loop turn.
    QCOMPARE(received, 1);
    SettingsNotifier::instance().post();
    QCOMPARE(received, 2);
}

QTEST_MAIN(tst_AppConfig)
#include "tst_AppConfig.moc"
