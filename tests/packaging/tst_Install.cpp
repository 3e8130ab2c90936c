// What `cmake --install` puts in a prefix of the user's choice, checked with the desktop's own
// validators: the desktop entries, the D-Bus service file, the AppStream metadata.

#include "ChildProcess.h"

#include "config/Environment.h"

#include <QDate>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QXmlStreamReader>
#include <QtTest>

using namespace Qt::StringLiterals;

namespace {

const QString appId = u"app.quillmar.Quillmar"_s;

struct Run {
    int exitCode = -1;
    QString output;
};

// Standard output and error together: validators report on either.
Run run(const QStringList& command) {
    const ChildProcess::Result result = ChildProcess::run(command, std::chrono::minutes(2), true);
    return {result.exitCode, QString::fromUtf8(result.output)};
}

// A desktop entry or D-Bus service file: group -> key -> value.
using KeyFile = QHash<QString, QHash<QString, QString>>;

KeyFile readKeyFile(const QString& path) {
    KeyFile groups;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return groups;
    QString group;
    for (const QString& line : QString::fromUtf8(file.readAll()).split(u'\n')) {
        if (line.startsWith(u'[') && line.endsWith(u']'))
            group = line.mid(1, line.size() - 2);
        else if (!line.startsWith(u'#') && line.contains(u'='))
            groups[group][line.section(u'=', 0, 0)] = line.section(u'=', 1);
    }
    return groups;
}

} // namespace

class tst_Install : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void desktopEntriesValidate_data();
    void desktopEntriesValidate();
    void applicationEntryIsActivatedOverDBus();
    void autostartEntryIsSeparate();
    void serviceFileStartsTheInstalledProgram();
    void buildTreeServiceFileStartsTheBuiltProgram();
    void appStreamMetadataValidatesPedantically();
    void appStreamMetadataContents();
    void readmeNamesTheInstalledAutostartEntry();

private:
    QString installed(const QString& path) const { return m_prefix.filePath(path); }

    QTemporaryDir m_prefix;
};

void tst_Install::initTestCase() {
    QVERIFY(m_prefix.isValid());
    const Run install = run({u"cmake"_s, u"--install"_s, QStringLiteral(QUILLMAR_BINARY_DIR),
                             u"--prefix"_s, m_prefix.path()});
    QVERIFY2(install.exitCode == 0, qPrintable(install.output));
}

void tst_Install::desktopEntriesValidate_data() {
    QTest::addColumn<QString>("path");
    QTest::newRow("application") << u"share/applications/"_s + appId + u".desktop"_s;
    QTest::newRow("autostart") << u"share/quillmar/autostart/"_s + appId + u".desktop"_s;
}

void tst_Install::desktopEntriesValidate() {
    QFETCH(QString, path);
    QVERIFY2(QFileInfo::exists(installed(path)), qPrintable(path));
    // Not a word: errors, warnings and hints alike.
    const Run validation = run({u"desktop-file-validate"_s, installed(path)});
    QCOMPARE(validation.output, QString());
    QCOMPARE(validation.exitCode, 0);
}

void tst_Install::applicationEntryIsActivatedOverDBus() {
    const KeyFile entry = readKeyFile(installed(u"share/applications/"_s + appId + u".desktop"_s));
    const auto main = entry.value(u"Desktop Entry"_s);
    QCOMPARE(main.value(u"DBusActivatable"_s), u"true"_s);
    QCOMPARE(main.value(u"Exec"_s), u"quillmar"_s);
    QCOMPARE(main.value(u"Icon"_s), appId);
    // One main category.
    QCOMPARE(main.value(u"Categories"_s), u"Utility;"_s);
    QCOMPARE(main.value(u"Actions"_s), u"open-menu;settings;"_s);
    // Where autostart keys mean nothing.
    for (const QString& key : main.keys())
        QVERIFY2(!key.contains(u"utostart"_s), qPrintable(key));

    // Each action, for launchers that cannot call it over D-Bus, calls it with gdbus.
    const QHash<QString, QString> names{{u"open-menu"_s, u"Open Menu"_s},
                                        {u"settings"_s, u"Settings…"_s}};
    for (auto it = names.cbegin(); it != names.cend(); ++it) {
        const auto action = entry.value(u"Desktop Action "_s + it.key());
        QCOMPARE(action.value(u"Name"_s), it.value());
        QCOMPARE(action.value(u"Exec"_s),
                 u"gdbus call --session --dest app.quillmar.Quillmar --object-path "
                 "/app/quillmar/Quillmar --method org.freedesktop.Application.ActivateAction "_s +
                     it.key() + u" [] {}"_s);
    }
}

void tst_Install::autostartEntryIsSeparate() {
    const auto entry =
        readKeyFile(installed(u"share/quillmar/autostart/"_s + appId + u".desktop"_s))
            .value(u"Desktop Entry"_s);
    QCOMPARE(entry.value(u"Exec"_s), u"quillmar"_s);
    QCOMPARE(entry.value(u"Name"_s), u"Quillmar"_s);
    QVERIFY(!entry.contains(u"DBusActivatable"_s));
    QVERIFY(!entry.contains(u"NoDisplay"_s) && !entry.contains(u"Hidden"_s));
    // Started after the panel, whose tray takes the icon.
    QCOMPARE(entry.value(u"X-GNOME-Autostart-enabled"_s), u"true"_s);
    QCOMPARE(entry.value(u"X-KDE-autostart-after"_s), u"panel"_s);
    QCOMPARE(entry.value(u"X-LXQt-Need-Tray"_s), u"true"_s);
}

void tst_Install::serviceFileStartsTheInstalledProgram() {
    const QString program = installed(u"bin/quillmar"_s);
    QVERIFY(QFileInfo(program).isExecutable());
    const auto service = readKeyFile(installed(u"share/dbus-1/services/"_s + appId + u".service"_s))
                             .value(u"D-BUS Service"_s);
    QCOMPARE(service.value(u"Name"_s), appId);
    QCOMPARE(service.value(u"Exec"_s), QFileInfo(program).absoluteFilePath());
}

void tst_Install::buildTreeServiceFileStartsTheBuiltProgram() {
    const QString buildDir = QStringLiteral(QUILLMAR_BINARY_DIR);
    const auto service = readKeyFile(buildDir + u"/dbus-1/services/"_s + appId + u".service"_s)
                             .value(u"D-BUS Service"_s);
    QCOMPARE(service.value(u"Name"_s), appId);
    QCOMPARE(service.value(u"Exec"_s), buildDir + u"/quillmar"_s);
}

void tst_Install::appStreamMetadataValidatesPedantically() {
    const Run validation = run({u"appstreamcli"_s, u"validate"_s, u"--pedantic"_s, u"--no-net"_s,
                                installed(u"share/metainfo/"_s + appId + u".metainfo.xml"_s)});
    QVERIFY2(validation.exitCode == 0, qPrintable(validation.output));
    // The one pedantic remark: the id has capitals, as the D-Bus name and the desktop entry's
    // file name that it must equal.
    const QRegularExpression issue(u"^([EWIP]): (\\S+):(?:\\d+:)? (\\S+)"_s,
                                   QRegularExpression::MultilineOption);
    QStringList issues;
    for (auto it = issue.globalMatch(validation.output); it.hasNext();) {
        const auto match = it.next();
        issues.append(match.captured(1) + u' ' + match.captured(3));
    }
    QCOMPARE(issues, QStringList{u"P cid-contains-uppercase-letter"_s});
}

void tst_Install::appStreamMetadataContents() {
    QFile file(installed(u"share/metainfo/"_s + appId + u".metainfo.xml"_s));
    QVERIFY(file.open(QIODevice::ReadOnly));
    QXmlStreamReader xml(&file);
    QString license;
    QHash<QString, QString> urls;
    QStringList screenshots;
    QString defaultScreenshot;
    QString releaseVersion;
    QString releaseDate;
    QString dbusName;
    bool inDefault = false;
    while (!xml.atEnd()) {
        if (xml.readNext() != QXmlStreamReader::StartElement)
            continue;
        const auto attributes = xml.attributes();
        if (xml.name() == u"project_license"_s) {
            license = xml.readElementText();
        } else if (xml.name() == u"url"_s) {
            urls.insert(attributes.value(u"type"_s).toString(), xml.readElementText());
        } else if (xml.name() == u"screenshot"_s) {
            inDefault = attributes.value(u"type"_s) == u"default"_s;
        } else if (xml.name() == u"image"_s) {
            const QString image = xml.readElementText();
            screenshots.append(image);
            if (inDefault)
                defaultScreenshot = image;
        } else if (xml.name() == u"release"_s && releaseVersion.isEmpty()) {
            releaseVersion = attributes.value(u"version"_s).toString();
            releaseDate = attributes.value(u"date"_s).toString();
        } else if (xml.name() == u"dbus"_s) {
            dbusName = xml.readElementText();
        }
    }
    QVERIFY2(!xml.hasError(), qPrintable(xml.errorString()));

    QCOMPARE(license, u"MIT"_s);
    QCOMPARE(urls.value(u"homepage"_s), u"https://quillmar.app/"_s);
    QVERIFY(urls.value(u"bugtracker"_s).startsWith(u"https://quillmar.app/"_s));
    QCOMPARE(dbusName, appId);

    // The version's own release date, kept next to the version, never the day of the build.
    QCOMPARE(releaseVersion, Environment::buildVersion());
    QCOMPARE(releaseDate, QStringLiteral(QUILLMAR_RELEASE_DATE));
    QVERIFY(QDate::fromString(releaseDate, Qt::ISODate).isValid());

    // The maker's site serves the pictures committed under docs/screenshots.
    QVERIFY(screenshots.size() >= 3);
    QCOMPARE(defaultScreenshot, u"https://quillmar.app/screenshots/menu-pinned.png"_s);
    for (const QString& url : std::as_const(screenshots)) {
        QVERIFY2(url.startsWith(u"https://quillmar.app/screenshots/"_s), qPrintable(url));
        const QString picture =
            QStringLiteral(QUILLMAR_SOURCE_DIR) + u"/docs/screenshots/"_s + url.section(u'/', -1);
        QVERIFY2(QFileInfo::exists(picture), qPrintable(picture));
    }
}

void tst_Install::readmeNamesTheInstalledAutostartEntry() {
    QFile readme(QStringLiteral(QUILLMAR_SOURCE_DIR) + u"/README.md"_s);
    QVERIFY(readme.open(QIODevice::ReadOnly));
    const QString text = QString::fromUtf8(readme.readAll());
    // The package's prefix is /usr; the README's command copies the file installed here.
    const QString relative = u"share/quillmar/autostart/"_s + appId + u".desktop"_s;
    QVERIFY(QFileInfo::exists(installed(relative)));
    QVERIFY2(text.contains(u"cp /usr/"_s + relative + u" ~/.config/autostart/"_s),
             qPrintable(relative));
}

QTEST_MAIN(tst_Install)
#include "tst_Install.moc"
