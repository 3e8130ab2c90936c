#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

// The maker's note about the latest release: a JSON object of strings naming its version and
// where to download it.
struct UpdateManifest {
    QString version;
    QString downloadUrl;

    // Empty unless the body is a JSON object whose every value is a string and which holds
    // "version" and "download_url". Other keys are ignored.
    static std::optional<UpdateManifest> parse(const QByteArray& body);
};
