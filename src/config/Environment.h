#pragma once

#include <QString>

// The outside addresses and the program's version. The shipped program uses the defaults;
// tests point the addresses at servers on 127.0.0.1.
struct Environment {
    QString apiBase = QStringLiteral("https://api.raindrop.io/rest/v1");
    QString webApp = QStringLiteral("https://app.raindrop.io");
    QString updateManifest = QStringLiteral("https://quillmar.app/apps/quillmar/latest.json");
    // Empty when the build carries no version.
    QString version = buildVersion();

    static QString buildVersion();
};
