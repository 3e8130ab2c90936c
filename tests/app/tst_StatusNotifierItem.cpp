// The tray icon's org.kde.StatusNotifierItem as panels call it, over a private session bus:
// every property and method of the protocol answers.
#include "PrivateSessionBus.h"
#include "TestStatusNotifierHost.h"
#include "TestStatusNotifierWatcher.h"

#include "app/tray/StatusItem.h"
#include "app/tray/StatusNotifierItem.h"

#include <QDBusMessage>
#include <QDBusVariant>
#include <QDir>
#include <QFile>
#include <QIcon>
#include <QImage>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>

using namespace Qt::StringLiterals;

namespace {
const QString symbolicIcon = u"app.quillmar.Quillmar-symbolic"_s;
const QString itemInterface = u"org.kde.StatusNotifierItem"_s;
} // namespace

class tst_StatusNotifierItem : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void cleanup();

    void everyPropertyAnswers_data();
    void everyPropertyAnswers();
    void allPropertiesAtOnce();
    void clicksReachTheProgram();
    void middleClickActsAsLeftClick();
    void scrollDoesNothing();
    void activationTokenReachesTheProgram();
    void itemRegistersAgainWhenThePanelDropsIt();
    void itemGivesUpOnAPanelThatKeepsDroppingIt();
    void iconNameOnlyWhenThemeHasIt();
    void iconNameFromInstalledTheme();
    void symbolicIconTakesThePanelsTextColour();

private:
    // A new item on the bus, attached to by the panel.
    bool publish(const QString& iconName = symbolicIcon);

    std::unique_ptr<PrivateSessionBus> m_bus;
    std::unique_ptr<TestStatusNotifierWatcher> m_watcher;
    std::unique_ptr<StatusNotifierItem> m_item;
    std::unique_ptr<TestStatusNotifierHost> m_host;
    QTemporaryDir m_data;
};

void tst_StatusNotifierItem::initTestCase() {
    // The installed icons, from the source tree.
    Q_INIT_RESOURCE(testdata);
    m_bus = std::make_unique<PrivateSessionBus>();
    QVERIFY(m_bus->start());
    qputenv("DBUS_SESSION_BUS_ADDRESS", m_bus->address().toUtf8());
    m_watcher = std::make_unique<TestStatusNotifierWatcher>(m_bus->address());
    QVERIFY(m_watcher->start());
    // No icon theme holds the program's icon until a test installs it.
    qputenv("XDG_DATA_DIRS", m_data.path().toUtf8());
    qputenv("XDG_DATA_HOME", QDir(m_data.path()).filePath(u"home"_s).toUtf8());
}

void tst_StatusNotifierItem::cleanupTestCase() {
    m_host.reset();
    m_item.reset();
    m_watcher.reset();
    m_bus.reset();
}

void tst_StatusNotifierItem::cleanup() {
    m_host.reset();
    m_item.reset();
}

bool tst_StatusNotifierItem::publish(const QString& iconName) {
    m_host.reset();
    m_item.reset();
    // The panel forgets the previous item once it has left the bus.
    if (!QTest::qWaitFor([this] { return m_watcher->items().isEmpty(); }))
        return false;
    m_item = std::make_unique<StatusNotifierItem>(u"quillmar"_s, u"Quillmar"_s,
                                                  StatusItem::dropIcon(), iconName);
    if (!m_item->registerItem() || !m_watcher->waitForItem())
        return false;
    const auto item = m_watcher->items().constLast();
    m_host = std::make_unique<TestStatusNotifierHost>(m_bus->address());
    return m_host->attach(item.service, item.path);
}

void tst_StatusNotifierItem::everyPropertyAnswers_data() {
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("signature");
    QTest::newRow("Category") << u"Category"_s << u"s"_s;
    QTest::newRow("Id") << u"Id"_s << u"s"_s;
    QTest::newRow("Title") << u"Title"_s << u"s"_s;
    QTest::newRow("Status") << u"Status"_s << u"s"_s;
    QTest::newRow("WindowId") << u"WindowId"_s << u"i"_s;
    QTest::newRow("IconName") << u"IconName"_s << u"s"_s;
    QTest::newRow("IconPixmap") << u"IconPixmap"_s << u"a(iiay)"_s;
    QTest::newRow("IconThemePath") << u"IconThemePath"_s << u"s"_s;
    QTest::newRow("OverlayIconName") << u"OverlayIconName"_s << u"s"_s;
    QTest::newRow("OverlayIconPixmap") << u"OverlayIconPixmap"_s << u"a(iiay)"_s;
    QTest::newRow("AttentionIconName") << u"AttentionIconName"_s << u"s"_s;
    QTest::newRow("AttentionIconPixmap") << u"AttentionIconPixmap"_s << u"a(iiay)"_s;
    QTest::newRow("AttentionMovieName") << u"AttentionMovieName"_s << u"s"_s;
    QTest::newRow("ToolTip") << u"ToolTip"_s << u"(sa(iiay)ss)"_s;
    QTest::newRow("ItemIsMenu") << u"ItemIsMenu"_s << u"b"_s;
    QTest::newRow("Menu") << u"Menu"_s << u"o"_s;
}

void tst_StatusNotifierItem::everyPropertyAnswers() {
    QFETCH(QString, name);
    QFETCH(QString, signature);
    QVERIFY(publish());
    const QDBusMessage reply =
        m_host->call(u"/StatusNotifierItem"_s, u"org.freedesktop.DBus.Properties"_s, u"Get"_s,
                     {itemInterface, name});
    QCOMPARE(reply.type(), QDBusMessage::ReplyMessage);
    // The type as the protocol gives it, so that panels can read the value.
    QCOMPARE(reply.signature(), u"v"_s);
    const QString introspection = m_host->introspect(u"/StatusNotifierItem"_s);
    QVERIFY2(introspection.contains(u"<property name=\"%1\" type=\"%2\""_s.arg(name, signature)),
             qPrintable(introspection));
}

void tst_StatusNotifierItem::allPropertiesAtOnce() {
    QVERIFY(publish());
    const QDBusMessage reply =
        m_host->call(u"/StatusNotifierItem"_s, u"org.freedesktop.DBus.Properties"_s, u"GetAll"_s,
                     {itemInterface});
    QCOMPARE(reply.type(), QDBusMessage::ReplyMessage);
    QCOMPARE(m_host->itemProperty(u"Title"_s).toString(), u"Quillmar"_s);
    QCOMPARE(m_host->itemProperty(u"Id"_s).toString(), u"quillmar"_s);
    QCOMPARE(m_host->itemProperty(u"AttentionIconName"_s).toString(), QString());
    QCOMPARE(m_host->itemProperty(u"OverlayIconName"_s).toString(), QString());
    QCOMPARE(m_host->itemProperty(u"AttentionMovieName"_s).toString(), QString());
    // The tool tip's title is the program's name.
    const QDBusArgument toolTip = m_host->itemProperty(u"ToolTip"_s).value<QDBusArgument>();
    QString iconName;
    QString title;
    QString text;
    toolTip.beginStructure();
    toolTip >> iconName;
    toolTip.beginArray();
    while (!toolTip.atEnd()) {
        int width = 0;
        int height = 0;
        QByteArray pixels;
        toolTip.beginStructure();
        toolTip >> width >> height >> pixels;
        toolTip.endStructure();
    }
    toolTip.endArray();
    toolTip >> title >> text;
    toolTip.endStructure();
    QCOMPARE(title, u"Quillmar"_s);
    QCOMPARE(text, QString());
}

void tst_StatusNotifierItem::clicksReachTheProgram() {
    QVERIFY(publish());
    QSignalSpy activated(m_item.get(), &StatusNotifierItem::activated);
    QSignalSpy contextMenu(m_item.get(), &StatusNotifierItem::contextMenuRequested);
    QVERIFY(m_host->activate(QPoint(1200, 12)));
    QCOMPARE(activated.size(), 1);
    QCOMPARE(activated[0][0].toPoint(), QPoint(1200, 12));
    QVERIFY(m_host->contextMenu(QPoint(1100, 20)));
    QCOMPARE(contextMenu.size(), 1);
    QCOMPARE(contextMenu[0][0].toPoint(), QPoint(1100, 20));
}

void tst_StatusNotifierItem::middleClickActsAsLeftClick() {
    QVERIFY(publish());
    QSignalSpy activated(m_item.get(), &StatusNotifierItem::activated);
    const QDBusMessage reply =
        m_host->call(u"/StatusNotifierItem"_s, itemInterface, u"SecondaryActivate"_s, {640, 10});
    QCOMPARE(reply.type(), QDBusMessage::ReplyMessage);
    QCOMPARE(activated.size(), 1);
    QCOMPARE(activated[0][0].toPoint(), QPoint(640, 10));
}

void tst_StatusNotifierItem::scrollDoesNothing() {
    QVERIFY(publish());
    QSignalSpy activated(m_item.get(), &StatusNotifierItem::activated);
    QSignalSpy contextMenu(m_item.get(), &StatusNotifierItem::contextMenuRequested);
    for (const QString& orientation : {u"vertical"_s, u"horizontal"_s}) {
        const QDBusMessage reply =
            m_host->call(u"/StatusNotifierItem"_s, itemInterface, u"Scroll"_s, {-120, orientation});
        QCOMPARE(reply.type(), QDBusMessage::ReplyMessage);
    }
    QCOMPARE(activated.size(), 0);
    QCOMPARE(contextMenu.size(), 0);
}

void tst_StatusNotifierItem::activationTokenReachesTheProgram() {
    QVERIFY(publish());
    QSignalSpy provided(m_item.get(), &StatusNotifierItem::activationTokenProvided);
    const QDBusMessage reply = m_host->call(u"/StatusNotifierItem"_s, itemInterface,
                                            u"ProvideXdgActivationToken"_s, {u"token-1"_s});
    QCOMPARE(reply.type(), QDBusMessage::ReplyMessage);
    QCOMPARE(provided.size(), 1);
    QCOMPARE(provided[0][0].toString(), u"token-1"_s);
}

void tst_StatusNotifierItem::itemRegistersAgainWhenThePanelDropsIt() {
    QVERIFY(publish());
    const TestStatusNotifierWatcher::Item item = m_watcher->items().constFirst();
    m_watcher->drop(item.service);
    QVERIFY(m_watcher->items().isEmpty());
    QVERIFY(m_watcher->waitForItem());
    QCOMPARE(m_watcher->items().constFirst().service, item.service);
    QCOMPARE(m_watcher->items().constFirst().path, item.path);
}

void tst_StatusNotifierItem::itemGivesUpOnAPanelThatKeepsDroppingIt() {
    QVERIFY(publish());
    const QString service = m_watcher->items().constFirst().service;
    for (int drop = 1; drop <= 3; ++drop) {
        m_watcher->drop(service);
        QVERIFY2(m_watcher->waitForItem(), qPrintable(u"not back after drop %1"_s.arg(drop)));
    }
    static QStringList warnings;
    static QtMessageHandler testHandler = nullptr;
    warnings.clear();
    testHandler = qInstallMessageHandler(
        [](QtMsgType type, const QMessageLogContext& context, const QString& message) {
            if (type == QtWarningMsg)
                warnings.append(message);
            testHandler(type, context, message);
        });
    const QString gaveUp = u"The panel dropped the tray icon 4 times; it is not offered again "
                           u"until the panel restarts."_s;
    QTest::ignoreMessage(QtWarningMsg, qPrintable(gaveUp));
    m_watcher->drop(service);
    const bool said = QTest::qWaitFor([&gaveUp] { return warnings.contains(gaveUp); });
    qInstallMessageHandler(testHandler);
    QVERIFY(said);
    QVERIFY(m_watcher->items().isEmpty());

    // A panel that starts again gets the item again, and as many chances.
    m_watcher->stop();
    QVERIFY(m_watcher->start());
    QVERIFY(m_watcher->waitForItem());
    m_watcher->drop(service);
    QVERIFY(m_watcher->waitForItem());
}

void tst_StatusNotifierItem::iconNameOnlyWhenThemeHasIt() {
    // Not installed (the program runs from its build folder): panels that look names up would
    // find nothing and draw a blank, so they get the images only.
    QVERIFY(publish());
    QCOMPARE(m_host->itemProperty(u"IconName"_s).toString(), QString());
    QCOMPARE(m_host->itemProperty(u"IconThemePath"_s).toString(), QString());
    QVERIFY(m_host->itemProperty(u"IconPixmap"_s).isValid());
}

void tst_StatusNotifierItem::iconNameFromInstalledTheme() {
    // Installed as the package installs it.
    const QString icons = QDir(m_data.path()).filePath(u"icons"_s);
    QVERIFY(QDir().mkpath(icons + u"/hicolor/symbolic/apps"_s));
    QVERIFY(QFile::copy(u":/icons/quillmar-symbolic.svg"_s,
                        icons + u"/hicolor/symbolic/apps/"_s + symbolicIcon + u".svg"_s));
    QVERIFY(publish());
    QCOMPARE(m_host->itemProperty(u"IconName"_s).toString(), symbolicIcon);
    QCOMPARE(m_host->itemProperty(u"IconThemePath"_s).toString(), icons);
    // The colour drop stays for panels that draw images.
    QVERIFY(m_host->itemProperty(u"IconPixmap"_s).isValid());
    // A name no theme holds is not offered.
    QVERIFY(publish(u"app.quillmar.Missing"_s));
    QCOMPARE(m_host->itemProperty(u"IconName"_s).toString(), QString());
}

void tst_StatusNotifierItem::symbolicIconTakesThePanelsTextColour() {
    // KDE Plasma draws a symbolic icon in its colour scheme's text colour by replacing the
    // icon's "current-color-scheme" style sheet; GNOME and GTK panels fill every path with it.
    // Drawn as it is, the drop would be light grey on Plasma's light panel.
    QFile file(u":/icons/quillmar-symbolic.svg"_s);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QString svg = QString::fromUtf8(file.readAll());
    static const QRegularExpression sheet(
        uR"(<style[^>]*id="current-color-scheme"[^>]*>[^<]*</style>)"_s);
    QVERIFY(sheet.match(svg).hasMatch());
    svg.replace(sheet, u"<style type=\"text/css\" id=\"current-color-scheme\">"
                       u".ColorScheme-Text { color:#232629; }</style>"_s);
    const QString recoloured = QDir(m_data.path()).filePath(u"recoloured.svg"_s);
    QFile out(recoloured);
    QVERIFY(out.open(QIODevice::WriteOnly));
    out.write(svg.toUtf8());
    out.close();
    const QImage drawn = QIcon(recoloured).pixmap(16, 16).toImage();
    QVERIFY(!drawn.isNull());
    QCOMPARE(drawn.pixelColor(8, 10).name(), u"#232629"_s);
}

QTEST_MAIN(tst_StatusNotifierItem)
#include "tst_StatusNotifierItem.moc"
