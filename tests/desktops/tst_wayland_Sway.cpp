// Quillmar in sway 1.7 with waybar 0.9.17 as its bar and tray: its StatusNotifierItem in
// waybar's tray, the menu drawn by waybar (libdbusmenu-gtk3), on a headless output, driven by a
// virtual pointer and keyboard. Quillmar is a Wayland client of sway.

#include "ShellTest.h"
#include "SwayInput.h"
#include "UnprivilegedUser.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>
#include <QtTest>

#include <algorithm>
#include <optional>
#include <vector>

using namespace std::chrono_literals;

namespace {

// The bar's height: the tray's strip along the top edge.
constexpr int barHeight = 26;
const QString appId = QStringLiteral("app.quillmar.Quillmar");

void collectViews(const QJsonObject& node, bool floating, QList<QJsonObject>& views,
                  QList<bool>& floatingViews) {
    if (node.value(QStringLiteral("app_id")).toString() == appId) {
        views.append(node);
        floatingViews.append(floating);
    }
    for (const QJsonValue child : node.value(QStringLiteral("nodes")).toArray())
        collectViews(child.toObject(), floating, views, floatingViews);
    for (const QJsonValue child : node.value(QStringLiteral("floating_nodes")).toArray())
        collectViews(child.toObject(), true, views, floatingViews);
}

// The screen as grim takes it (without the pointer).
QImage grabScreen() {
    const auto shot = ChildProcess::run(
        {QStringLiteral("grim"), QStringLiteral("-t"), QStringLiteral("ppm"), QStringLiteral("-")},
        30s);
    return QImage::fromData(shot.output, "PPM").convertToFormat(QImage::Format_RGB32);
}

// Where a rectangle of that size on now covers the most pixels that differ from before,
// not counting those inside taken; none where at most half of it changed (not drawn yet).
std::optional<QPoint> mostChangedPlace(const QImage& before, const QImage& now, QSize size,
                                       const QList<QRect>& taken) {
    const int width = now.width();
    const int height = now.height();
    // sums(x, y): the changed pixels left of x and above y.
    std::vector<int> sums(static_cast<size_t>(width + 1) * static_cast<size_t>(height + 1));
    const auto sum = [&](int x, int y) -> int& {
        return sums[static_cast<size_t>(y) * static_cast<size_t>(width + 1) +
                    static_cast<size_t>(x)];
    };
    for (int y = 0; y < height; ++y) {
        const auto* was = reinterpret_cast<const QRgb*>(before.constScanLine(y));
        const auto* is = reinterpret_cast<const QRgb*>(now.constScanLine(y));
        int row = 0;
        for (int x = 0; x < width; ++x) {
            const bool free = std::none_of(taken.cbegin(), taken.cend(),
                                           [&](QRect rect) { return rect.contains(x, y); });
            row += (was[x] != is[x] && free) ? 1 : 0;
            sum(x + 1, y + 1) = sum(x + 1, y) + row;
        }
    }
    const int w = std::min(size.width(), width);
    const int h = std::min(size.height(), height);
    QPoint best;
    int most = -1;
    for (int y = 0; y + h <= height; ++y)
        for (int x = 0; x + w <= width; ++x) {
            const int changed = sum(x + w, y + h) - sum(x, y + h) - sum(x + w, y) + sum(x, y);
            if (changed > most) {
                most = changed;
                best = QPoint(x, y);
            }
        }
    if (2 * most <= w * h)
        return std::nullopt;
    return best;
}

// The part of its popup a menu fills: the reader clips a submenu's own place by the entry
// that opened it, in that other popup's coordinates here; its entries span the whole popup.
QRect extentOf(const ScreenReader::Menu& menu) {
    QRect entries;
    for (const ScreenReader::Entry& entry : menu.entries)
        entries |= entry.rect;
    // A menu's own place holds its entries unless it is such a clipped one.
    return menu.rect.contains(entries) ? menu.rect : entries;
}

// A popup shows its entries within itself.
ScreenReader::Menu shownWhole(ScreenReader::Menu menu) {
    const QRect extent = extentOf(menu);
    for (ScreenReader::Entry& entry : menu.entries)
        entry.view = extent;
    return menu;
}

QString placeKey(const ScreenReader::Menu& menu) {
    return QStringLiteral("%1,%2,%3,%4 ")
               .arg(menu.rect.x())
               .arg(menu.rect.y())
               .arg(menu.rect.width())
               .arg(menu.rect.height()) +
           menu.labels().join(u'|');
}

} // namespace

class tst_wayland_Sway : public ShellTest {
    Q_OBJECT
public:
    // sway refuses to run as root: run as root (as `make test` is), the test program starts
    // itself again as an unprivileged user, with its session's folder handed over first.
    static void initMain() {
        UnprivilegedUser::writableFolder(
            QFileInfo(QFileInfo(QStringLiteral("/proc/self/exe")).symLinkTarget()).path() +
            QStringLiteral("/desktop-sessions/sway"));
        UnprivilegedUser::runTestAsUnprivilegedUser();
    }

protected:
    QString name() const override { return QStringLiteral("sway"); }
    DesktopSession::Options sessionOptions() const override {
        return {.wayland = true, .variables = {QStringLiteral("XDG_CURRENT_DESKTOP=sway")}};
    }
    QStringList panelApplications() const override { return {QStringLiteral("waybar")}; }
    // sway runs the bar, whose output goes to sway's log.
    QString shellLog() const override { return m_log; }
    DesktopInput& input() override { return m_input; }

    bool startShell(DesktopSession& session) override {
        m_log = session.logFile(QStringLiteral("sway"));
        const QString folder = session.folder() + QStringLiteral("/sway");
        if (!QDir().mkpath(folder) || !writeConfiguration(folder, session.screen()))
            return false;
        // Headless, without input devices of its own, drawn in memory.
        qputenv("WLR_BACKENDS", "headless");
        qputenv("WLR_LIBINPUT_NO_DEVICES", "1");
        qputenv("WLR_RENDERER", "pixman");
        const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
        ChildProcess* sway = session.startProgram(
            QStringLiteral("sway"), {QStringLiteral("sway"), QStringLiteral("--config"),
                                     folder + QStringLiteral("/sway.conf")});
        if (!sway)
            return false;
        QString display;
        QString ipc;
        const bool up = waitUntil(
            [&] {
                const QDir sockets(runtime);
                for (const QString& socket :
                     sockets.entryList({QStringLiteral("wayland-*")}, QDir::System))
                    if (!socket.endsWith(QStringLiteral(".lock")))
                        display = socket;
                const QStringList found = sockets.entryList(
                    {QStringLiteral("sway-ipc.*.%1.sock").arg(sway->pid())}, QDir::System);
                ipc = found.isEmpty() ? QString() : sockets.filePath(found.constFirst());
                return !display.isEmpty() && !ipc.isEmpty();
            },
            60s);
        if (!up)
            return false;
        qputenv("WAYLAND_DISPLAY", display.toLocal8Bit());
        qputenv("SWAYSOCK", ipc.toLocal8Bit());
        qputenv("QT_QPA_PLATFORM", "wayland");
        return waitForTray(60s) &&
               m_input.start(session.screen(), session.folder() + QStringLiteral("/logs"));
    }

    // GTK's accessible name of a menu entry leaves out the underscores of its label.
    QString readAs(const QString& label) const override { return QString(label).remove(u'_'); }

    // waybar makes an item's menu on the first click on its icon and shows it at once, before
    // its entries have come over the bus; GTK cannot grow a popup already shown on Wayland, so
    // that first menu is a strip without entries. A person clicks again: so does the test, for
    // each new item.
    void openPanelMenu(QRect icon) override {
        const auto item = registeredItem();
        if (item && item != m_menuMadeFor) {
            ShellTest::openPanelMenu(icon);
            waitUntil([this] { return !reader().menus().isEmpty(); }, 5s);
            dismissMenu(false);
            waitUntil([this] { return reader().menus().isEmpty(); }, 5s);
            m_menuMadeFor = item;
        }
        waitUntil([this] { return reader().menus().isEmpty(); }, 5s);
        m_withoutMenus = grabScreen();
        m_places.clear();
        ShellTest::openPanelMenu(icon);
    }

    // GTK on Wayland gives a menu's entries relative to the menu's own popup, whose place on
    // the screen no client knows, and sway's tree lists no popups: each menu is found on the
    // screen as the place of its size holding the most pixels changed since before the menu
    // opened, leaving out the menus placed already. Menus open one at a time and do not move
    // while open, so each new one is found as the only one not yet placed.
    QList<ScreenReader::Menu> placePanelMenus(QList<ScreenReader::Menu> read) override {
        // The reader may reach one menu twice (in places of its own), and reaches menus of
        // separators alone, which show nothing: each menu is kept once, and those are left out
        // (placed, they would take the place of a menu shown).
        QList<ScreenReader::Menu> menus;
        QSet<QString> keys;
        for (const ScreenReader::Menu& menu : std::as_const(read)) {
            const QStringList labels = menu.labels();
            const QString key = labels.join(u'|');
            if (keys.contains(key) ||
                std::all_of(labels.cbegin(), labels.cend(),
                            [](const QString& label) { return label == QStringLiteral("---"); }))
                continue;
            keys.insert(key);
            menus.append(menu);
        }
        QList<QRect> taken;
        const auto placeAt = [&](qsizetype i, QPoint offset) {
            menus[i] = shownWhole(moved({menus.at(i)}, offset).constFirst());
            taken.append(extentOf(menus.at(i)));
        };
        QList<qsizetype> unplaced;
        for (qsizetype i = 0; i < menus.size(); ++i) {
            const auto known = m_places.constFind(placeKey(menus.at(i)));
            if (known == m_places.cend())
                unplaced.append(i);
            else
                placeAt(i, *known);
        }
        if (unplaced.isEmpty() || m_withoutMenus.isNull())
            return menus;
        const QImage now = grabScreen();
        if (now.size() != m_withoutMenus.size())
            return menus;
        for (const qsizetype i : std::as_const(unplaced)) {
            const QString key = placeKey(menus.at(i));
            const QRect extent = extentOf(menus.at(i));
            const auto place = mostChangedPlace(m_withoutMenus, now, extent.size(), taken);
            if (!place)
                continue;
            m_places.insert(key, *place - extent.topLeft());
            placeAt(i, *place - extent.topLeft());
        }
        return menus;
    }

    // A waybar menu closed with Escape does not open again on the next click on its icon:
    // its menus are closed with a click on the empty desktop, as a person often does.
    void dismissMenu(bool own) override {
        if (own)
            ShellTest::dismissMenu(own);
        else
            input().click(QPoint(session().screen().width() / 4, session().screen().height() / 2));
    }

    // libdbusmenu-gtk, as under Xfce, sends no "opened" or "closed" for the item's own menu.
    bool announcesMenuClosing() const override { return false; }

    // waybar's menu (GTK 3 on Wayland) taller than the output shows no scroll arrows and moves
    // for neither the End key nor the wheel, although sway shrinks the popup to the output
    // (wlroots' xdg_popup_unconstrain_resize): the left click opens Quillmar's own menu.
    bool panelMenuReachesEveryEntry() const override { return false; }

    // waybar's tray buttons have no accessible names: the icon is found on the screen.
    std::optional<QRect> trayIcon() override { return iconByDifference(barHeight); }

    bool saveScreen(const QString& file) override {
        return ChildProcess::run({QStringLiteral("grim"), file}, 30s).exitCode == 0;
    }

    // Quillmar's windows in sway's tree.
    QList<Window> ownWindows() const override {
        const auto tree = ChildProcess::run({QStringLiteral("swaymsg"), QStringLiteral("-r"),
                                             QStringLiteral("-t"), QStringLiteral("get_tree")});
        QList<QJsonObject> views;
        QList<bool> floating;
        collectViews(QJsonDocument::fromJson(tree.output).object(), false, views, floating);
        QList<Window> windows;
        for (qsizetype i = 0; i < views.size(); ++i) {
            const QJsonObject rect = views.at(i).value(QStringLiteral("rect")).toObject();
            windows.append({views.at(i).value(QStringLiteral("name")).toString(),
                            QRect(rect.value(QStringLiteral("x")).toInt(),
                                  rect.value(QStringLiteral("y")).toInt(),
                                  rect.value(QStringLiteral("width")).toInt(),
                                  rect.value(QStringLiteral("height")).toInt()),
                            views.at(i).value(QStringLiteral("focused")).toBool(), floating.at(i)});
        }
        return windows;
    }

    // The top menu is a window of its own size that sway placed; its submenus are where Qt
    // put them beside it.
    QList<ScreenReader::Menu> placeOwnMenus(QList<ScreenReader::Menu> menus) override {
        for (const Window& window : ownWindows())
            for (const ScreenReader::Menu& menu : std::as_const(menus))
                if (menu.rect.size() == window.rect.size())
                    return moved(menus, window.rect.topLeft() - menu.rect.topLeft());
        return menus;
    }

private:
    static bool writeConfiguration(const QString& folder, QSize screen) {
        QFile waybar(folder + QStringLiteral("/waybar.json"));
        if (!waybar.open(QIODevice::WriteOnly))
            return false;
        // A bar with the tray alone, at the top right, as on many sway desktops.
        waybar.write(R"({"layer": "top", "position": "top", "height": 26, "modules-left": [],
"modules-center": [], "modules-right": ["tray"], "tray": {"icon-size": 18, "spacing": 6}})");
        waybar.close();
        // sway 1.7 runs the bar command as one program name, without arguments.
        QFile script(folder + QStringLiteral("/waybar.sh"));
        if (!script.open(QIODevice::WriteOnly))
            return false;
        script.write("#!/bin/sh\nexec waybar -c '" + waybar.fileName().toUtf8() + "' \"$@\"\n");
        script.close();
        script.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        QFile sway(folder + QStringLiteral("/sway.conf"));
        if (!sway.open(QIODevice::WriteOnly))
            return false;
        const QStringList lines = {
            QStringLiteral("output HEADLESS-1 resolution %1x%2 position 0 0")
                .arg(screen.width())
                .arg(screen.height()),
            // No X11 programs here: no Xwayland to wait for.
            QStringLiteral("xwayland disable"),
            QStringLiteral("bar {\n    swaybar_command %1\n}").arg(script.fileName()),
            // The hot key as a sway user sets it up: the key starts Quillmar, whose second
            // start opens the running one's menu.
            QStringLiteral("bindsym Ctrl+Mod1+r exec %1").arg(QStringLiteral(QUILLMAR_PROGRAM)),
        };
        return sway.write(lines.join(u'\n').toUtf8() + '\n') > 0;
    }

    SwayInput m_input;
    QString m_log;
    // The screen before the panel's menu opened, and where each open menu was found on it
    // (by its place as read and its labels).
    QImage m_withoutMenus;
    QHash<QString, QPoint> m_places;
    // The item whose menu waybar has made.
    std::optional<QPair<QString, QString>> m_menuMadeFor;
};

QTEST_GUILESS_MAIN(tst_wayland_Sway)
#include "tst_wayland_Sway.moc"
