#include "UnprivilegedUser.h"

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QList>

#include <cstdio>
#include <cstdlib>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

const passwd* nobody() {
    return getpwnam("nobody");
}

// Makes path (and its missing parents) and gives it to "nobody".
bool makeOwned(const QString& path, const passwd* user, mode_t mode) {
    if (!QDir().mkpath(path))
        return false;
    const QByteArray native = QFile::encodeName(path);
    return chown(native.constData(), user->pw_uid, user->pw_gid) == 0 &&
           chmod(native.constData(), mode) == 0;
}

[[noreturn]] void fail(const char* what) {
    std::fprintf(stderr, "Cannot run the test as an unprivileged user: %s\n", what);
    std::exit(1);
}

} // namespace

QString UnprivilegedUser::writableFolder(const QString& path) {
    QDir().mkpath(path);
    if (geteuid() == 0) {
        if (const passwd* user = nobody())
            makeOwned(path, user, 0755);
    }
    return path;
}

void UnprivilegedUser::runTestAsUnprivilegedUser() {
    if (geteuid() != 0) {
        // Started again by the code below: its folder goes when it ends.
        static const QByteArray made = qgetenv("QUILLMAR_TEST_UNPRIVILEGED_FOLDER");
        if (!made.isEmpty())
            std::atexit([] { QDir(QFile::decodeName(made)).removeRecursively(); });
        return;
    }
    const passwd* user = nobody();
    if (!user)
        fail("there is no user \"nobody\"");
    QByteArray base = "/tmp/quillmar-test-XXXXXX";
    if (!mkdtemp(base.data()))
        fail("no temporary folder");
    const QString root = QString::fromLocal8Bit(base);
    const QString home = root + QStringLiteral("/home");
    const QString runtime = root + QStringLiteral("/runtime");
    if (!makeOwned(root, user, 0755) || !makeOwned(home, user, 0700) ||
        !makeOwned(runtime, user, 0700))
        fail("cannot prepare its folders");
    qputenv("HOME", QFile::encodeName(home));
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(home + QStringLiteral("/.config")));
    qputenv("XDG_CACHE_HOME", QFile::encodeName(home + QStringLiteral("/.cache")));
    qputenv("XDG_DATA_HOME", QFile::encodeName(home + QStringLiteral("/.local/share")));
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(runtime));
    qputenv("QUILLMAR_TEST_UNPRIVILEGED_FOLDER", base);
    qputenv("USER", user->pw_name);
    qputenv("LOGNAME", user->pw_name);

    // The same program with the same arguments, read back from the kernel.
    QFile commandLine(QStringLiteral("/proc/self/cmdline"));
    if (!commandLine.open(QIODevice::ReadOnly))
        fail("cannot read its command line");
    QList<QByteArray> arguments = commandLine.readAll().split('\0');
    if (!arguments.isEmpty() && arguments.last().isEmpty())
        arguments.removeLast();
    const QByteArray uid = "--reuid=" + QByteArray::number(user->pw_uid);
    const QByteArray gid = "--regid=" + QByteArray::number(user->pw_gid);
    QList<QByteArray> command = {"setpriv", uid, gid, "--clear-groups", "--", "/proc/self/exe"};
    // /proc/self/exe would name setpriv once it runs: the program's own path goes in instead.
    char self[4096] = {};
    const ssize_t length = readlink("/proc/self/exe", self, sizeof self - 1);
    if (length <= 0)
        fail("cannot find its own program");
    command.last() = QByteArray(self, length);
    command.append(arguments.mid(1));
    std::vector<char*> argv;
    for (QByteArray& argument : command)
        argv.push_back(argument.data());
    argv.push_back(nullptr);
    execvp("setpriv", argv.data());
    fail("cannot start setpriv");
}
