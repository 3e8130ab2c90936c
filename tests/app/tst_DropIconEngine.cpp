// The drop that Quillmar draws itself is the installed quillmar.svg, at every size a tray or a
// window asks for.
#include "app/tray/DropIconEngine.h"
#include "app/tray/StatusItem.h"

#include <QGuiApplication>
#include <QIcon>
#include <QImage>
#include <QTest>

#include <cstdlib>

using namespace Qt::StringLiterals;

class tst_DropIconEngine : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() { Q_INIT_RESOURCE(testdata); }

    void sameAsTheInstalledIcon_data() {
        QTest::addColumn<int>("size");
        for (const int size : {16, 22, 24, 32, 48, 64, 128, 256})
            QTest::addRow("%d", size) << size;
    }
    void sameAsTheInstalledIcon() {
        QFETCH(int, size);
        const QIcon svg(u":/icons/quillmar.svg"_s);
        QVERIFY(!svg.isNull());
        const QImage expected =
            svg.pixmap(size, size).toImage().convertToFormat(QImage::Format_ARGB32);
        const QImage drawn = StatusItem::dropIcon()
                                 .pixmap(size, size)
                                 .toImage()
                                 .convertToFormat(QImage::Format_ARGB32);
        QCOMPARE(drawn.size(), QSize(size, size));
        QCOMPARE(expected.size(), QSize(size, size));
        // The two painters smooth edges alike but not to the bit: on average within a step of
        // the SVG's, and hardly a pixel further apart than a soft edge's shade.
        long long total = 0;
        int apart = 0;
        for (int y = 0; y < size; ++y) {
            for (int x = 0; x < size; ++x) {
                const QRgb a = expected.pixel(x, y);
                const QRgb b = drawn.pixel(x, y);
                int worst = 0;
                for (const int difference : {qRed(a) - qRed(b), qGreen(a) - qGreen(b),
                                             qBlue(a) - qBlue(b), qAlpha(a) - qAlpha(b)}) {
                    total += std::abs(difference);
                    worst = std::max(worst, std::abs(difference));
                }
                apart += worst > 32 ? 1 : 0;
            }
        }
        const double mean = double(total) / (size * size * 4);
        QVERIFY2(mean < 0.5 && apart <= size / 16,
                 qPrintable(u"mean difference %1, %2 pixels apart"_s.arg(mean).arg(apart)));
    }
};

QTEST_MAIN(tst_DropIconEngine)
#include "tst_DropIconEngine.moc"
