#include "app/Application.h"

#include <QApplication>

int main(int argc, char* argv[]) {
    QApplication app(argc, argv);
    Application quillmar;
    if (!quillmar.start())
        return 0;
    return QApplication::exec();
}
