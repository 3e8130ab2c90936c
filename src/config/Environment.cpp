#include "config/Environment.h"

QString Environment::buildVersion() {
#ifdef QUILLMAR_VERSION
    return QStringLiteral(QUILLMAR_VERSION);
#else
    return {};
#endif
}
