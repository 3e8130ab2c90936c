// Every test program makes its own home: run by hand, with HOME pointing at a real one, the
// programs that write the configuration leave the real one's as it was.
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

class tst_OwnHome : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void ownHomeOfThisProgram();
    void realConfigurationKept_data();
    void realConfigurationKept();
};

void tst_OwnHome::ownHomeOfThisProgram() {
    const QString home = qEnvironmentVariable("HOME");
    QVERIFY(home.startsWith(QDir::tempPath() + u"/quillmar-test-home-"_s));
    QCOMPARE(QDir::homePath(), home);
    QCOMPARE(qEnvironmentVariable("XDG_CONFIG_HOME"), home + u"/.config"_s);
    QCOMPARE(qEnvironmentVariable("XDG_DATA_HOME"), home + u"/.local/share"_s);
    QCOMPARE(qEnvironmentVariable("XDG_STATE_HOME"), home + u"/.local/state"_s);
    QCOMPARE(qEnvironmentVariable("XDG_CACHE_HOME"), home + u"/.cache"_s);
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    QCOMPARE(runtime, home + u"/runtime"_s);
    QCOMPARE(QFile::permissions(runtime) & (QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner |
                                            QFile::ReadGroup | QFile::ReadOther),
             QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
}

void tst_OwnHome::realConfigurationKept_data() {
    QTest::addColumn<QString>("program");
    for (const char* program :
         {"tst_AppDelegate", "tst_MenuManagerUpdates", "tst_SettingsView", "tst_SettingsViewModel",
          "tst_SettingsWindowController", "tst_ShortcutsTab", "tst_UpdateChecker"})
        QTest::newRow(program) << QString::fromLatin1(program);
}

void tst_OwnHome::realConfigurationKept() {
    QFETCH(QString, program);
    QTemporaryDir realHome;
    QVERIFY(realHome.isValid());
    const QString path = realHome.filePath(u".config/quillmar/config.json"_s);
    QVERIFY(QDir().mkpath(QFileInfo(path).path()));
    const QByteArray kept = R"({"token": "the developer's own"})";
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(kept);
    file.close();

    // As a developer runs it from a shell: nothing but the shell's own environment.
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"HOME"_s, realHome.path());
    for (const QString& name : {u"XDG_CONFIG_HOME"_s, u"XDG_DATA_HOME"_s, u"XDG_STATE_HOME"_s,
                                u"XDG_CACHE_HOME"_s, u"XDG_RUNTIME_DIR"_s})
        environment.remove(name);
    QProcess run;
    run.setProcessEnvironment(environment);
    run.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    run.start(QStringLiteral(QUILLMAR_TESTS_DIR) + u'/' + program, {});
    QVERIFY(run.waitForFinished(120000));
    QCOMPARE(run.exitStatus(), QProcess::NormalExit);

    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll(), kept);
    QCOMPARE(
        QDir(realHome.path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
        QStringList{u".config"_s});
}

QTEST_MAIN(tst_OwnHome)
#include "tst_OwnHome.moc"
