#include "config/Environment.h"

#include <QTest>

using namespace Qt::StringLiterals;

// The one place that knows the outside addresses of the shipped program.
class tst_Environment : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void shippedAddresses();
};

void tst_Environment::shippedAddresses() {
    const Environment environment;
    QCOMPARE(environment.apiBase, u"https://api.raindrop.io/rest/v1"_s);
    QCOMPARE(environment.webApp, u"https://app.raindrop.io"_s);
    QCOMPARE(environment.updateManifest, u"https://quillmar.app/apps/quillmar/latest.json"_s);
    // The build carries its version.
    QVERIFY(!environment.version.isEmpty());
}

QTEST_GUILESS_MAIN(tst_Environment)
#include "tst_Environment.moc"
