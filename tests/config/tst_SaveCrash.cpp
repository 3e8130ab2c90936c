#include "ChildProcess.h"
#include "config/AppConfig.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

#include <csignal>

using namespace Qt::StringLiterals;

// A process that saves the configuration in a loop is killed many times at random moments; the
// file must always be one of the two configurations it writes, whole.
class tst_SaveCrash : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void fileIsOldOrNewAfterEveryKill();

private:
    static bool write(const QString& path, const QByteArray& bytes);

    QTemporaryDir m_home;
    QByteArray m_savedHome;
};

void tst_SaveCrash::initTestCase() {
    QVERIFY(m_home.isValid());
    // The saving process finds the configuration file under its home folder.
    m_savedHome = qgetenv("HOME");
    qputenv("HOME", QFile::encodeName(m_home.path()));
}

void tst_SaveCrash::cleanupTestCase() {
    qputenv("HOME", m_savedHome);
}

bool tst_SaveCrash::write(const QString& path, const QByteArray& bytes) {
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

void tst_SaveCrash::fileIsOldOrNewAfterEveryKill() {
    AppConfig small;
    small.token = u"small-token"_s;
    small.pinnedTags = {u"reading"_s};
    // Large enough that a save takes a while, so that many kills land inside one.
    AppConfig large;
    large.token = u"large-token"_s;
    large.openMenuShortcut = ShortcutConfig::defaultShortcut();
    for (int i = 0; i < 5000; ++i) {
        large.pinnedCollectionIds.append(1500000000 + i);
        large.pinnedTags.append(u"tag number %1 with some length"_s.arg(i));
    }
    const QByteArray smallBytes = small.encode();
    const QByteArray largeBytes = large.encode();
    const QString first = m_home.filePath(u"small.json"_s);
    const QString second = m_home.filePath(u"large.json"_s);
    QVERIFY(write(first, smallBytes));
    QVERIFY(write(second, largeBytes));
    const QString target = QDir(m_home.path()).filePath(u".config/quillmar/config.json"_s);

    // The kills spread over about three rounds of the saving loop, however fast this machine
    // (or this build, with sanitizers) saves.
    QElapsedTimer timer;
    timer.start();
    for (int round = 0; round < 3; ++round)
        QVERIFY(!small.save() && !large.save());
    const qint64 window = qMax<qint64>(timer.nsecsElapsed() / 1000, 1000);

    const quint32 seed = QRandomGenerator::global()->generate();
    QRandomGenerator random(seed);
    constexpr int kills = 200;
    int smallSeen = 0;
    int largeSeen = 0;
    for (int i = 0; i < kills; ++i) {
        ChildProcess saver;
        QVERIFY(saver.start({QStringLiteral(QUILLMAR_SAVE_LOOP), first, second}, QString(), true));
        QCOMPARE(saver.readLine(std::chrono::seconds(30)), std::optional<QByteArray>("saving"));
        QThread::usleep(random.bounded(window));
        QVERIFY2(saver.isRunning(), "the saving process ended by itself");
        QCOMPARE(::kill(saver.pid(), SIGKILL), 0);
        saver.stop();

        QFile file(target);
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QByteArray bytes = file.readAll();
        const QString where =
            u"kill %1 of %2, seed %3: %4 bytes"_s.arg(i + 1).arg(kills).arg(seed).arg(bytes.size());
        QVERIFY2(bytes == smallBytes || bytes == largeBytes, qPrintable(where));
        (bytes == smallBytes ? smallSeen : largeSeen) += 1;
        QCOMPARE(AppConfig::decode(bytes), bytes == smallBytes ? small : large);
    }
    // Kills hit both phases of the loop, so both outcomes occur.
    QVERIFY2(smallSeen > 0 && largeSeen > 0,
             qPrintable(u"small %1 times, large %2 times"_s.arg(smallSeen).arg(largeSeen)));
}

QTEST_GUILESS_MAIN(tst_SaveCrash)
#include "tst_SaveCrash.moc"
