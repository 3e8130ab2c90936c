// org.freedesktop.Application on the single instance's object, called over a private session
// bus as launchers call it.
#include "PrivateSessionBus.h"
#include "app/desktop/DesktopApplicationAdaptor.h"
#include "app/desktop/SingleInstance.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QXmlStreamReader>
#include <QtTest>

#include <memory>

using namespace Qt::StringLiterals;

namespace {

const QString applicationInterface = u"org.freedesktop.Application"_s;

// The running Quillmar's side: the name, ShowMenu and the adaptor, with counters for what the
// calls ask for.
struct Served {
    explicit Served(const QDBusConnection& bus)
        : instance(bus)
        , adaptor(new DesktopApplicationAdaptor(&instance, bus)) {
        instance.setAction([this] { ++showMenuRuns; });
        adaptor->setMenuAction([this] { ++menuRuns; });
        adaptor->setSettingsAction([this](const QString& token) { settingsTokens.append(token); });
    }

    SingleInstance instance;
    DesktopApplicationAdaptor* adaptor;
    int showMenuRuns = 0;
    int menuRuns = 0;
    QStringList settingsTokens;
};

// Each interface's methods with their argument signatures ("sava{sv}"), from introspection XML.
QHash<QString, QHash<QString, QString>> methodsOf(const QString& introspection) {
    QHash<QString, QHash<QString, QString>> methods;
    QXmlStreamReader xml(introspection);
    QString interface;
    QString method;
    while (!xml.atEnd()) {
        if (xml.readNext() != QXmlStreamReader::StartElement)
            continue;
        const QXmlStreamAttributes attributes = xml.attributes();
        if (xml.name() == u"interface"_s) {
            interface = attributes.value(u"name"_s).toString();
        } else if (xml.name() == u"method"_s) {
            method = attributes.value(u"name"_s).toString();
            methods[interface][method] = QString();
        } else if (xml.name() == u"arg"_s && attributes.value(u"direction"_s) != u"out"_s) {
            methods[interface][method] += attributes.value(u"type"_s).toString();
        }
    }
    return xml.hasError() ? QHash<QString, QHash<QString, QString>>() : methods;
}

} // namespace

class tst_DesktopApplicationAdaptor : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void introspectionOffersBothInterfaces();
    void activateOpensTheMenuAfterAnswering();
    void openOpensTheMenu();
    void openMenuAction();
    void settingsActionCarriesTheActivationToken();
    void unknownActionIsRefusedWithItsName();
    void parameterIsRefused();
    void showMenuStillWorks();
    void activationToken_data();
    void activationToken();

private:
    QDBusMessage call(const QString& interface, const QString& method,
                      const QVariantList& arguments);

    std::unique_ptr<PrivateSessionBus> m_bus;
    std::unique_ptr<Served> m_served;
    std::unique_ptr<QDBusConnection> m_caller;
    int m_connections = 0;
};

void tst_DesktopApplicationAdaptor::initTestCase() {
    m_bus = std::make_unique<PrivateSessionBus>();
    QVERIFY(m_bus->start());
}

void tst_DesktopApplicationAdaptor::init() {
    const QString suffix = QString::number(++m_connections);
    m_served = std::make_unique<Served>(
        QDBusConnection::connectToBus(m_bus->address(), u"served"_s + suffix));
    QVERIFY(m_served->instance.claim());
    m_caller = std::make_unique<QDBusConnection>(
        QDBusConnection::connectToBus(m_bus->address(), u"caller"_s + suffix));
    QVERIFY(m_caller->isConnected());
}

void tst_DesktopApplicationAdaptor::cleanup() {
    m_served.reset();
    m_caller.reset();
}

QDBusMessage tst_DesktopApplicationAdaptor::call(const QString& interface, const QString& method,
                                                 const QVariantList& arguments) {
    QDBusMessage message = QDBusMessage::createMethodCall(
        SingleInstance::serviceName(), SingleInstance::objectPath(), interface, method);
    message.setArguments(arguments);
    // Blocks this thread only; the served object answers from the other connection's thread
    // once this event loop runs, so the call waits with events processed.
    return m_caller->call(message, QDBus::BlockWithGui, 10000);
}

void tst_DesktopApplicationAdaptor::introspectionOffersBothInterfaces() {
    const QDBusMessage reply = call(u"org.freedesktop.DBus.Introspectable"_s, u"Introspect"_s, {});
    QCOMPARE(reply.type(), QDBusMessage::ReplyMessage);
    const auto methods = methodsOf(reply.arguments().constFirst().toString());
    // The signatures desktops call, exactly.
    QCOMPARE(methods.value(applicationInterface),
             (QHash<QString, QString>{{u"Activate"_s, u"a{sv}"_s},
                                      {u"Open"_s, u"asa{sv}"_s},
                                      {u"ActivateAction"_s, u"sava{sv}"_s}}));
    QCOMPARE(methods.value(SingleInstance::interfaceName()),
             (QHash<QString, QString>{{u"ShowMenu"_s, QString()}}));
}

void tst_DesktopApplicationAdaptor::activateOpensTheMenuAfterAnswering() {
    const QDBusMessage reply = call(applicationInterface, u"Activate"_s, {QVariantMap()});
    QCOMPARE(reply.type(), QDBusMessage::ReplyMessage);
    QTRY_COMPARE(m_served->menuRuns, 1);
    QCOMPARE(m_served->settingsTokens, QStringList());
    QCOMPARE(m_served->showMenuRuns, 0);
}

void tst_DesktopApplicationAdaptor::openOpensTheMenu() {
    const QDBusMessage reply = call(applicationInterface, u"Open"_s,
                                    {QStringList{u"https://example.org/"_s}, QVariantMap()});
    QCOMPARE(reply.type(), QDBusMessage::ReplyMessage);
    QTRY_COMPARE(m_served->menuRuns, 1);
}

void tst_DesktopApplicationAdaptor::openMenuAction() {
    const QDBusMessage reply = call(applicationInterface, u"ActivateAction"_s,
                                    {u"open-menu"_s, QVariantList(), QVariantMap()});
    QCOMPARE(reply.type(), QDBusMessage::ReplyMessage);
    QTRY_COMPARE(m_served->menuRuns, 1);
    QCOMPARE(m_served->settingsTokens, QStringList());
}

void tst_DesktopApplicationAdaptor::settingsActionCarriesTheActivationToken() {
    const QVariantMap platformData{{u"activation-token"_s, u"token-1"_s},
                                   {u"desktop-startup-id"_s, u"startup-1"_s}};
    const QDBusMessage reply = call(applicationInterface, u"ActivateAction"_s,
                                    {u"settings"_s, QVariantList(), platformData});
    QCOMPARE(reply.type(), QDBusMessage::ReplyMessage);
    QTRY_COMPARE(m_served->settingsTokens, QStringList{u"token-1"_s});
    QCOMPARE(m_served->menuRuns, 0);

    // Without platform data: shown all the same, with no token.
    QCOMPARE(call(applicationInterface, u"ActivateAction"_s,
                  {u"settings"_s, QVariantList(), QVariantMap()})
                 .type(),
             QDBusMessage::ReplyMessage);
    QTRY_COMPARE(m_served->settingsTokens, (QStringList{u"token-1"_s, QString()}));
}

void tst_DesktopApplicationAdaptor::unknownActionIsRefusedWithItsName() {
    const QDBusMessage reply = call(applicationInterface, u"ActivateAction"_s,
                                    {u"preferences"_s, QVariantList(), QVariantMap()});
    QCOMPARE(reply.type(), QDBusMessage::ErrorMessage);
    QCOMPARE(reply.errorName(), u"org.freedesktop.DBus.Error.InvalidArgs"_s);
    QCOMPARE(reply.errorMessage(),
             u"Quillmar has no action \"preferences\"; it has \"open-menu\" and \"settings\""_s);
    QCoreApplication::processEvents();
    QCOMPARE(m_served->menuRuns, 0);
    QCOMPARE(m_served->settingsTokens, QStringList());
}

void tst_DesktopApplicationAdaptor::parameterIsRefused() {
    const QDBusMessage reply =
        call(applicationInterface, u"ActivateAction"_s,
             {u"settings"_s, QVariantList{QVariant::fromValue(QDBusVariant(u"general"_s))},
              QVariantMap()});
    QCOMPARE(reply.type(), QDBusMessage::ErrorMessage);
    QCOMPARE(reply.errorName(), u"org.freedesktop.DBus.Error.InvalidArgs"_s);
    QCOMPARE(reply.errorMessage(), u"The action \"settings\" takes no parameter"_s);
    QCoreApplication::processEvents();
    QCOMPARE(m_served->settingsTokens, QStringList());
}

void tst_DesktopApplicationAdaptor::showMenuStillWorks() {
    const QDBusMessage reply = call(SingleInstance::interfaceName(), u"ShowMenu"_s, {});
    QCOMPARE(reply.type(), QDBusMessage::ReplyMessage);
    QTRY_COMPARE(m_served->showMenuRuns, 1);
    QCOMPARE(m_served->menuRuns, 0);
}

void tst_DesktopApplicationAdaptor::activationToken_data() {
    QTest::addColumn<QVariantMap>("platformData");
    QTest::addColumn<bool>("wayland");
    QTest::addColumn<QString>("token");
    const QVariantMap both{{u"activation-token"_s, u"xdg-token"_s},
                           {u"desktop-startup-id"_s, u"startup-id"_s}};
    const QVariantMap startupOnly{{u"desktop-startup-id"_s, u"startup-id"_s}};
    QTest::newRow("activation token first") << both << true << u"xdg-token"_s;
    QTest::newRow("activation token on X11 too") << both << false << u"xdg-token"_s;
    // GLib before 2.76 (GNOME 43) sends the Wayland token as the startup id only.
    QTest::newRow("startup id is the token on Wayland") << startupOnly << true << u"startup-id"_s;
    QTest::newRow("startup id means nothing on X11") << startupOnly << false << QString();
    QTest::newRow("byte string with its terminator")
        << QVariantMap{{u"activation-token"_s, QByteArray("bytes-token\0", 12)}} << true
        << u"bytes-token"_s;
    QTest::newRow("not a text") << QVariantMap{{u"activation-token"_s, 7}} << true << QString();
    QTest::newRow("none") << QVariantMap() << true << QString();
}

void tst_DesktopApplicationAdaptor::activationToken() {
    QFETCH(QVariantMap, platformData);
    QFETCH(bool, wayland);
    QFETCH(QString, token);
    QCOMPARE(DesktopApplicationAdaptor::activationToken(platformData, wayland), token);
}

QTEST_MAIN(tst_DesktopApplicationAdaptor)
#include "tst_DesktopApplicationAdaptor.moc"
