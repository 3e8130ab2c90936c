// Quillmar as the desktop tests run it: what the shipped program runs, with the bookmark
// service, the web application and the update manifest given on the command line (the test
// plays them on 127.0.0.1), so that it runs inside a real desktop session as its own process.
// Only this test program takes options; the shipped one has none.

#include "app/Application.h"
#include "config/Environment.h"
#include "menu/MenuManager.h"

#include <QApplication>
#include <QCommandLineParser>

#include <chrono>

int main(int argc, char* argv[]) {
    QApplication app(argc, argv);

    QCommandLineParser parser;
    const QCommandLineOption apiBase(QStringLiteral("api-base"), QStringLiteral("REST base"),
                                     QStringLiteral("url"));
    const QCommandLineOption webApp(QStringLiteral("web-app"), QStringLiteral("web application"),
                                    QStringLiteral("url"));
    const QCommandLineOption manifest(QStringLiteral("update-manifest"),
                                      QStringLiteral("update manifest"), QStringLiteral("url"));
    // The menu's refresh timer, shortened so that a test sees it fire while a menu is open, or
    // lengthened so that it does not fire amid another check.
    const QCommandLineOption refresh(QStringLiteral("refresh-seconds"),
                                     QStringLiteral("refresh interval"), QStringLiteral("seconds"));
    parser.addOptions({apiBase, webApp, manifest, refresh});
    parser.process(app);

    Environment environment;
    if (parser.isSet(apiBase))
        environment.apiBase = parser.value(apiBase);
    if (parser.isSet(webApp))
        environment.webApp = parser.value(webApp);
    if (parser.isSet(manifest))
        environment.updateManifest = parser.value(manifest);
    MenuManager::Timings timings;
    if (parser.isSet(refresh))
        timings.refreshInterval = std::chrono::seconds(parser.value(refresh).toInt());

    Application quillmar({environment, timings});
    if (!quillmar.start())
        return 0;
    return QApplication::exec();
}
