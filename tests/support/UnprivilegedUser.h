#pragma once

#include <QString>

// Some desktops refuse to run as root (sway). A test program that brings one up calls
// runTestAsUnprivilegedUser() first thing in its initMain(): run as root (as `make test` is), it
// starts itself again as the user "nobody", with HOME and the XDG folders in a fresh folder of
// that user's, and never returns; run as anyone else it returns at once.
class UnprivilegedUser {
public:
    static void runTestAsUnprivilegedUser();
    // A folder the test program may write to whichever user it runs as (screenshots): made, and
    // handed to "nobody", before the program starts again.
    static QString writableFolder(const QString& path);
};
