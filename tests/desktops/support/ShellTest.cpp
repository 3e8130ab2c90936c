#include "ShellTest.h"

#include "BusMonitor.h"
#include "PrivateSessionBus.h"
#include "TestStatusNotifierHost.h"
#include "TestStatusNotifierWatcher.h"
#include "X11Screen.h"

#include "app/desktop/SingleInstance.h"

#include "config/AppConfig.h"
#include "config/Environment.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusReply>
#include <QDBusVariant>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QImage>
#include <QRegularExpression>
#include <QtTest>

#include <algorithm>
#include <array>
#include <cstdlib>

using namespace std::chrono_literals;

namespace {

const QString token = QStringLiteral("desktop-token-7c1e");
// Quillmar's own windows and menus belong to this accessible application.
const QString ownApplication = QStringLiteral("Quillmar");
constexpr qint64 workId = 11;
constexpr qint64 readingId = 12;
constexpr qint64 recipesId = 13;

const QStringList setupMenu = {
    QStringLiteral("Welcome to Quillmar"), QStringLiteral("Open Settings to add your API token"),
    QStringLiteral("---"), QStringLiteral("Settings…"), QStringLiteral("Quit")};
const QStringList bookmarkActions = {QStringLiteral("↗ Open"),
                                     QStringLiteral("---"),
                                     QStringLiteral("⎘ Copy URL"),
                                     QStringLiteral("[ ] Copy as Markdown"),
                                     QStringLiteral("✎ Edit in Raindrop"),
                                     QStringLiteral("---"),
                                     QStringLiteral("♥ Remove from Favourites")};

QDBusConnection bus() {
    static QDBusConnection connection =
        QDBusConnection::connectToBus(QString::fromLocal8Bit(qgetenv("DBUS_SESSION_BUS_ADDRESS")),
                                      QStringLiteral("desktop-test"));
    return connection;
}

const ScreenReader::Entry* entryOf(const QList<ScreenReader::Menu>& menus, const QString& label) {
    for (const ScreenReader::Menu& menu : menus)
        if (const ScreenReader::Entry* entry = menu.find(label))
            return entry;
    return nullptr;
}

const ScreenReader::Menu* menuWith(const QList<ScreenReader::Menu>& menus, const QString& label) {
    for (const ScreenReader::Menu& menu : menus)
        if (menu.find(label))
            return &menu;
    return nullptr;
}

QString describe(const QList<ScreenReader::Menu>& menus) {
    QStringList parts;
    for (const ScreenReader::Menu& menu : menus)
        parts.append(QStringLiteral("[%1] %2").arg(menu.application, menu.labels().join(u'|')));
    return parts.isEmpty() ? QStringLiteral("no menu") : parts.join(QStringLiteral("; "));
}

} // namespace

ShellTest::~ShellTest() = default;

bool ShellTest::waitUntil(const std::function<bool()>& condition,
                          std::chrono::milliseconds timeout) {
    QElapsedTimer timer;
    timer.start();
    while (!condition()) {
        if (timer.elapsed() > timeout.count())
            return false;
        QTest::qWait(100);
    }
    return true;
}

bool ShellTest::waitForTray(std::chrono::milliseconds timeout) {
    return waitUntil(
        [] {
            QDBusMessage get = QDBusMessage::createMethodCall(
                QStringLiteral("org.kde.StatusNotifierWatcher"),
                QStringLiteral("/StatusNotifierWatcher"),
                QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"));
            get.setArguments({QStringLiteral("org.kde.StatusNotifierWatcher"),
                              QStringLiteral("IsStatusNotifierHostRegistered")});
            const QDBusMessage reply = bus().call(get, QDBus::Block, 2000);
            return reply.type() == QDBusMessage::ReplyMessage && !reply.arguments().isEmpty() &&
                   reply.arguments().constFirst().value<QDBusVariant>().variant().toBool();
        },
        timeout);
}

bool ShellTest::waitForName(const QString& name, std::chrono::milliseconds timeout) {
    return waitUntil([&] { return bus().interface()->isServiceRegistered(name).value(); }, timeout);
}

void ShellTest::initTestCase() {
    const QString folder =
        QCoreApplication::applicationDirPath() + QStringLiteral("/desktop-sessions/") + name();
    m_session = std::make_unique<DesktopSession>(sessionOptions(), folder);
    QVERIFY2(m_session->start(), qPrintable(m_session->errorString()));
    QVERIFY(setUpDesktopFiles());
    QVERIFY2(m_reader.start(m_session->logFile(QStringLiteral("read-screen")).section(u'/', 0, -2)),
             "the accessibility reader did not start");
    QElapsedTimer started;
    started.start();
    QVERIFY2(startShell(*m_session),
             qPrintable(QStringLiteral("%1 did not start (logs in %2)")
                            .arg(name(), folder + QStringLiteral("/logs"))));
    qInfo("%s up in %lld ms", qPrintable(name()), started.elapsed());
    m_beforeQuillmar = QImage(screenshot(QStringLiteral("shell")));

    m_service = std::make_unique<FakeRaindropService>(token);
    m_service->addCollection(workId, QStringLiteral("Work"));
    m_service->addCollection(readingId, QStringLiteral("Reading & Notes_2024"));
    m_service->addCollection(recipesId, QStringLiteral("Recipes"));
    const QString pages = m_pages.baseUrl();
    m_service->addBookmark({101,
                            QStringLiteral("Tom & Jerry_2"),
                            pages + QStringLiteral("/tom"),
                            workId,
                            true,
                            {QStringLiteral("fun")}});
    m_service->addBookmark({102,
                            QStringLiteral("Second work item"),
                            pages + QStringLiteral("/work"),
                            workId,
                            false,
                            {}});
    m_service->addBookmark({103,
                            QStringLiteral("Notes page"),
                            pages + QStringLiteral("/notes"),
                            readingId,
                            false,
                            {QStringLiteral("later")}});
    m_service->addBookmark({104,
                            QStringLiteral("Pancakes"),
                            pages + QStringLiteral("/pancakes"),
                            recipesId,
                            false,
                            {QStringLiteral("fun"), QStringLiteral("food")}});
    // A list takes a moment to arrive, as over the internet.
    m_service->setListDelay(600ms);
    m_manifest.on("GET", QStringLiteral("/apps/quillmar/latest.json"),
                  TestHttpServer::Response::json(
                      "{\"version\": \"" + Environment::buildVersion().toUtf8() +
                      "\", \"download_url\": \"" + pages.toUtf8() + "/download\"}"));
    m_quillmar = std::make_unique<QuillmarProcess>(QStringLiteral(QUILLMAR_UNDER_TEST),
                                                   folder + QStringLiteral("/quillmar"));
    m_clipboardFile = folder + QStringLiteral("/clipboard.txt");
}

void ShellTest::cleanupTestCase() {
    if (m_quillmar)
        m_quillmar->stop();
    for (ChildProcess& owner : m_clipboardOwners)
        owner.stop();
    m_reader.stop();
    if (m_session)
        m_session->stop();
}

void ShellTest::cleanup() {
    if (QTest::currentTestFailed())
        screenshot(QStringLiteral("failed-") + QString::fromLatin1(QTest::currentTestFunction()));
    closeMenus(true);
    closeMenus();
}

bool ShellTest::setUpDesktopFiles() {
    // As an installed Quillmar has them: its icons in the icon theme's folders, so that a panel
    // that themes icons finds the name the item gives.
    const QString icons = m_session->home() + QStringLiteral("/.local/share/icons/hicolor/");
    return QDir().mkpath(icons + QStringLiteral("scalable/apps")) &&
           QDir().mkpath(icons + QStringLiteral("symbolic/apps")) &&
           QFile::copy(QStringLiteral(QUILLMAR_ICONS "/quillmar.svg"),
                       icons + QStringLiteral("scalable/apps/app.quillmar.Quillmar.svg")) &&
           QFile::copy(QStringLiteral(QUILLMAR_ICONS "/quillmar-symbolic.svg"),
                       icons + QStringLiteral("symbolic/apps/app.quillmar.Quillmar-symbolic.svg"));
}

QString ShellTest::screenshot(const QString& name) {
    const QString file =
        m_session->folder() +
        QStringLiteral("/screenshots/%1-%2.png").arg(++m_shots, 2, 10, QLatin1Char('0')).arg(name);
    saveScreen(file);
    return file;
}

bool ShellTest::saveScreen(const QString& file) {
    return ChildProcess::run(
               {QStringLiteral("import"), QStringLiteral("-window"), QStringLiteral("root"), file},
               30s)
               .exitCode == 0;
}

QList<ScreenReader::Menu> ShellTest::moved(QList<ScreenReader::Menu> menus, QPoint offset) {
    for (ScreenReader::Menu& menu : menus) {
        menu.rect.translate(offset);
        for (ScreenReader::Entry& entry : menu.entries) {
            entry.rect.translate(offset);
            entry.view.translate(offset);
        }
    }
    return menus;
}

bool ShellTest::runQuillmar(Account account, const QStringList& arguments) {
    if (m_account == account && m_arguments == arguments && m_quillmar->isRunning())
        return true;
    m_quillmar->stop();
    // The icon of a Quillmar that ended (stopped here or quit by a test) must be gone before the
    // next one comes, or the two could be taken for each other, and the new one's place could be
    // read while the old one still stood beside it. A panel drops an item from its watcher once
    // its icon is gone (GNOME's extension half a second after its owner left the bus).
    if (!waitUntil([this] {
            const QStringList items = registeredItems();
            return std::all_of(items.cbegin(), items.cend(), [this](const QString& item) {
                // "service", "service/path" or GNOME's "service@path".
                const QString service =
                    item.section(QRegularExpression(QStringLiteral("[/@]")), 0, 0);
                return bus().interface()->isServiceRegistered(service).value();
            });
        }))
        return false;
    AppConfig config;
    if (account != Account::NotSetUp) {
        config.token = token;
        config.pinnedCollectionIds = {workId};
        config.pinnedTags = {QStringLiteral("fun")};
    }
    QFile::remove(AppConfig::filePath());
    if (account != Account::NotSetUp && config.save())
        return false;
    const QuillmarProcess::Addresses addresses{m_service->apiBase(), m_pages.baseUrl(),
                                               m_manifest.baseUrl() +
                                                   QStringLiteral("/apps/quillmar/latest.json")};
    // The refresh timer of a long test run would otherwise fire amid a check.
    const QStringList timing =
        arguments.contains(QStringLiteral("--refresh-seconds"))
            ? QStringList()
            : QStringList{QStringLiteral("--refresh-seconds"), QStringLiteral("3600")};
    if (!m_quillmar->start(addresses, arguments + timing))
        return false;
    m_account = account;
    m_arguments = arguments;
    // Ready once the panel shows the icon and, with a token, the menu is complete.
    m_icon.reset();
    const bool up = waitUntil([this] { return registeredItem() && (m_icon = trayIcon()); }, 30s);
    if (!up) {
        qWarning("Quillmar %s registered with the panel's watcher; its icon %s found",
                 registeredItem() ? "is" : "is not", trayIcon() ? "is" : "is not");
        return false;
    }
    return account == Account::NotSetUp || waitForFullMenu();
}

bool ShellTest::waitForFullMenu() {
    const auto item = registeredItem();
    TestStatusNotifierHost host(m_session->busAddress());
    if (!item || !host.attach(item->first, item->second))
        return false;
    return waitUntil([&host] {
        const auto layout = host.layout(0, 1);
        return layout && layout->shownLabels().contains(QStringLiteral("Settings…"));
    });
}

QStringList ShellTest::registeredItems() const {
    QDBusMessage get = QDBusMessage::createMethodCall(
        QStringLiteral("org.kde.StatusNotifierWatcher"), QStringLiteral("/StatusNotifierWatcher"),
        QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"));
    get.setArguments({QStringLiteral("org.kde.StatusNotifierWatcher"),
                      QStringLiteral("RegisteredStatusNotifierItems")});
    const QDBusMessage reply = bus().call(get, QDBus::Block, 2000);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty())
        return {};
    return reply.arguments().constFirst().value<QDBusVariant>().variant().toStringList();
}

std::optional<QPair<QString, QString>> ShellTest::registeredItem() const {
    if (!m_quillmar || !m_quillmar->isRunning())
        return std::nullopt;
    for (const QString& item : registeredItems()) {
        // "service" or "service/path", as the item registered itself.
        const qsizetype slash = item.indexOf(u'/');
        const QString service = slash < 0 ? item : item.left(slash);
        const QString path = slash < 0 ? QStringLiteral("/StatusNotifierItem") : item.mid(slash);
        const QDBusReply<uint> pid = bus().interface()->servicePid(service);
        if (pid.isValid() && qint64(pid.value()) == m_quillmar->pid())
            return qMakePair(service, path);
    }
    return std::nullopt;
}

std::optional<QRect> ShellTest::trayIcon() {
    for (const QString& application : panelApplications())
        for (const QRect& rect : m_reader.find(application, QString(), QStringLiteral("Quillmar")))
            if (rect.width() > 0 && rect.height() > 0)
                return rect;
    return std::nullopt;
}

std::optional<QRect> ShellTest::iconByDifference(int panelHeight, int leftOf) {
    const QImage now(screenshot(QStringLiteral("finding-icon")));
    if (now.size() != m_beforeQuillmar.size())
        return std::nullopt;
    const int strip = panelHeight;
    std::optional<QRect> best;
    int bestChanged = 0;
    for (const int top : {0, now.height() - strip}) {
        // Changed pixels per column of the strip; a run of changed columns is a block.
        QList<int> changed(now.width(), 0);
        QList<int> firstRow(now.width(), strip), lastRow(now.width(), -1);
        for (int y = 0; y < strip; ++y)
            for (int x = 0; x < std::min(now.width(), leftOf); ++x)
                if (now.pixel(x, top + y) != m_beforeQuillmar.pixel(x, top + y)) {
                    ++changed[x];
                    firstRow[x] = std::min(firstRow[x], y);
                    lastRow[x] = std::max(lastRow[x], y);
                }
        for (int x = 0; x < now.width();) {
            if (!changed[x]) {
                ++x;
                continue;
            }
            int end = x, total = 0, rowFrom = strip, rowTo = -1;
            for (; end < now.width() && changed[end]; ++end) {
                total += changed[end];
                rowFrom = std::min(rowFrom, firstRow[end]);
                rowTo = std::max(rowTo, lastRow[end]);
            }
            // Within the block, the icon is where something is drawn on the panel's ground
            // (the top row of the strip): a plain area that moved aside is no icon.
            int drawnFrom = -1, drawnTo = -1;
            for (int column = x; column < end; ++column) {
                const QColor ground = now.pixelColor(column, top);
                int drawn = 0;
                for (int y = rowFrom; y <= rowTo; ++y) {
                    const QColor c = now.pixelColor(column, top + y);
                    drawn += std::abs(c.red() - ground.red()) +
                                 std::abs(c.green() - ground.green()) +
                                 std::abs(c.blue() - ground.blue()) >
                             90;
                }
                if (drawn >= 2) {
                    drawnFrom = drawnFrom < 0 ? column : drawnFrom;
                    drawnTo = column;
                }
            }
            const int width = drawnTo - drawnFrom + 1;
            // An icon, not a shifted separator line nor a changed digit of a clock.
            if (drawnFrom >= 0 && width >= 8 && width <= 64 && total > bestChanged && total > 100) {
                bestChanged = total;
                best = QRect(drawnFrom, top + rowFrom, width, rowTo - rowFrom + 1);
            }
            x = end;
        }
    }
    return best;
}

void ShellTest::openPanelMenu(QRect icon) {
    input().click(icon.center(), 3);
}

void ShellTest::activate(QRect icon) {
    input().click(icon.center(), 1);
}

QString ShellTest::ocrLabel(const QString& label) {
    // What OCR reads reliably of a menu label: its letters (no emoji, no marks, no digits: the
    // arrow of "↗ Open" is read as a 7).
    QString letters;
    for (const QChar c : label)
        if (c.isLetter() && c.unicode() < 0x2000)
            letters.append(c.toLower());
    return letters;
}

QImage ShellTest::forOcr(const QImage& menu) {
    // OCR skips a highlighted entry, on a ground of its own (light blue in Plasma, white text on
    // blue in LXQt): each row becomes dark where it differs from its own ground (its commonest
    // shade), so that every entry is dark text on white.
    QImage grey = menu.convertToFormat(QImage::Format_Grayscale8);
    for (int y = 0; y < grey.height(); ++y) {
        uchar* row = grey.scanLine(y);
        std::array<int, 256> shades{};
        for (int x = 0; x < grey.width(); ++x)
            ++shades[row[x]];
        const int ground = int(std::max_element(shades.cbegin(), shades.cend()) - shades.cbegin());
        // The menu's frame and the highlight's edges, along either side, hold no text.
        constexpr int frame = 8;
        for (int x = 0; x < grey.width(); ++x)
            row[x] = x < frame || x >= grey.width() - frame
                         ? uchar(255)
                         : uchar(255 - std::min(255, std::abs(row[x] - ground) * 3 / 2));
    }
    return grey;
}

QList<ScreenReader::Menu> ShellTest::menusByOcr() {
    // Each menu is a window of its own: its picture alone is read, never its shadow nor a menu
    // beside it, and a picture read once is not read again.
    QList<ScreenReader::Menu> menus;
    for (const QRect& window : X11Screen::menuWindows(panelApplications())) {
        // A menu is read once two grabs a moment apart agree: a frame of an animation (Breeze
        // fades the highlight of the entry under the pointer in) is no state of the menu.
        QImage picture;
        waitUntil(
            [&] {
                const QImage again = X11Screen::grab(window);
                // A window that closed meanwhile is not waited for.
                const bool done = again.isNull() || (!picture.isNull() && again == picture);
                picture = again;
                return done;
            },
            3s);
        if (picture.isNull())
            continue;
        const QRect area(window.topLeft(), picture.size());
        QCryptographicHash hash(QCryptographicHash::Md5);
        hash.addData(QByteArrayView(reinterpret_cast<const char*>(picture.constBits()),
                                    picture.sizeInBytes()));
        const QByteArray key = hash.result().toHex();
        if (!m_menuTexts.contains(key)) {
            // Kept: one picture of each state of a menu that was read.
            const QString file =
                m_session->folder() + QStringLiteral("/menus/%1.png").arg(QString::fromLatin1(key));
            if (!QDir().mkpath(m_session->folder() + QStringLiteral("/menus")) ||
                !forOcr(picture).save(file))
                continue;
            m_menuTexts.insert(key, ScreenReader::readText(file, picture.rect(), false));
        }
        const QList<ScreenReader::TextLine> read = m_menuTexts.value(key);
        QList<ScreenReader::TextLine> lines = read;
        // A text right of another on its row is that entry's key hint.
        lines.removeIf([&read](const ScreenReader::TextLine& line) {
            return std::any_of(read.cbegin(), read.cend(), [&line](const auto& other) {
                return std::abs(other.rect.center().y() - line.rect.center().y()) < 6 &&
                       other.rect.right() < line.rect.left();
            });
        });
        ScreenReader::Menu menu;
        menu.application = panelApplications().constFirst();
        menu.rect = area;
        for (const ScreenReader::TextLine& line : std::as_const(lines)) {
            // Grey text is a disabled entry: its darkest pixels stay light.
            int darkest = 255;
            for (int y = line.rect.top(); y <= line.rect.bottom(); ++y)
                for (int x = line.rect.left(); x <= line.rect.right(); ++x)
                    darkest = std::min(darkest, qGray(picture.pixel(x, y)));
            // The whole height of the entry's row is the entry's, as a click sees it.
            const QRect rect = line.rect.adjusted(0, -2, 0, 2).translated(area.topLeft());
            // A menu window shows all of its entries.
            menu.entries.append(
                {ocrLabel(line.text), QStringLiteral("item"), darkest < 90, rect, area});
        }
        menus.append(menu);
    }
    return menus;
}

QList<ScreenReader::Menu> ShellTest::openMenus(bool own) {
    if (!own && readsMenusByOcr())
        return menusByOcr();
    QList<ScreenReader::Menu> menus;
    const QStringList applications = own ? QStringList{ownApplication} : panelApplications();
    for (const ScreenReader::Menu& menu : m_reader.menus(applications))
        if (applications.contains(menu.application))
            menus.append(menu);
    return own ? placeOwnMenus(menus) : placePanelMenus(menus);
}

std::optional<QList<ScreenReader::Menu>>
ShellTest::waitForMenus(const std::function<bool(const QList<ScreenReader::Menu>&)>& check,
                        bool own, std::chrono::milliseconds timeout) {
    QList<ScreenReader::Menu> menus;
    if (waitUntil(
            [&] {
                menus = openMenus(own);
                return check(menus);
            },
            timeout))
        return menus;
    qWarning("menus shown: %s", qPrintable(describe(menus)));
    return std::nullopt;
}

std::optional<QList<ScreenReader::Menu>>
ShellTest::waitForSettledMenus(const std::function<bool(const QList<ScreenReader::Menu>&)>& check) {
    // A submenu that opens inside its menu grows and shrinks in steps (GNOME Shell animates
    // it), moving the entries below it: they are where they stay once two readings agree.
    QList<QRect> previous;
    return waitForMenus([&](const QList<ScreenReader::Menu>& menus) {
        QList<QRect> places;
        for (const ScreenReader::Menu& menu : menus)
            for (const ScreenReader::Entry& entry : menu.entries)
                places.append(entry.rect);
        const bool settled = submenus() == Submenus::Cascading || places == previous;
        previous = places;
        return settled && check(menus);
    });
}

std::optional<QList<ScreenReader::Menu>> ShellTest::shownEntry(const QString& label, bool own) {
    // An entry in a scrolled part of a menu is brought into view with the wheel, as a person
    // does: as many steps at once as it is away, each step as far as the last one moved it.
    std::optional<int> lastTop;
    int steps = 0;
    for (int turn = 0; turn < 12; ++turn) {
        const QList<ScreenReader::Menu> menus = openMenus(own);
        const ScreenReader::Entry* entry = entryOf(menus, label);
        if (!entry)
            return std::nullopt;
        // A reader that knows nothing of its view sees it shown.
        if (entry->isShown() || entry->view.isEmpty())
            return menus;
        if (lastTop && *lastTop != entry->rect.top())
            m_wheelStep = std::max(1, std::abs(*lastTop - entry->rect.top()) / steps);
        const int away = std::abs(entry->rect.center().y() - entry->view.center().y());
        steps = m_wheelStep > 0 ? std::max(1, away / m_wheelStep) : 1;
        lastTop = entry->rect.top();
        input().scroll(entry->view.center(), entry->rect.top() < entry->view.top(), steps);
    }
    return std::nullopt;
}

std::optional<ScreenReader::Menu> ShellTest::openPanelMenuShowing(const QString& firstLabel) {
    const auto icon = m_icon;
    if (!icon)
        return std::nullopt;
    const qint64 logSize = shellLogSize();
    openPanelMenu(*icon);
    const auto menus = waitForSettledMenus([&](const QList<ScreenReader::Menu>& menus) {
        return !menus.isEmpty() && !menus.constFirst().entries.isEmpty() &&
               menus.constFirst().entries.constFirst().label == readAs(firstLabel);
    });
    if (!menus) {
        explainUnopenedMenu(*icon, logSize);
        return std::nullopt;
    }
    return menus->constFirst();
}

void ShellTest::explainUnopenedMenu(QRect clicked, qint64 logOffset) {
    // What a failed opening leaves behind, where only the test's output is kept: the shot, where
    // the icon is now, and what the shell said meanwhile.
    const QString shot = screenshot(QStringLiteral("menu-not-open"));
    const auto now = trayIcon();
    const auto place = [](QRect rect) {
        return QStringLiteral("%1,%2 %3x%4")
            .arg(rect.x())
            .arg(rect.y())
            .arg(rect.width())
            .arg(rect.height());
    };
    qWarning("clicked the icon at %s; it is now %s (%s)", qPrintable(place(clicked)),
             now ? qPrintable(QStringLiteral("at ") + place(*now)) : "not found", qPrintable(shot));
    if (!m_session->isWayland())
        qWarning("menu windows on the screen: %lld of Quillmar, %lld of the panel",
                 qlonglong(X11Screen::menuWindows({ownApplication}).size()),
                 qlonglong(X11Screen::menuWindows(panelApplications()).size()));
    const QStringList lines = shellLogSince(logOffset).split(u'\n', Qt::SkipEmptyParts);
    for (const QString& line : lines.mid(std::max<qsizetype>(0, lines.size() - 20)))
        qWarning("shell: %s", qPrintable(line));
}

QString ShellTest::readAs(const QString& label) const {
    return readsMenusByOcr() ? ocrLabel(label) : label;
}

QStringList ShellTest::readAs(QStringList labels) const {
    // OCR sees no separator lines.
    if (readsMenusByOcr())
        labels.removeAll(QStringLiteral("---"));
    for (QString& label : labels)
        label = readAs(label);
    return labels;
}

std::optional<QList<ScreenReader::Menu>> ShellTest::openSubmenu(const QString& shownLabel,
                                                                const QString& shownExpected) {
    const QString label = readAs(shownLabel);
    const QString expected = readAs(shownExpected);
    const auto menus = shownEntry(label);
    if (!menus)
        return std::nullopt;
    // An inline submenu that shows already would close on a click.
    if (submenus() == Submenus::Cascading || !entryOf(*menus, expected))
        input().click(entryOf(*menus, label)->rect.center());
    // A cascading submenu opens beside its menu, whose entry it belongs to shows highlighted
    // (which OCR may misread): that menu still being open is what counts.
    return waitForSettledMenus([&](const QList<ScreenReader::Menu>& shown) {
        return entryOf(shown, expected) &&
               (entryOf(shown, label) || (submenus() == Submenus::Cascading && shown.size() >= 2));
    });
}

bool ShellTest::choose(const QString& label, bool own) {
    const QString shown = own ? label : readAs(label);
    const auto menus = shownEntry(shown, own);
    const ScreenReader::Entry* entry = menus ? entryOf(*menus, shown) : nullptr;
    if (!entry)
        return false;
    input().click(entry->rect.center());
    return true;
}

void ShellTest::closeMenus(bool own) {
    for (int i = 0; i < 6; ++i) {
        const qsizetype open = openMenus(own).size();
        if (open == 0)
            return;
        dismissMenu(own);
        // Each dismissal closes the innermost menu; the next one waits until it has gone.
        waitUntil([&] { return openMenus(own).size() < open; }, std::chrono::seconds(5));
    }
}

void ShellTest::dismissMenu(bool) {
    input().pressKeys(QStringLiteral("Escape"));
}

bool ShellTest::copyFromOutside(const QString& text) {
    if (m_session->isWayland()) {
        ChildProcess& owner = m_clipboardOwners.at(m_clipboardOwner);
        owner.stop();
        // --foreground keeps wl-copy the clipboard's owner until it is stopped.
        if (!owner.start({QStringLiteral("wl-copy"), QStringLiteral("--foreground"),
                          QStringLiteral("--"), text},
                         m_session->logFile(QStringLiteral("wl-copy"))))
            return false;
        return waitUntil([this, text] { return clipboard() == text; });
    }
    QFile file(m_clipboardFile);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return false;
    file.write(text.toUtf8());
    file.close();
    // -quiet keeps xclip in the foreground, owning the clipboard until another program takes
    // it. The next owner takes it from the last one: a clipboard whose owner ended is taken over
    // by a desktop's clipboard manager (mutter's, with the text it kept), which could come
    // after the next owner and take the clipboard from it.
    const std::size_t next = 1 - m_clipboardOwner;
    if (!m_clipboardOwners.at(next).start({QStringLiteral("xclip"), QStringLiteral("-selection"),
                                           QStringLiteral("clipboard"), QStringLiteral("-quiet"),
                                           m_clipboardFile},
                                          m_session->logFile(QStringLiteral("xclip"))))
        return false;
    const bool copied = waitUntil([this, text] { return clipboard() == text; });
    m_clipboardOwners.at(m_clipboardOwner).stop();
    m_clipboardOwner = next;
    return copied;
}

QString ShellTest::clipboard() const {
    if (m_session->isWayland())
        return QString::fromUtf8(
            ChildProcess::run({QStringLiteral("wl-paste"), QStringLiteral("--no-newline")}).output);
    return QString::fromUtf8(
        ChildProcess::run({QStringLiteral("xclip"), QStringLiteral("-selection"),
                           QStringLiteral("clipboard"), QStringLiteral("-o")})
            .output);
}

QStringList ShellTest::unknownFailures(const QStringList& failures) const {
    const QStringList known = knownFailures();
    QStringList unknown;
    for (const QString& failure : failures) {
        if (std::any_of(known.cbegin(), known.cend(),
                        [&](const QString& start) { return failure.startsWith(start); }))
            qInfo("known on this desktop: %s", qPrintable(failure));
        else
            unknown.append(failure);
    }
    return unknown;
}

bool ShellTest::knownToFail() const {
    return knownFailures().contains(QString::fromLatin1(QTest::currentTestFunction()));
}

bool ShellTest::settingsWindowShown() const {
    // On Wayland, where the compositor gives the keyboard, the window also has it.
    if (m_session->isWayland()) {
        const QList<Window> windows = ownWindows();
        return std::any_of(windows.cbegin(), windows.cend(), [](const Window& window) {
            return window.title == QStringLiteral("Quillmar Settings") && window.focused;
        });
    }
    return ChildProcess::run({QStringLiteral("xdotool"), QStringLiteral("search"),
                              QStringLiteral("--onlyvisible"), QStringLiteral("--name"),
                              QStringLiteral("^Quillmar Settings$")})
               .exitCode == 0;
}

int ShellTest::tagListRequests() const {
    return int(m_service->server().requestsTo(QStringLiteral("/rest/v1/tags")).size());
}

qint64 ShellTest::shellLogSize() const {
    return QFileInfo(shellLog()).size();
}

QString ShellTest::shellLogSince(qint64 offset) const {
    QFile log(shellLog());
    if (!log.open(QIODevice::ReadOnly) || !log.seek(offset))
        return {};
    return QString::fromUtf8(log.readAll());
}

// 1. The drop is in the tray, drawn, with the tooltip "Quillmar"; a panel that themes icons
// gets a name it finds in the icon theme.
void ShellTest::iconShownWithTooltip() {
    QVERIFY2(runQuillmar(Account::NotSetUp), "Quillmar's icon did not show in the panel");
    const auto icon = m_icon;
    QVERIFY(icon);
    const QImage screen(screenshot(QStringLiteral("icon")));
    // Drawn: a good part of the icon's pixels differ from the panel's ground at its corner.
    const QColor ground = screen.pixelColor(icon->topLeft());
    int drawn = 0;
    for (int y = icon->top(); y <= icon->bottom(); ++y)
        for (int x = icon->left(); x <= icon->right(); ++x) {
            const QColor c = screen.pixelColor(x, y);
            drawn += std::abs(c.red() - ground.red()) + std::abs(c.green() - ground.green()) +
                         std::abs(c.blue() - ground.blue()) >
                     90;
        }
    QVERIFY2(
        drawn > 40, // the panel's button may be larger than the icon it draws
        qPrintable(QStringLiteral("the icon at %1,%2 is blank").arg(icon->x()).arg(icon->y())));

    if (!showsTooltips()) {
        // A panel without tooltips names the icon for screen readers with the item's title.
        bool named = false;
        for (const QString& application : panelApplications())
            named = named ||
                    !m_reader.find(application, QString(), QStringLiteral("Quillmar")).isEmpty();
        QVERIFY2(named, "the panel shows no tooltips, and the icon is not named \"Quillmar\"");
    }
    // The tooltip, as drawn by the panel when the pointer rests on the icon.
    input().moveTo(QPoint(m_session->screen().width() / 2, m_session->screen().height() / 2));
    input().moveTo(icon->center());
    const QRect around = QRect(icon->center() - QPoint(300, 120), QSize(600, 240))
                             .intersected(QRect(QPoint(0, 0), m_session->screen()));
    QString seen;
    const bool tooltip =
        !showsTooltips() ||
        waitUntil(
            [&] {
                const QString shot = screenshot(QStringLiteral("tooltip"));
                seen.clear();
                // A tooltip's small text is read at three times its size
                // (waybar's) or with its pixels repeated (LXQt's).
                using Enlarging = ScreenReader::Enlarging;
                for (const auto& [scale, enlarging] :
                     {std::pair{2, Enlarging::Smooth}, std::pair{3, Enlarging::Smooth},
                      std::pair{2, Enlarging::Pixels}})
                    for (const auto& line :
                         ScreenReader::readText(shot, around, darkTooltips(), scale, enlarging))
                        seen += line.text + u'|';
                return seen.contains(QStringLiteral("Quillmar"));
            },
            20s);
    QVERIFY2(tooltip,
             qPrintable(QStringLiteral("no tooltip \"Quillmar\" near the icon; read: ") + seen));

    const auto item = registeredItem();
    QVERIFY(item);
    TestStatusNotifierHost host(m_session->busAddress());
    QVERIFY(host.attach(item->first, item->second));
    const QString iconName = host.itemProperty(QStringLiteral("IconName")).toString();
    QVERIFY2(!iconName.isEmpty(),
             "IconName is empty: the panel cannot take the themed symbolic icon");
    QVERIFY2(QFile::exists(m_session->home() +
                           QStringLiteral("/.local/share/icons/hicolor/symbolic/apps/") + iconName +
                           QStringLiteral(".svg")) ||
                 QFile::exists(m_session->home() +
                               QStringLiteral("/.local/share/icons/hicolor/scalable/apps/") +
                               iconName + QStringLiteral(".svg")),
             qPrintable(QStringLiteral("IconName \"%1\" is not an installed icon").arg(iconName)));
}

// 2. The panel's menu shows the whole layout, and every kind of entry does its work when chosen.
void ShellTest::panelMenuHasLayoutAndEveryItemWorks() {
    // Every entry is tried, so that one that does nothing does not hide the others.
    QStringList failures;
    const auto expect = [&failures](bool holds, const QString& failure) {
        if (!holds)
            failures.append(failure);
        return holds;
    };
    QVERIFY(runQuillmar(Account::NotSetUp));
    QVERIFY2(openPanelMenuShowing(QStringLiteral("Welcome to Quillmar")),
             "the panel's menu did not open with the setup menu");
    // A panel may apply the entries' states a moment after their places (GNOME's extension
    // asks for them once it has the layout): the menu is read once it is complete.
    const auto setupShown = [this](const QList<ScreenReader::Menu>& menus) {
        if (menus.isEmpty() || menus.constFirst().labels() != readAs(setupMenu))
            return false;
        return std::all_of(setupMenu.cbegin(), setupMenu.cend(), [&](const QString& label) {
            return label == QStringLiteral("---") ||
                   menus.constFirst().find(readAs(label))->enabled ==
                       (label == QStringLiteral("Settings…") || label == QStringLiteral("Quit"));
        });
    };
    QVERIFY2(waitForMenus(setupShown), "the setup menu is not shown with its entries and states");
    screenshot(QStringLiteral("setup-menu"));
    QVERIFY(choose(QStringLiteral("Settings…")));
    expect(waitUntil([this] { return settingsWindowShown(); }),
           QStringLiteral("setup menu: \"Settings…\" showed no settings window"));
    screenshot(QStringLiteral("setup-settings"));
    closeMenus();
    if (!panelMenuSeesClipboard()) {
        // GNOME on Wayland gives no window opened next the keyboard once a program quit while
        // its window had it (the test's clipboard program among them): the settings window is
        // closed first, as a person does.
        input().pressKeys(QStringLiteral("alt+F4"));
        QVERIFY(waitUntil([this] {
            const QList<Window> windows = ownWindows();
            return std::none_of(windows.cbegin(), windows.cend(), [](const Window& window) {
                return window.title == QStringLiteral("Quillmar Settings");
            });
        }));
    }
    QVERIFY(openPanelMenuShowing(QStringLiteral("Welcome to Quillmar")));
    QVERIFY(choose(QStringLiteral("Quit")));
    expect(m_quillmar->waitForExit(15s) && m_quillmar->exitCode() == 0,
           QStringLiteral("setup menu: \"Quit\" did not end Quillmar"));

    QVERIFY(runQuillmar(Account::SetUp));
    // Before the panel's menu opens: while a shell's own menu holds the input, a program that
    // must have the focus to copy (Wayland) cannot.
    QVERIFY(copyFromOutside(QStringLiteral("nothing yet")));
    QVERIFY2(openPanelMenuShowing(QStringLiteral("📋 Add Clipboard URL")),
             "the panel's menu did not open with the bookmark menu");
    expect(waitForMenus([this](const QList<ScreenReader::Menu>& menus) {
               return !menus.isEmpty() &&
                      menus.constFirst().labels() == readAs(FakeRaindropService::fullMenuLabels());
           }).has_value(),
           QStringLiteral("the panel's menu does not show the whole layout: ") +
               describe(openMenus()));
    screenshot(QStringLiteral("full-menu"));

    const QString link = m_pages.baseUrl() + QStringLiteral("/tom");
    auto menus = openSubmenu(QStringLiteral("Tom & Jerry_2"), QStringLiteral("⎘ Copy URL"));
    QVERIFY2(menus, "a favourite's actions did not show");
    if (submenus() == Submenus::Cascading) {
        const ScreenReader::Menu* actions = menuWith(*menus, readAs(QStringLiteral("⎘ Copy URL")));
        QVERIFY(actions);
        QCOMPARE(actions->labels(), readAs(bookmarkActions));
    }
    screenshot(QStringLiteral("bookmark-actions"));
    QVERIFY(choose(QStringLiteral("⎘ Copy URL")));
    expect(waitUntil([&] { return clipboard() == link; }),
           QStringLiteral("\"⎘ Copy URL\" left the clipboard at \"%1\"").arg(clipboard()));
    closeMenus();

    QVERIFY(openPanelMenuShowing(QStringLiteral("📋 Add Clipboard URL")));
    QVERIFY(openSubmenu(QStringLiteral("Tom & Jerry_2"), QStringLiteral("↗ Open")));
    QVERIFY(choose(QStringLiteral("↗ Open")));
    expect(waitUntil([&] { return m_quillmar->openedUrls().contains(link); }),
           QStringLiteral("\"↗ Open\" did not reach the browser"));
    closeMenus();

    QVERIFY(openPanelMenuShowing(QStringLiteral("📋 Add Clipboard URL")));
    const int favourites = m_service->favouritesRequests();
    QVERIFY(choose(QStringLiteral("Refresh")));
    expect(waitUntil([&] { return m_service->favouritesRequests() > favourites; }),
           QStringLiteral("\"Refresh\" sent no request"));
    closeMenus();
    // The refreshed menu, complete, before the panel's menu opens again: a panel that grows its
    // open menu in place moves the entries after they were read.
    QVERIFY(waitForFullMenu());

    QVERIFY(openPanelMenuShowing(QStringLiteral("📋 Add Clipboard URL")));
    QVERIFY(choose(QStringLiteral("Settings…")));
    expect(waitUntil([this] { return settingsWindowShown(); }),
           QStringLiteral("\"Settings…\" showed no settings window"));
    closeMenus();

    QVERIFY(openPanelMenuShowing(QStringLiteral("📋 Add Clipboard URL")));
    QVERIFY(choose(QStringLiteral("Quit Quillmar")));
    expect(m_quillmar->waitForExit(15s) && m_quillmar->exitCode() == 0,
           QStringLiteral("\"Quit Quillmar\" did not end Quillmar"));
    const QStringList unknown = unknownFailures(failures);
    QVERIFY2(unknown.isEmpty(), qPrintable(unknown.join(QStringLiteral("\n"))));
}

// 3. Lazily filled submenus show their bookmarks on their first opening, in place, with one
// request; opening them again sends none.
void ShellTest::lazySubmenusFillOnFirstOpen() {
    // The pinned collection's warm-up fails, so that it is not in the cache when opened.
    m_service->failListRequests(workId, 1);
    m_account.reset();
    const int warmUps = m_service->collectionRequests(workId);
    QVERIFY(runQuillmar(Account::SetUp));
    QVERIFY(waitUntil([&] { return m_service->collectionRequests(workId) == warmUps + 1; }));

    struct Case {
        QStringList path; // the entries opened in turn; the last one is lazily filled
        QString bookmark; // an entry it shows once filled
        std::function<int()> requests;
    };
    const QList<Case> cases = {
        {{QStringLiteral("🕐 Recent")},
         QStringLiteral("Pancakes"),
         [this] {
             return m_service->recentRequests();
         }},
        {{QStringLiteral("Work")},
         QStringLiteral("Second work item"),
         [this] {
             return m_service->collectionRequests(workId);
         }},
        {{QStringLiteral("📁 Collections"), QStringLiteral("Recipes  (1)")},
         QStringLiteral("Pancakes"),
         [this] {
             return m_service->collectionRequests(recipesId);
         }},
        {{QStringLiteral("🏷 Tags"), QStringLiteral("#later  (1)")},
         QStringLiteral("Notes page"),
         [this] {
             return m_service->tagRequests(QStringLiteral("later"));
         }},
    };
    // A submenu may be filled ahead, when the menu holding it opens (libdbusmenu-gtk shows a
    // submenu before it asks for it): its one request is counted from before any opening.
    QList<int> before;
    for (const Case& c : cases)
        before.append(c.requests());
    QStringList failures;
    for (qsizetype index = 0; index < cases.size(); ++index) {
        const Case& c = cases.at(index);
        const QString name = c.path.join(QStringLiteral(" ▸ "));
        for (int opening = 1; opening <= 2; ++opening) {
            if (!openPanelMenuShowing(QStringLiteral("📋 Add Clipboard URL"))) {
                failures.append(name + QStringLiteral(": the panel's menu did not open"));
                break;
            }
            bool opened = true;
            for (qsizetype i = 0; i + 1 < c.path.size() && opened; ++i)
                opened = openSubmenu(c.path.at(i), c.path.at(i + 1)).has_value();
            const auto menus = opened ? openSubmenu(c.path.constLast(), c.bookmark) : std::nullopt;
            screenshot(QStringLiteral("lazy-%1-%2").arg(c.path.constLast().right(6)).arg(opening));
            if (!menus) {
                failures.append(QStringLiteral("%1, opening %2: its bookmarks did not show (%3)")
                                    .arg(name)
                                    .arg(opening)
                                    .arg(describe(openMenus())));
                closeMenus();
                continue;
            }
            // In place: the menu it belongs to is still open, and it is on the screen (in a
            // scrolled part of the menu once scrolled to).
            const auto reached = shownEntry(readAs(c.bookmark));
            const ScreenReader::Entry* shown =
                entryOf(reached.value_or(*menus), readAs(c.bookmark));
            if (!reached)
                failures.append(name + QStringLiteral(": its bookmarks cannot be scrolled to"));
            else if (!QRect(QPoint(0, 0), m_session->screen()).contains(shown->rect))
                failures.append(QStringLiteral("%1: its bookmarks are off the screen at %2,%3")
                                    .arg(name)
                                    .arg(shown->rect.x())
                                    .arg(shown->rect.y()));
            if (!entryOf(*menus, readAs(QStringLiteral("Quit Quillmar"))))
                failures.append(name + QStringLiteral(": the menu closed"));
            // One request in all, none again on the second opening.
            const int sent = c.requests() - before.at(index);
            if (sent != 1)
                failures.append(QStringLiteral("%1, opening %2: %3 requests in all")
                                    .arg(name)
                                    .arg(opening)
                                    .arg(sent));
            closeMenus();
        }
    }
    const QStringList unknown = unknownFailures(failures);
    QVERIFY2(unknown.isEmpty(), qPrintable(unknown.join(QStringLiteral("\n"))));
}

// 4. "📋 Add Clipboard URL" follows the clipboard each time a menu opens, the panel's and
// Quillmar's own.
void ShellTest::clipboardItemFollowsClipboard() {
    QVERIFY(runQuillmar(Account::SetUp));
    const QList<QPair<QString, bool>> clipboards = {
        {QStringLiteral("just some words"), false},
        {QStringLiteral("see https://example.org/page, thanks"), true},
        {QStringLiteral("ftp://example.org/file"), false},
    };
    QStringList failures;
    const auto state = [](const QString& text, bool enabled) {
        return QStringLiteral("with \"%1\" on the clipboard the entry is %2")
            .arg(text, enabled ? QStringLiteral("enabled") : QStringLiteral("disabled"));
    };
    // The clipboard's change may reach Quillmar a moment after a menu opened: the entry then
    // follows while the menu is open.
    const auto shows = [](const QList<ScreenReader::Menu>& menus, const QString& label,
                          bool enabled) {
        const ScreenReader::Entry* entry = entryOf(menus, label);
        return entry && entry->enabled == enabled;
    };
    // Quillmar's own menu first: the panel's menu, just closed, can keep it from opening (a
    // case of its own under point 6).
    for (const auto& [text, enabled] : clipboards) {
        QVERIFY(copyFromOutside(text));
        QVERIFY(showMenuOverBus());
        const bool ownFollows =
            waitForMenus(
                [&](const QList<ScreenReader::Menu>& menus) {
                    return shows(menus, QStringLiteral("📋 Add Clipboard URL"), enabled);
                },
                true)
                .has_value();
        screenshot(QStringLiteral("clipboard-own-%1")
                       .arg(enabled ? QStringLiteral("url") : QStringLiteral("text")));
        if (!ownFollows)
            failures.append(QStringLiteral("own menu: ") + state(text, !enabled));
        closeMenus(true);
    }
    const bool sees = panelMenuSeesClipboard();
    for (const auto& [text, enabled] : clipboards) {
        QVERIFY(copyFromOutside(text));
        QVERIFY(openPanelMenuShowing(QStringLiteral("📋 Add Clipboard URL")));
        // Where Quillmar cannot see the clipboard from the panel's menu, the entry stays
        // enabled, to read the clipboard when chosen.
        const bool panelFollows =
            waitForMenus([&](const QList<ScreenReader::Menu>& menus) {
                return shows(menus, readAs(QStringLiteral("📋 Add Clipboard URL")),
                             enabled || !sees);
            }).has_value();
        screenshot(QStringLiteral("clipboard-panel-%1")
                       .arg(enabled ? QStringLiteral("url") : QStringLiteral("text")));
        if (!panelFollows)
            failures.append(QStringLiteral("panel's menu: ") + state(text, !(enabled || !sees)));
        closeMenus();
    }
    if (!sees) {
        // Chosen with no address on the clipboard, the entry says so; with one, it saves it.
        QVERIFY(copyFromOutside(QStringLiteral("just some words")));
        QVERIFY(openPanelMenuShowing(QStringLiteral("📋 Add Clipboard URL")));
        QVERIFY(choose(QStringLiteral("📋 Add Clipboard URL")));
        const auto alertShown = [this] {
            const QList<Window> windows = ownWindows();
            return std::any_of(windows.cbegin(), windows.cend(), [](const Window& window) {
                return window.title == QStringLiteral("Quillmar") && window.rect.width() > 1 &&
                       window.focused;
            });
        };
        if (!waitUntil(alertShown))
            failures.append(QStringLiteral("panel's menu: the entry chosen with no address on the "
                                           "clipboard showed no message"));
        screenshot(QStringLiteral("clipboard-panel-no-url"));
        input().pressKeys(QStringLiteral("Escape"));
        QVERIFY(waitUntil([&] { return !alertShown(); }));
        const QString link = m_pages.baseUrl() + QStringLiteral("/from-clipboard");
        QVERIFY(copyFromOutside(QStringLiteral("read ") + link));
        QVERIFY(openPanelMenuShowing(QStringLiteral("📋 Add Clipboard URL")));
        QVERIFY(choose(QStringLiteral("📋 Add Clipboard URL")));
        if (!waitUntil([&] {
                const auto saved = m_service->bookmarks();
                return std::any_of(saved.cbegin(), saved.cend(),
                                   [&](const auto& bookmark) { return bookmark.link == link; });
            }))
            failures.append(QStringLiteral("panel's menu: the entry chosen with an address on "
                                           "the clipboard did not save it"));
    }
    const QStringList unknown = unknownFailures(failures);
    QVERIFY2(unknown.isEmpty(), qPrintable(unknown.join(QStringLiteral("\n"))));
}

// 5. A refresh falling due while a menu is open leaves it open and as it is; it runs once the
// menu has closed, and entries that did not change keep their ids.
void ShellTest::refreshWaitsForOpenMenuToClose() {
    // The refresh interval is given to Quillmar: the test knows when the refresh falls due.
    constexpr auto interval = 25s;
    QVERIFY(runQuillmar(Account::SetUp,
                        {QStringLiteral("--refresh-seconds"), QString::number(interval.count())}));
    // The refresh timer started with the load, before the menu was complete.
    QElapsedTimer loaded;
    loaded.start();
    int loads = m_service->favouritesRequests();
    const auto item = registeredItem();
    QVERIFY(item);
    TestStatusNotifierHost host(m_session->busAddress());
    QVERIFY(host.attach(item->first, item->second));
    const auto idsOf = [&host] {
        QHash<QString, int> ids;
        if (const auto layout = host.layout(0, 1))
            for (const auto& child : layout->children)
                if (!child.isSeparator())
                    ids.insert(child.shownLabel(), child.id);
        return ids;
    };
    const QHash<QString, int> idsBefore = idsOf();

    // Holds a menu open past the moment the refresh falls due; then closes it and waits for
    // the refresh it held back. What is wrong is returned.
    const auto holdOpenPastRefresh = [&](bool own, const QStringList& labels) -> QString {
        const QString which =
            own ? QStringLiteral("Quillmar's own menu") : QStringLiteral("the panel's menu");
        if (m_service->favouritesRequests() != loads)
            return QStringLiteral("the refresh fell due before ") + which +
                   QStringLiteral(" had opened, %1 ms after the load").arg(loaded.elapsed());
        const qsizetype layoutUpdates = host.layoutUpdates().size();
        if (!own && !announcesMenuClosing()) {
            // Quillmar cannot know that the panel's menu is open: the refresh runs when it
            // falls due, and the open menu is updated in place.
            if (!waitUntil([&] { return m_service->favouritesRequests() > loads; }, interval * 2))
                return QStringLiteral("the refresh did not run");
            loaded.start();
            loads = m_service->favouritesRequests();
            const bool updated = host.waitForLayoutUpdate(layoutUpdates, 15000);
            screenshot(QStringLiteral("refresh-in-place"));
            if (!updated)
                return QStringLiteral("the refresh was not exported");
            if (!m_session->endedPrograms().isEmpty())
                return QStringLiteral("ended during the refresh: ") +
                       m_session->endedPrograms().join(u' ');
            if (openMenus().isEmpty())
                return QStringLiteral("the refresh closed ") + which;
            closeMenus();
            return {};
        }
        // A timer of this length fires within 5 % of it; Quillmar's event loop has handled
        // it once it has answered a call made after that.
        const qint64 due = std::chrono::milliseconds(interval).count() * 105 / 100;
        waitUntil([&] { return loaded.elapsed() > due; }, interval * 2);
        for (int call = 0; call < 2; ++call)
            host.itemProperty(QStringLiteral("Id"));
        screenshot(QStringLiteral("refresh-due-") +
                   (own ? QStringLiteral("own") : QStringLiteral("panel")));
        if (!m_session->endedPrograms().isEmpty())
            return QStringLiteral("ended while the refresh was due: ") +
                   m_session->endedPrograms().join(u' ');
        if (m_service->favouritesRequests() != loads)
            return which + QStringLiteral(" was open, and the refresh ran all the same");
        if (host.layoutUpdates().size() != layoutUpdates)
            return which + QStringLiteral(" was open, and the exported menu changed");
        const auto during = openMenus(own);
        if (during.isEmpty())
            return QStringLiteral("the refresh closed ") + which;
        if (during.constFirst().labels() != labels)
            return QStringLiteral("the refresh changed ") + which;
        closeMenus(own);
        // The held-back refresh runs as the menu closes; its timer starts again.
        if (!waitUntil([&] { return m_service->favouritesRequests() > loads; }, 10s))
            return QStringLiteral("the refresh did not run once ") + which +
                   QStringLiteral(" had closed");
        loaded.start();
        loads = m_service->favouritesRequests();
        return {};
    };

    const auto before = openPanelMenuShowing(QStringLiteral("📋 Add Clipboard URL"));
    QVERIFY(before);
    m_service->addBookmark({201,
                            QStringLiteral("Fresh favourite"),
                            m_pages.baseUrl() + QStringLiteral("/fresh"),
                            readingId,
                            true,
                            {}});
    QString problem = holdOpenPastRefresh(false, before->labels());
    QVERIFY2(problem.isEmpty(), qPrintable(problem));
    QVERIFY2(waitUntil([&] { return idsOf().contains(QStringLiteral("Fresh favourite")); }),
             "the refreshed menu was not exported");

    // Quillmar's own menu, too, opened at once so that it is open before the next refresh.
    const auto own = openOwnMenu();
    QVERIFY2(own, "Quillmar's own menu did not open");
    QVERIFY2(menuWith(*own, QStringLiteral("Fresh favourite")),
             "the refresh did not show in Quillmar's own menu");
    m_service->addBookmark({202,
                            QStringLiteral("Second fresh favourite"),
                            m_pages.baseUrl() + QStringLiteral("/fresher"),
                            readingId,
                            true,
                            {}});
    problem = holdOpenPastRefresh(true, menuWith(*own, QStringLiteral("Quit Quillmar"))->labels());
    QVERIFY2(problem.isEmpty(), qPrintable(problem));
    QVERIFY(waitUntil([&] { return idsOf().contains(QStringLiteral("Second fresh favourite")); }));
    QVERIFY(showMenuOverBus());
    QVERIFY2(waitForMenus(
                 [](const QList<ScreenReader::Menu>& menus) {
                     return menuWith(menus, QStringLiteral("Second fresh favourite"));
                 },
                 true),
             "the refresh did not show in Quillmar's own menu once it had closed");
    closeMenus(true);

    const auto after = openPanelMenuShowing(QStringLiteral("📋 Add Clipboard URL"));
    QVERIFY(after);
    QVERIFY2(after->find(readAs(QStringLiteral("Fresh favourite"))),
             "the refresh did not show in the panel's menu once it had closed");
    closeMenus();
    const QHash<QString, int> idsAfter = idsOf();
    QStringList renumbered;
    for (auto it = idsBefore.cbegin(); it != idsBefore.cend(); ++it)
        if (idsAfter.value(it.key()) != it.value())
            renumbered.append(it.key());
    QVERIFY2(renumbered.isEmpty(),
             qPrintable(QStringLiteral("entries that did not change have new ids: ") +
                        renumbered.join(QStringLiteral(", "))));
}

QString ShellTest::menuWindowProblem(const QString& how, QSize menu) {
    const QList<Window> windows = ownWindows();
    closeMenus(true);
    closeMenus();
    // The menu's window: not the settings window, nor a window of a moment for the clipboard.
    const auto window = std::find_if(windows.cbegin(), windows.cend(), [](const Window& window) {
        return window.title != QStringLiteral("Quillmar Settings") && window.rect.width() > 1;
    });
    if (window == windows.cend())
        return how + QStringLiteral(": the compositor has no window of the menu");
    if (!window->floating)
        return how + QStringLiteral(": the menu's window is tiled");
    if (window->rect.size() != menu)
        return QStringLiteral("%1: the menu's window is %2x%3, the menu %4x%5")
            .arg(how)
            .arg(window->rect.width())
            .arg(window->rect.height())
            .arg(menu.width())
            .arg(menu.height());
    if (!window->focused)
        return how + QStringLiteral(": the menu's window does not have the keyboard");
    return {};
}

bool ShellTest::showMenuOverBus() {
    return ChildProcess::run({QStringLiteral("dbus-send"), QStringLiteral("--session"),
                              QStringLiteral("--print-reply"),
                              QStringLiteral("--dest=app.quillmar.Quillmar"),
                              QStringLiteral("/app/quillmar/Quillmar"),
                              QStringLiteral("app.quillmar.Quillmar.ShowMenu")})
               .exitCode == 0;
}

// 6. The shell's activation gesture, the hot key, ShowMenu and a second start show Quillmar's
// own menu, at the icon or at the pointer; on Wayland, where the compositor places windows, as
// a small floating window with the keyboard.
void ShellTest::ownMenuOpensAtIconOrPointer() {
    QVERIFY(runQuillmar(Account::SetUp));
    const auto icon = m_icon;
    QVERIFY(icon);
    const QPoint elsewhere(m_session->screen().width() / 2, m_session->screen().height() / 2);
    const auto ownMenuNear = [&](const QString& how, QPoint pointer) -> QString {
        const auto menus = waitForMenus(
            [](const QList<ScreenReader::Menu>& menus) {
                return menuWith(menus, QStringLiteral("Quit Quillmar"));
            },
            true);
        screenshot(QStringLiteral("own-menu-") + how.section(u' ', 0, 0));
        if (!menus)
            return how + QStringLiteral(": Quillmar's own menu did not open (panel: ") +
                   describe(openMenus()) + u')';
        const QRect rect = menuWith(*menus, QStringLiteral("Quit Quillmar"))->rect;
        if (m_session->isWayland())
            return menuWindowProblem(how, rect.size());
        closeMenus(true);
        closeMenus();
        // The menu covers or touches the icon or the pointer.
        const QRect reach = rect.adjusted(-48, -48, 48, 48);
        if (reach.intersects(*icon) || reach.contains(pointer))
            return {};
        return QStringLiteral("%1: the menu opened at %2,%3 %4x%5, away from the icon and pointer")
            .arg(how)
            .arg(rect.x())
            .arg(rect.y())
            .arg(rect.width())
            .arg(rect.height());
    };
    QStringList failures;
    activate(*icon);
    failures.append(ownMenuNear(QStringLiteral("activation"), icon->center()));
    input().moveTo(elsewhere);
    input().pressKeys(QStringLiteral("ctrl+alt+r"));
    failures.append(ownMenuNear(QStringLiteral("hot key"), elsewhere));
    QVERIFY(showMenuOverBus());
    failures.append(ownMenuNear(QStringLiteral("ShowMenu"), elsewhere));
    const QuillmarProcess::Addresses addresses{m_service->apiBase(), m_pages.baseUrl(),
                                               m_manifest.baseUrl()};
    QCOMPARE(m_quillmar->startSecondInstance(addresses), 0);
    failures.append(ownMenuNear(QStringLiteral("second start"), elsewhere));
    // Right after the panel's menu closed, as when a person dismisses one and presses the key.
    QVERIFY(openPanelMenuShowing(QStringLiteral("📋 Add Clipboard URL")));
    closeMenus();
    input().moveTo(elsewhere);
    input().pressKeys(QStringLiteral("ctrl+alt+r"));
    failures.append(ownMenuNear(QStringLiteral("hot key after the panel's menu"), elsewhere));
    failures.removeAll(QString());
    const QStringList unknown = unknownFailures(failures);
    QVERIFY2(unknown.isEmpty(), qPrintable(unknown.join(QStringLiteral("\n"))));
}

std::optional<QList<ScreenReader::Menu>> ShellTest::openOwnMenu() {
    if (!showMenuOverBus())
        return std::nullopt;
    const auto menus = waitForMenus(
        [](const QList<ScreenReader::Menu>& menus) {
            return menuWith(menus, QStringLiteral("Quit Quillmar"));
        },
        true);
    // A person's keys reach the menu once the desktop has given its window the keyboard, which
    // can come a moment after it shows (GNOME on Wayland: about a second); where the desktop
    // tells which window has it.
    if (menus)
        waitUntil([this] {
            const QList<Window> windows = ownWindows();
            return windows.isEmpty() ||
                   std::any_of(windows.cbegin(), windows.cend(),
                               [](const Window& window) { return window.focused; });
        });
    return menus;
}

std::optional<QList<ScreenReader::Menu>> ShellTest::hoverOwn(const QString& label,
                                                             const QString& expected) {
    // A window that has just appeared can miss the first motions over it (Qt 6.4 on
    // Wayland): the hand moves again, a little aside, until the submenu shows.
    for (int attempt = 0; attempt < 3; ++attempt) {
        const QList<ScreenReader::Menu> menus = openMenus(true);
        const ScreenReader::Entry* entry = entryOf(menus, label);
        if (!entry)
            return std::nullopt;
        input().moveTo(entry->rect.center() + QPoint(8 * attempt, 0));
        const auto shown = waitForMenus(
            [&](const QList<ScreenReader::Menu>& shown) { return entryOf(shown, expected); }, true,
            5s);
        if (shown)
            return shown;
    }
    return std::nullopt;
}

// 6. Quillmar's own menu is a menu: the keys go to it (Escape closes it), a click outside
// closes it, its submenus open when the pointer rests on their entries, a choice does its work
// and closes it, and no window of it stays behind.
void ShellTest::ownMenuBehavesAsAMenu() {
    if (knownToFail())
        QSKIP("known on this desktop (docs/desktops.md)");
    QVERIFY(runQuillmar(Account::SetUp));
    QStringList failures;
    const auto closed = [&](const QString& how) {
        const bool gone = waitUntil([this] { return openMenus(true).isEmpty(); }, 10s);
        screenshot(QStringLiteral("own-menu-closed-by-") + how.section(u' ', 0, 0));
        if (!gone)
            failures.append(how + QStringLiteral(" left Quillmar's own menu open"));
        // On Wayland its window goes with it.
        else if (!waitUntil(
                     [this] {
                         const QList<Window> windows = ownWindows();
                         return std::none_of(windows.cbegin(), windows.cend(), [](const auto& w) {
                             return w.title != QStringLiteral("Quillmar Settings");
                         });
                     },
                     10s))
            failures.append(how + QStringLiteral(" left the menu's window on the screen"));
    };

    QVERIFY2(openOwnMenu(), "Quillmar's own menu did not open");
    input().pressKeys(QStringLiteral("Escape"));
    closed(QStringLiteral("Escape"));

    const auto menus = openOwnMenu();
    QVERIFY2(menus, "Quillmar's own menu did not open");
    // A spot on the desktop, on the other side of the screen from the menu.
    const QRect menu = menuWith(*menus, QStringLiteral("Quit Quillmar"))->rect;
    const QSize screen = m_session->screen();
    const QPoint outside(menu.center().x() < screen.width() / 2 ? screen.width() * 3 / 4
                                                                : screen.width() / 4,
                         screen.height() / 2);
    input().click(outside);
    closed(QStringLiteral("a click outside"));

    // Submenus opened by the pointer alone, a lazily filled one among them, then a choice.
    QVERIFY(copyFromOutside(QStringLiteral("nothing yet")));
    QVERIFY2(openOwnMenu(), "Quillmar's own menu did not open");
    auto path = hoverOwn(QStringLiteral("📁 Collections"), QStringLiteral("Recipes  (1)"));
    if (path)
        path = hoverOwn(QStringLiteral("Recipes  (1)"), QStringLiteral("Pancakes"));
    if (path)
        path = hoverOwn(QStringLiteral("Pancakes"), QStringLiteral("⎘ Copy URL"));
    screenshot(QStringLiteral("own-submenus-by-hover"));
    QVERIFY2(path, qPrintable(QStringLiteral("submenus did not open on the pointer resting on "
                                             "their entries: ") +
                              describe(openMenus(true))));
    QVERIFY(choose(QStringLiteral("⎘ Copy URL"), true));
    closed(QStringLiteral("a choice"));
    const QString link = m_pages.baseUrl() + QStringLiteral("/pancakes");
    if (!waitUntil([&] { return clipboard() == link; }))
        failures.append(QStringLiteral("\"⎘ Copy URL\" in the own menu left the clipboard at "
                                       "\"%1\"")
                            .arg(clipboard()));
    const QStringList unknown = unknownFailures(failures);
    QVERIFY2(unknown.isEmpty(), qPrintable(unknown.join(QStringLiteral("\n"))));
}

// 7. Every call a panel may make answers without an error, over the real bus; changes of
// known entries are announced.
void ShellTest::itemAnswersEveryCallOfTheProtocol() {
    QVERIFY(runQuillmar(Account::SetUp));
    const auto item = registeredItem();
    QVERIFY(item);
    TestStatusNotifierHost host(m_session->busAddress());
    QVERIFY(host.attach(item->first, item->second));
    QStringList failures;
    const QStringList properties = {QStringLiteral("Category"),
                                    QStringLiteral("Id"),
                                    QStringLiteral("Title"),
                                    QStringLiteral("Status"),
                                    QStringLiteral("WindowId"),
                                    QStringLiteral("IconThemePath"),
                                    QStringLiteral("Menu"),
                                    QStringLiteral("ItemIsMenu"),
                                    QStringLiteral("IconName"),
                                    QStringLiteral("IconPixmap"),
                                    QStringLiteral("OverlayIconName"),
                                    QStringLiteral("OverlayIconPixmap"),
                                    QStringLiteral("AttentionIconName"),
                                    QStringLiteral("AttentionIconPixmap"),
                                    QStringLiteral("AttentionMovieName"),
                                    QStringLiteral("ToolTip")};
    for (const QString& property : properties)
        if (!host.itemProperty(property).isValid())
            failures.append(QStringLiteral("property %1 cannot be read").arg(property));
    const QString itemInterface = QStringLiteral("org.kde.StatusNotifierItem");
    const auto callItem = [&](const QString& method, const QVariantList& arguments) {
        const QDBusMessage reply = host.call(item->second, itemInterface, method, arguments);
        if (reply.type() == QDBusMessage::ErrorMessage)
            failures.append(QStringLiteral("%1: %2").arg(method, reply.errorMessage()));
    };
    callItem(QStringLiteral("SecondaryActivate"), {0, 0});
    // That opens Quillmar's own menu, whose grab would take the real clicks below.
    if (waitForMenus(
            [](const QList<ScreenReader::Menu>& menus) {
                return menuWith(menus, QStringLiteral("Quit Quillmar"));
            },
            true))
        closeMenus(true);
    else
        failures.append(QStringLiteral("SecondaryActivate did not open Quillmar's own menu"));
    callItem(QStringLiteral("Scroll"), {1, QStringLiteral("vertical")});
    callItem(QStringLiteral("ProvideXdgActivationToken"), {QStringLiteral("test-token")});

    const QString menuInterface = QStringLiteral("com.canonical.dbusmenu");
    const auto callMenu = [&](const QString& method, const QVariantList& arguments) {
        const QDBusMessage reply = host.call(host.menuPath(), menuInterface, method, arguments);
        if (reply.type() == QDBusMessage::ErrorMessage)
            failures.append(QStringLiteral("%1: %2").arg(method, reply.errorMessage()));
        return reply;
    };
    const QDBusMessage group = callMenu(QStringLiteral("GetGroupProperties"),
                                        {QVariant::fromValue(QList<int>{0}), QStringList()});
    if (group.type() == QDBusMessage::ReplyMessage) {
        const QDBusArgument items = group.arguments().constFirst().value<QDBusArgument>();
        bool hasRoot = false;
        items.beginArray();
        while (!items.atEnd()) {
            int id = -1;
            QVariantMap values;
            items.beginStructure();
            items >> id >> values;
            items.endStructure();
            hasRoot = hasRoot || id == 0;
        }
        items.endArray();
        if (!hasRoot)
            failures.append(QStringLiteral("GetGroupProperties leaves out id 0"));
    }
    const auto layout = host.layout(0, 1);
    if (!layout || layout->id != 0)
        failures.append(QStringLiteral("GetLayout of id 0 failed"));
    // EventGroup and AboutToShowGroup as libdbusmenu sends them.
    const auto gdbus = [&](const QString& method, const QString& arguments) {
        const auto result = ChildProcess::run(
            {QStringLiteral("gdbus"), QStringLiteral("call"), QStringLiteral("--session"),
             QStringLiteral("--dest"), item->first, QStringLiteral("--object-path"),
             host.menuPath(), QStringLiteral("--method"), menuInterface + u'.' + method,
             arguments});
        if (result.exitCode != 0)
            failures.append(QStringLiteral("%1 failed over the bus").arg(method));
    };
    const int settings = layout ? [&] {
        for (const auto& child : layout->children)
            if (child.shownLabel() == QStringLiteral("Settings…"))
                return child.id;
        return -1;
    }() : -1;
    gdbus(QStringLiteral("EventGroup"),
          QStringLiteral("[(%1, 'hovered', <0>, uint32 0)]").arg(settings));
    gdbus(QStringLiteral("AboutToShowGroup"), QStringLiteral("[0]"));

    // A change of a known entry is announced as such: the clipboard entry follows the clipboard
    // when the menu is about to show.
    // Where only the program with the keyboard focus sees the clipboard, Quillmar's settings
    // window, open, has it before and after the outside program copied.
    const bool focusOnly = !panelMenuSeesClipboard();
    if (focusOnly) {
        host.event(settings, QStringLiteral("clicked"));
        QVERIFY(waitUntil([this] { return settingsWindowShown(); }));
    }
    // As a Qt-based panel opens its menu (AboutToShow, then "opened"), which stays open while
    // the clipboard changes. Where the clipboard is shown only with the focus, the entry is
    // disabled at AboutToShow and enabled when the clipboard changes while the panel's menu is
    // open (which hides the clipboard from Quillmar): that change is the one announced.
    QVERIFY(copyFromOutside(QStringLiteral("no address here")));
    if (focusOnly) {
        // The shell marks the window focused a moment before the keyboard, and with it the
        // clipboard, reaches Quillmar: the menu is asked for until its entry shows that text.
        QVERIFY(waitUntil([&] {
            if (!settingsWindowShown())
                return false;
            host.aboutToShow(0);
            const auto menu = host.layout(0, 1);
            const auto* entry = menu ? menu->find(QStringLiteral("📋 Add Clipboard URL")) : nullptr;
            return entry && !entry->isEnabled();
        }));
    } else {
        host.aboutToShow(0);
    }
    host.event(0, QStringLiteral("opened"));
    const int updates = host.propertyUpdates();
    QVERIFY(copyFromOutside(QStringLiteral("https://example.org/announced")));
    if (!waitUntil([&] { return host.propertyUpdates() > updates; }))
        failures.append(QStringLiteral("an entry's new enabled state was not announced with "
                                       "ItemsPropertiesUpdated"));
    host.event(0, QStringLiteral("closed"));
    if (focusOnly) {
        // Closed as a person does, so that the menus below have the screen to themselves.
        QVERIFY(waitUntil([this] { return settingsWindowShown(); }));
        input().pressKeys(QStringLiteral("alt+F4"));
        QVERIFY(waitUntil([this] {
            const QList<Window> windows = ownWindows();
            return std::none_of(windows.cbegin(), windows.cend(), [](const Window& window) {
                return window.title == QStringLiteral("Quillmar Settings");
            });
        }));
    }

    // Real input the item's panel turns into these calls: a middle click, the wheel. The bus
    // shows each call and its answer.
    const auto icon = m_icon;
    QVERIFY(icon);
    BusMonitor monitor;
    QVERIFY(monitor.start(itemInterface, m_session->logFile(QStringLiteral("bus-monitor"))));
    const qint64 logSize = shellLogSize();
    const auto answered = [&](const QString& member, const QString& gesture) {
        const auto answer = monitor.waitForAnswer(member, 15s);
        if (!answer)
            failures.append(QStringLiteral("%1 sent no %2 that was answered").arg(gesture, member));
        else if (!answer->error.isEmpty())
            failures.append(
                QStringLiteral("%1: %2 answered %3").arg(gesture, member, answer->error));
    };
    input().click(icon->center(), 2);
    answered(QStringLiteral("SecondaryActivate"), QStringLiteral("a middle click"));
    // The middle click opens Quillmar's own menu, which would take the wheel.
    if (!waitForMenus(
            [](const QList<ScreenReader::Menu>& menus) {
                return menuWith(menus, QStringLiteral("Quit Quillmar"));
            },
            true)) {
        explainUnopenedMenu(*icon, logSize);
        failures.append(QStringLiteral("a middle click did not open Quillmar's own menu"));
    }
    closeMenus(true);
    if (wheelScrollsItem()) {
        input().scroll(icon->center(), false);
        answered(QStringLiteral("Scroll"), QStringLiteral("the wheel"));
    }
    monitor.stop();
    closeMenus();
    // Nor did the shell complain of anything Quillmar sent meanwhile.
    static const QRegularExpression complaint(
        QStringLiteral("No such method|UnknownMethod|not supported|Unable to replace"),
        QRegularExpression::CaseInsensitiveOption);
    for (const QString& line : shellLogSince(logSize).split(u'\n'))
        if (complaint.match(line).hasMatch())
            failures.append(QStringLiteral("the shell logged: ") + line.trimmed());
    const QStringList unknown = unknownFailures(failures);
    QVERIFY2(unknown.isEmpty(), qPrintable(unknown.join(QStringLiteral("\n"))));
}

// 8. A menu taller than the screen keeps every entry, "Quit Quillmar" included, within reach.
void ShellTest::tallMenuKeepsEveryItemReachable() {
    for (int i = 1; i <= 36; ++i)
        m_service->addBookmark(
            {300 + i,
             QStringLiteral("Favourite number %1").arg(i, 2, 10, QLatin1Char('0')),
             m_pages.baseUrl() + QStringLiteral("/favourite/%1").arg(i),
             readingId,
             true,
             {}});
    QVERIFY(runQuillmar(Account::Tall));
    const auto menu = openPanelMenuShowing(QStringLiteral("📋 Add Clipboard URL"));
    QVERIFY(menu);
    QVERIFY2(menu->rect.height() >= m_session->screen().height() - 64 ||
                 !menu->find(readAs(QStringLiteral("Quit Quillmar"))),
             "the menu is not taller than the screen");
    screenshot(QStringLiteral("tall-menu"));
    const QRect screen(QPoint(0, 0), m_session->screen());
    const bool own = !panelMenuReachesEveryEntry();
    QRect area = menu->rect;
    if (own) {
        // The user's way where the panel's menu cannot be scrolled: Quillmar's own menu.
        closeMenus();
        activate(*m_icon);
        const auto menus = waitForMenus(
            [](const QList<ScreenReader::Menu>& menus) {
                return menuWith(menus, QStringLiteral("📋 Add Clipboard URL"));
            },
            true);
        QVERIFY2(menus, "the activation gesture did not open Quillmar's own menu");
        area = menuWith(*menus, QStringLiteral("📋 Add Clipboard URL"))->rect;
    }
    const auto quitShown = [&] {
        const auto menus = openMenus(own);
        const ScreenReader::Entry* quit = entryOf(menus, readAs(QStringLiteral("Quit Quillmar")));
        return quit && screen.contains(quit->rect) ? std::optional<QRect>(quit->rect)
                                                   : std::nullopt;
    };
    // What the shell offers to reach the end of a long menu: the End key, the wheel, or the
    // scroll arrow at its bottom edge.
    std::optional<QRect> quit = quitShown();
    if (!quit) {
        input().moveTo(area.center());
        input().pressKeys(QStringLiteral("End"));
        waitUntil([&] { return (quit = quitShown()).has_value(); }, 3s);
    }
    if (!quit) {
        input().scroll(area.center(), false, 40);
        quit = quitShown();
    }
    if (!quit) {
        input().moveTo(QPoint(area.center().x(), std::min(area.bottom(), screen.bottom()) - 2));
        waitUntil([&] { return (quit = quitShown()).has_value(); }, 8s);
    }
    screenshot(QStringLiteral("tall-menu-end"));
    QVERIFY2(quit, own ? "\"Quit Quillmar\" cannot be reached in Quillmar's own menu"
                       : "\"Quit Quillmar\" cannot be reached in the panel's menu");
    input().click(quit->center());
    QVERIFY2(m_quillmar->waitForExit(15s), "choosing \"Quit Quillmar\" did not end Quillmar");
}

// 9. Started before any panel, as at login, Quillmar prints nothing either, and its icon goes to
// the panel once one comes.
void ShellTest::quietWhenStartedBeforeThePanel() {
    if (!m_session->isWayland())
        QSKIP("on X11 the icon starts in the XEmbed tray "
              "(tests/app/tst_x11_StatusNotifierLatePanel)");
    // A session bus with no panel on it yet, on the same screen; this Quillmar is alone there.
    PrivateSessionBus lateBus;
    QVERIFY(lateBus.start(m_session->logFile(QStringLiteral("late-panel-bus"))));
    const QByteArray sessionBus = qgetenv("DBUS_SESSION_BUS_ADDRESS");
    qputenv("DBUS_SESSION_BUS_ADDRESS", lateBus.address().toUtf8());
    // A desktop's bus has the accessibility bus, this one not: GTK's bridge, which Qt's GTK
    // theme loads on GNOME, would complain of its absence.
    qputenv("NO_AT_BRIDGE", "1");
    QuillmarProcess early(QStringLiteral(QUILLMAR_UNDER_TEST),
                          m_session->folder() + QStringLiteral("/quillmar-before-panel"));
    const bool started =
        early.start({m_service->apiBase(), m_pages.baseUrl(),
                     m_manifest.baseUrl() + QStringLiteral("/apps/quillmar/latest.json")});
    qputenv("DBUS_SESSION_BUS_ADDRESS", sessionBus);
    qunsetenv("NO_AT_BRIDGE");
    QVERIFY(started);
    QDBusConnection late =
        QDBusConnection::connectToBus(lateBus.address(), QStringLiteral("late-panel-test"));
    const auto disconnect =
        qScopeGuard([] { QDBusConnection::disconnectFromBus(QStringLiteral("late-panel-test")); });
    QVERIFY2(
        waitUntil([&] {
            return late.interface()->isServiceRegistered(SingleInstance::serviceName()).value();
        }),
        "Quillmar did not start without a panel");
    TestStatusNotifierWatcher panel(lateBus.address());
    QVERIFY(panel.start());
    QVERIFY2(panel.waitForItem(20000), "Quillmar's icon did not go to the panel that came later");
    early.stop();
    QVERIFY2(early.output().isEmpty(), qPrintable(early.output()));
}

// 9. Quillmar printed nothing in all of the above, quitting included.
void ShellTest::nothingOnStandardError() {
    m_quillmar->stop();
    QVERIFY2(m_quillmar->output().isEmpty(), qPrintable(m_quillmar->output()));
}
