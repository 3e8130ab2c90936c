#pragma once

#include <QTemporaryDir>

// The home of a test program: HOME and the XDG folders point into a fresh folder from before
// main() until the program ends, when the folder goes. A test run by hand thus never reads or
// writes the developer's own files (~/.config/quillmar/config.json, its token included). Linked
// into every test program, which makes one at start-up; a test may still point HOME elsewhere.
class OwnHome {
public:
    OwnHome();
    OwnHome(const OwnHome&) = delete;
    OwnHome& operator=(const OwnHome&) = delete;

    QString path() const { return m_folder.path(); }

private:
    QTemporaryDir m_folder;
};
