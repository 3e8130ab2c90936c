// One Quillmar per session, on a private session bus that the test starts and stops.
#include "PrivateSessionBus.h"
#include "app/desktop/SingleInstance.h"
#include "app/tray/StatusItem.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QFileInfo>
#include <QMenu>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include <csignal>
#include <memory>
#include <sys/prctl.h>

namespace {

// The program itself, started as a user would start it a second time.
class Quillmar {
public:
    explicit Quillmar(const QString& busAddress) {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), busAddress);
        environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
        // A home of its own: no configuration, so the setup menu.
        environment.insert(QStringLiteral("HOME"), m_home.path());
        environment.insert(QStringLiteral("XDG_CONFIG_HOME"),
                           m_home.filePath(QStringLiteral(".config")));
        m_process.setProcessEnvironment(environment);
        m_process.setProcessChannelMode(QProcess::ForwardedChannels);
        m_process.setChildProcessModifier([] { prctl(PR_SET_PDEATHSIG, SIGKILL); });
    }
    ~Quillmar() {
        if (m_process.state() != QProcess::NotRunning) {
            m_process.kill();
            m_process.waitForFinished(5000);
        }
    }

    static QString program() {
        return QFileInfo(QCoreApplication::applicationDirPath() + QStringLiteral("/../quillmar"))
            .absoluteFilePath();
    }

    void start() { m_process.start(program(), {}); }
    QProcess& process() { return m_process; }

private:
    QTemporaryDir m_home;
    QProcess m_process;
};

} // namespace

class tst_SingleInstance : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void firstClaimsSecondDoesNot();
    void showMenuRunsTheActionFromTheEventLoop();
    void secondStartOpensTheFirstOnesMenuAndExitsZero();
    void secondProgramExitsWhileFirstProgramRuns();
    void nameIsFreeAgainAfterTheFirstEnds();
    void withoutSessionBusQuillmarRunsAlone();

private:
    QDBusConnection connect(const QString& name);

    std::unique_ptr<PrivateSessionBus> m_bus;
    int m_connections = 0;
};

void tst_SingleInstance::initTestCase() {
    QVERIFY2(QFileInfo::exists(Quillmar::program()),
             qPrintable(QStringLiteral("build the program first: ") + Quillmar::program()));
    m_bus = std::make_unique<PrivateSessionBus>();
    QVERIFY(m_bus->start());
}

QDBusConnection tst_SingleInstance::connect(const QString& name) {
    return QDBusConnection::connectToBus(m_bus->address(), name + QString::number(++m_connections));
}

void tst_SingleInstance::firstClaimsSecondDoesNot() {
    SingleInstance first(connect(QStringLiteral("first")));
    QVERIFY(first.claim());
    SingleInstance second(connect(QStringLiteral("second")));
    QVERIFY(!second.claim());
    QDBusConnection observer = connect(QStringLiteral("observer"));
    QVERIFY(observer.interface()->isServiceRegistered(SingleInstance::serviceName()));
}

void tst_SingleInstance::showMenuRunsTheActionFromTheEventLoop() {
    SingleInstance instance(connect(QStringLiteral("first")));
    int runs = 0;
    instance.setAction([&runs] { ++runs; });
    instance.ShowMenu();
    QCOMPARE(runs, 0);
    QTRY_COMPARE(runs, 1);
}

void tst_SingleInstance::secondStartOpensTheFirstOnesMenuAndExitsZero() {
    StatusItem item;
    auto* menu = new QMenu();
    menu->addAction(QStringLiteral("Settings…"));
    item.setMenu(menu);
    SingleInstance first(connect(QStringLiteral("first")));
    QVERIFY(first.claim());
    first.setAction([&item] { item.performClick(); });

    Quillmar second(m_bus->address());
    second.start();
    QVERIFY(second.process().waitForStarted(5000));
    // The event loop runs meanwhile, so this process answers the second one's ShowMenu.
    QTRY_COMPARE_WITH_TIMEOUT(second.process().state(), QProcess::NotRunning, 20000);
    QCOMPARE(second.process().exitStatus(), QProcess::NormalExit);
    QCOMPARE(second.process().exitCode(), 0);
    QTRY_VERIFY(menu->isVisible());
    menu->hide();
}

void tst_SingleInstance::secondProgramExitsWhileFirstProgramRuns() {
    Quillmar first(m_bus->address());
    first.start();
    QVERIFY(first.process().waitForStarted(5000));
    QDBusConnection observer = connect(QStringLiteral("observer"));
    QTRY_VERIFY_WITH_TIMEOUT(
        observer.interface()->isServiceRegistered(SingleInstance::serviceName()), 20000);

    Quillmar second(m_bus->address());
    second.start();
    QVERIFY(second.process().waitForFinished(20000));
    QCOMPARE(second.process().exitStatus(), QProcess::NormalExit);
    QCOMPARE(second.process().exitCode(), 0);
    QCOMPARE(first.process().state(), QProcess::Running);
    QVERIFY(observer.interface()->isServiceRegistered(SingleInstance::serviceName()));
}

void tst_SingleInstance::nameIsFreeAgainAfterTheFirstEnds() {
    {
        SingleInstance first(connect(QStringLiteral("first")));
        QVERIFY(first.claim());
    }
    SingleInstance next(connect(QStringLiteral("next")));
    QVERIFY(next.claim());
}

void tst_SingleInstance::withoutSessionBusQuillmarRunsAlone() {
    SingleInstance alone{QDBusConnection(QStringLiteral("no such connection"))};
    QVERIFY(alone.claim());

    Quillmar program(QStringLiteral("unix:path=") + m_bus->directory() +
                     QStringLiteral("/no-bus-here"));
    program.start();
    QVERIFY(program.process().waitForStarted(5000));
    QVERIFY(!program.process().waitForFinished(1500));
    QCOMPARE(program.process().state(), QProcess::Running);
}

QTEST_MAIN(tst_SingleInstance)
#include "tst_SingleInstance.moc"
