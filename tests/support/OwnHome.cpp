#include "OwnHome.h"

#include <QDir>
#include <QFile>

#include <cstdio>
#include <cstdlib>

namespace {

// Made before main() runs, before any test reads an environment variable.
const OwnHome ownHome;

} // namespace

OwnHome::OwnHome()
    : m_folder(QDir::tempPath() + QStringLiteral("/quillmar-test-home-XXXXXX")) {
    const QString home = m_folder.path();
    const QString runtime = home + QStringLiteral("/runtime");
    // A runtime folder is private to its user: programs that keep sockets there expect it.
    if (!m_folder.isValid() || !QDir().mkpath(runtime) ||
        !QFile::setPermissions(runtime, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner)) {
        std::fputs("Cannot make the test program's own home folder.\n", stderr);
        std::exit(1);
    }
    const auto point = [&home](const char* variable, const char* under) {
        qputenv(variable, QFile::encodeName(home + QString::fromLatin1(under)));
    };
    point("HOME", "");
    point("XDG_CONFIG_HOME", "/.config");
    point("XDG_DATA_HOME", "/.local/share");
    point("XDG_STATE_HOME", "/.local/state");
    point("XDG_CACHE_HOME", "/.cache");
    point("XDG_RUNTIME_DIR", "/runtime");
}
