// The Debian package as a user gets it: built with CPack from this build tree, its control
// data and files checked, its dependencies resolved by apt for a fresh Debian system, and the
// program started from a throw-away root made by unpacking it.

#include "ChildProcess.h"
#include "VirtualDesktop.h"

#include "config/Environment.h"

#include <QDir>
#include <QFile>
#include <QImage>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QXmlStreamReader>
#include <QtTest>

#include <chrono>

using namespace std::chrono_literals;

namespace {

const QString appId = QStringLiteral("app.quillmar.Quillmar");

QString run(const QStringList& command, int* exitCode = nullptr,
            std::chrono::milliseconds timeout = 120s) {
    const ChildProcess::Result result = ChildProcess::run(command, timeout);
    if (exitCode)
        *exitCode = result.exitCode;
    return QString::fromUtf8(result.output);
}

} // namespace

class tst_x11_DebPackage : public QObject {
    Q_OBJECT
public:
    static void initMain() { VirtualDesktop::startShared({.trayHost = true}); }

private Q_SLOTS:
    void initTestCase();
    void controlData();
    void dependenciesCoverEveryLinkedLibrary();
    void fileList();
    void aptResolvesDependenciesOnFreshSystem();
    void desktopEntryAndIcons();
    void appStreamMetadataValidates();
    void copyrightIsMachineReadable();
    void startsFromUnpackedRoot();

private:
    QString field(const QString& name);
    QStringList dependencies();
    QString file(const QString& path) const { return m_root.filePath(path); }

    QTemporaryDir m_work;
    QTemporaryDir m_root;
    QString m_deb;
};

void tst_x11_DebPackage::initTestCase() {
    QVERIFY(m_work.isValid() && m_root.isValid());
    const QString buildDir = QStringLiteral(QUILLMAR_BINARY_DIR);
    int exitCode = -1;
    const QString output =
        run({QStringLiteral("cpack"), QStringLiteral("-G"), QStringLiteral("DEB"),
             QStringLiteral("--config"), buildDir + QStringLiteral("/CPackConfig.cmake"),
             QStringLiteral("-B"), m_work.path()},
            &exitCode, 240s);
    QVERIFY2(exitCode == 0, qPrintable(output));
    const QStringList debs = QDir(m_work.path()).entryList({QStringLiteral("*.deb")});
    QCOMPARE(debs.size(), 1);
    m_deb = m_work.filePath(debs.constFirst());
    QCOMPARE(
        run({QStringLiteral("dpkg-deb"), QStringLiteral("-x"), m_deb, m_root.path()}, &exitCode),
        QString());
    QCOMPARE(exitCode, 0);
}

QString tst_x11_DebPackage::field(const QString& name) {
    return run({QStringLiteral("dpkg-deb"), QStringLiteral("-f"), m_deb, name}).trimmed();
}

QStringList tst_x11_DebPackage::dependencies() {
    QStringList names;
    for (const QString& entry : field(QStringLiteral("Depends")).split(u',', Qt::SkipEmptyParts))
        names.append(entry.trimmed().section(u' ', 0, 0));
    return names;
}

void tst_x11_DebPackage::controlData() {
    QCOMPARE(field(QStringLiteral("Package")), QStringLiteral("quillmar"));
    QCOMPARE(field(QStringLiteral("Version")), Environment::buildVersion());
    QCOMPARE(field(QStringLiteral("Architecture")),
             run({QStringLiteral("dpkg"), QStringLiteral("--print-architecture")}).trimmed());
    QCOMPARE(field(QStringLiteral("Section")), QStringLiteral("utils"));
    QVERIFY(!field(QStringLiteral("Maintainer")).isEmpty());
    const QStringList description = field(QStringLiteral("Description")).split(u'\n');
    QCOMPARE(description.constFirst(), QStringLiteral("Raindrop bookmarks in the system tray"));
    QVERIFY(description.size() > 1);
    for (const QString& line : description)
        QVERIFY2(line.size() <= 80, qPrintable(line));

    // Qt loads these at run time, so no linker records them: the icon's SVG renderer and the
    // X11 platform plugin.
    const QStringList depends = dependencies();
    for (const auto& plugin : {QStringLiteral("libqt6svg6"), QStringLiteral("qt6-qpa-plugins")})
        QVERIFY2(depends.contains(plugin), qPrintable(depends.join(u", ")));
    // Fonts with the menu's emoji and with its symbol ⎘.
    const QString recommends = field(QStringLiteral("Recommends"));
    QVERIFY2(recommends.contains(QStringLiteral("fonts-noto-color-emoji")) &&
                 recommends.contains(QStringLiteral("fonts-symbola")),
             qPrintable(recommends));
}

void tst_x11_DebPackage::dependenciesCoverEveryLinkedLibrary() {
    const QString binary = file(QStringLiteral("usr/bin/quillmar"));
    const QString dynamic = run({QStringLiteral("readelf"), QStringLiteral("-d"), binary});
    // Nothing points back into the build tree.
    QVERIFY2(!dynamic.contains(QStringLiteral("RUNPATH")) &&
                 !dynamic.contains(QStringLiteral("RPATH")),
             qPrintable(dynamic));
    const QRegularExpression needed(QStringLiteral(R"(\(NEEDED\).*\[(.+)\])"));
    const QStringList depends = dependencies();
    // The libraries of this architecture only: a machine may also hold 32-bit copies
    // (libc6-i386 has a libm.so.6 too).
    const QString multiarch =
        run({QStringLiteral("dpkg-architecture"), QStringLiteral("-qDEB_HOST_MULTIARCH")})
            .trimmed();
    QVERIFY(!multiarch.isEmpty());
    int libraries = 0;
    for (auto it = needed.globalMatch(dynamic); it.hasNext();) {
        const QString soname = it.next().captured(1);
        const QString owner = run({QStringLiteral("dpkg"), QStringLiteral("-S"),
                                   QStringLiteral("*/%1/%2").arg(multiarch, soname)})
                                  .section(u':', 0, 0)
                                  .trimmed();
        QVERIFY2(!owner.isEmpty(), qPrintable(soname));
        QVERIFY2(depends.contains(owner), qPrintable(soname + QStringLiteral(" from ") + owner));
        ++libraries;
    }
    QVERIFY(libraries >= 4);
}

void tst_x11_DebPackage::fileList() {
    QStringList files;
    const QString listing = run({QStringLiteral("dpkg-deb"), QStringLiteral("-c"), m_deb});
    for (const QString& line : listing.split(u'\n', Qt::SkipEmptyParts)) {
        if (line.startsWith(u'd'))
            continue;
        files.append(line.section(u' ', -1));
    }
    files.sort();
    QCOMPARE(
        files,
        QStringList({
            QStringLiteral("./usr/bin/quillmar"),
            QStringLiteral("./usr/share/applications/") + appId + QStringLiteral(".desktop"),
            QStringLiteral("./usr/share/dbus-1/services/") + appId + QStringLiteral(".service"),
            QStringLiteral("./usr/share/doc/quillmar/copyright"),
            QStringLiteral("./usr/share/icons/hicolor/scalable/apps/") + appId +
                QStringLiteral(".svg"),
            QStringLiteral("./usr/share/icons/hicolor/symbolic/apps/") + appId +
                QStringLiteral("-symbolic.svg"),
            QStringLiteral("./usr/share/metainfo/") + appId + QStringLiteral(".metainfo.xml"),
            QStringLiteral("./usr/share/quillmar/autostart/") + appId + QStringLiteral(".desktop"),
        }));
    QVERIFY(QFileInfo(file(QStringLiteral("usr/bin/quillmar"))).isExecutable());
}

void tst_x11_DebPackage::aptResolvesDependenciesOnFreshSystem() {
    // With the package lists of the archive, apt installs the package on a system that has
    // nothing installed (an empty status file): every dependency must come from Debian.
    QTemporaryDir state;
    QVERIFY(state.isValid());
    const bool haveLists = !QDir(QStringLiteral("/var/lib/apt/lists"))
                                .entryList({QStringLiteral("*_Packages*")}, QDir::Files)
                                .isEmpty();
    QStringList command{QStringLiteral("apt-get"), QStringLiteral("install"),
                        QStringLiteral("--simulate"), QStringLiteral("--quiet")};
    if (haveLists) {
        QFile status(state.filePath(QStringLiteral("status")));
        QVERIFY(status.open(QIODevice::WriteOnly));
        status.close();
        command << QStringLiteral("-o")
                << QStringLiteral("Dir::State::status=") + status.fileName();
    } else {
        qInfo("No package lists (apt-get update was never run): resolving against the "
              "installed packages instead of a fresh system");
    }
    command << m_deb;
    int exitCode = -1;
    const QString output = run(command, &exitCode);
    QVERIFY2(exitCode == 0, qPrintable(output));
    QVERIFY2(output.contains(QStringLiteral("Inst quillmar ")), qPrintable(output));
}

void tst_x11_DebPackage::desktopEntryAndIcons() {
    const QString entryPath =
        file(QStringLiteral("usr/share/applications/") + appId + QStringLiteral(".desktop"));
    for (const QString& entry : {entryPath, file(QStringLiteral("usr/share/quillmar/autostart/") +
                                                 appId + QStringLiteral(".desktop"))}) {
        int exitCode = -1;
        const QString complaints = run({QStringLiteral("desktop-file-validate"), entry}, &exitCode);
        QVERIFY2(exitCode == 0 && complaints.isEmpty(), qPrintable(entry + complaints));
    }

    QFile entryFile(entryPath);
    QVERIFY(entryFile.open(QIODevice::ReadOnly));
    const QStringList lines = QString::fromUtf8(entryFile.readAll()).split(u'\n');
    for (const QString& expected :
         {QStringLiteral("Name=Quillmar"), QStringLiteral("Exec=quillmar"),
          QStringLiteral("Icon=") + appId, QStringLiteral("Categories=Utility;"),
          QStringLiteral("Type=Application"), QStringLiteral("DBusActivatable=true")})
        QVERIFY2(lines.contains(expected), qPrintable(expected));
    // The program it starts is the one installed, by D-Bus as by name.
    QVERIFY(QFileInfo::exists(file(QStringLiteral("usr/bin/quillmar"))));
    QFile service(
        file(QStringLiteral("usr/share/dbus-1/services/") + appId + QStringLiteral(".service")));
    QVERIFY(service.open(QIODevice::ReadOnly));
    QCOMPARE(QString::fromUtf8(service.readAll()).split(u'\n', Qt::SkipEmptyParts),
             QStringList({QStringLiteral("[D-BUS Service]"), QStringLiteral("Name=") + appId,
                          QStringLiteral("Exec=/usr/bin/quillmar")}));

    // Both icons are real SVG drawings that Qt's SVG plugin (a dependency) renders.
    for (const QString& icon :
         {QStringLiteral("usr/share/icons/hicolor/scalable/apps/") + appId + QStringLiteral(".svg"),
          QStringLiteral("usr/share/icons/hicolor/symbolic/apps/") + appId +
              QStringLiteral("-symbolic.svg")}) {
        const QImage image(file(icon));
        QVERIFY2(!image.isNull(), qPrintable(icon));
        QVERIFY(image.width() >= 16);
    }
}

void tst_x11_DebPackage::appStreamMetadataValidates() {
    const QString metainfo =
        file(QStringLiteral("usr/share/metainfo/") + appId + QStringLiteral(".metainfo.xml"));
    int exitCode = -1;
    const QString report = run({QStringLiteral("appstreamcli"), QStringLiteral("validate"),
                                QStringLiteral("--no-net"), metainfo},
                               &exitCode);
    QVERIFY2(exitCode == 0, qPrintable(report));

    QFile xml(metainfo);
    QVERIFY(xml.open(QIODevice::ReadOnly));
    QXmlStreamReader reader(&xml);
    QString id;
    QString launchable;
    QString release;
    while (!reader.atEnd()) {
        if (reader.readNext() != QXmlStreamReader::StartElement)
            continue;
        if (reader.name() == QStringLiteral("id"))
            id = reader.readElementText();
        else if (reader.name() == QStringLiteral("launchable"))
            launchable = reader.readElementText();
        else if (reader.name() == QStringLiteral("release") && release.isEmpty())
            release = reader.attributes().value(QStringLiteral("version")).toString();
    }
    QVERIFY(!reader.hasError());
    QCOMPARE(id, appId);
    QCOMPARE(launchable, appId + QStringLiteral(".desktop"));
    QCOMPARE(release, Environment::buildVersion());
}

void tst_x11_DebPackage::copyrightIsMachineReadable() {
    // Read by python3-debian's parser of Debian's machine-readable format, strictly: it refuses
    // a file that breaks the format. It prints what this test compares.
    const QString script = QStringLiteral(R"(
import sys
from debian.copyright import Copyright
with open(sys.argv[1], encoding="utf-8") as f:
    c = Copyright(f, strict=True)
h = c.header
print(h.format)
print(h.upstream_name)
for p in c.all_files_paragraphs():
    print("|".join(p.files), p.copyright, p.license.synopsis, sep="\t")
    print(p.license.text)
)");
    int exitCode = -1;
    const QString parsed = run({QStringLiteral("/usr/bin/python3"), QStringLiteral("-c"), script,
                                file(QStringLiteral("usr/share/doc/quillmar/copyright"))},
                               &exitCode);
    QVERIFY2(exitCode == 0, qPrintable(parsed));
    const QStringList lines = parsed.split(u'\n');
    QCOMPARE(lines.value(0),
             QStringLiteral("https://www.debian.org/doc/packaging-manuals/copyright-format/1.0/"));
    QCOMPARE(lines.value(1), QStringLiteral("Quillmar"));
    // Everything is the developers' own, under the MIT licence (Debian's name: Expat).
    QCOMPARE(lines.value(2), QStringLiteral("*\t2026 The Quillmar developers\tExpat"));

    // The licence text is LICENSE's, word for word, after its title and copyright line.
    QFile license(QStringLiteral(QUILLMAR_SOURCE_DIR) + QStringLiteral("/LICENSE"));
    QVERIFY(license.open(QIODevice::ReadOnly));
    const QString licenseText = QString::fromUtf8(license.readAll());
    QVERIFY(licenseText.startsWith(
        QStringLiteral("MIT License\n\nCopyright (c) 2026 The Quillmar developers\n\n")));
    const QString terms = licenseText.mid(licenseText.indexOf(QStringLiteral("Permission")));
    QCOMPARE(lines.mid(3).join(u'\n').trimmed(), terms.trimmed());
}

void tst_x11_DebPackage::startsFromUnpackedRoot() {
    QTemporaryDir home;
    QVERIFY(home.isValid());
    QDir(home.path()).mkpath(QStringLiteral("runtime"));
    QFile::setPermissions(home.filePath(QStringLiteral("runtime")),
                          QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    // A first run of its own: no configuration, its own runtime folder.
    qputenv("HOME", home.path().toLocal8Bit());
    qputenv("XDG_CONFIG_HOME", home.filePath(QStringLiteral(".config")).toLocal8Bit());
    qputenv("XDG_RUNTIME_DIR", home.filePath(QStringLiteral("runtime")).toLocal8Bit());
    ChildProcess program;
    QVERIFY(program.start({file(QStringLiteral("usr/bin/quillmar"))},
                          home.filePath(QStringLiteral("quillmar.log"))));

    // The drop appears in the tray.
    const QStringList search{QStringLiteral("xdotool"), QStringLiteral("search"),
                             QStringLiteral("--onlyvisible"), QStringLiteral("--classname"),
                             QStringLiteral("quillmar")};
    QTRY_VERIFY_WITH_TIMEOUT(ChildProcess::run(search).exitCode == 0, 20000);
    QVERIFY(program.isRunning());
    program.stop();
}

QTEST_MAIN(tst_x11_DebPackage)
#include "tst_x11_DebPackage.moc"
