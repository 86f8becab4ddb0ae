// The embedded cover picture wrapped around the engine's pixels.
#include "metadatatestutil.h"

#include <QtTest/QtTest>

#include <vector>

using namespace orvictest;

namespace {
playback::SPMetaData::Picture picture(unsigned char *data, int width, int height)
{
    playback::SPMetaData::Picture p;
    std::memset(&p, 0, sizeof p);
    p.data = data;
    p.width = width;
    p.height = height;
    return p;
}
} // namespace

class tst_Id3Picture : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void noPicture();
    void picture300();
    void onlyMinusOneFails();
    void unusablePicture_data();
    void unusablePicture();
};

void tst_Id3Picture::noPicture()
{
    MetaRig rig;
    rig.reader.script().push("getPicture", -1);
    LogCapture log;
    const QImage image = rig.session.updateID3Pic();
    QVERIFY(image.isNull());
    QCOMPARE(rig.recorder.calls(), QStringList{QStringLiteral("getPicture(0,512)")});
    ORVIC_COMPARE_LINES(log.lines(), QStringList{
        QStringLiteral("D/OPMetaSession updateID3Pic(#):updateID3Pic error, return null image.")});
}

void tst_Id3Picture::picture300()
{
    const int side = 300;
    std::vector<unsigned char> pixels(size_t(side) * side * 3);
    for (size_t i = 0; i < pixels.size(); ++i)
        pixels[i] = static_cast<unsigned char>(i * 7 + 3);
    MetaRig rig;
    rig.reader.setPicture(picture(pixels.data(), side, side));
    LogCapture log;
    const QImage image = rig.session.updateID3Pic();

    QVERIFY(!image.isNull());
    QCOMPARE(image.size(), QSize(side, side));
    QCOMPARE(image.format(), QImage::Format_RGB888);
    QCOMPARE(image.pixel(0, 0), qRgb(pixels[0], pixels[1], pixels[2]));
    QCOMPARE(image.pixel(side - 1, side - 1),
             qRgb(pixels[pixels.size() - 3], pixels[pixels.size() - 2], pixels[pixels.size() - 1]));
    // Not copied: the image reads the engine's memory.
    QCOMPARE(static_cast<const void *>(image.constBits()), static_cast<const void *>(pixels.data()));
    QCOMPARE(rig.recorder.calls(), QStringList{QStringLiteral("getPicture(0,512)")});

    const QStringList lines = log.lines();
    QCOMPARE(lines.size(), 2);
    QVERIFY(LogCapture::pattern(QStringLiteral("D/OPMetaSession updateID3Pic(#):updateID3Pic 300x300 ok"))
                .match(lines.at(0)).hasMatch());
    // The image itself follows, as Qt's debug writer prints it.
    QString printed;
    QDebug(&printed) << image;
    QCOMPARE(lines.at(1), printed.trimmed());
    QVERIFY(lines.at(1).startsWith(QLatin1String("QImage(QSize(300, 300)")));
}

void tst_Id3Picture::onlyMinusOneFails()
{
    unsigned char pixels[2 * 8] = {10, 20, 30};  // rows of 6 bytes padded to 8
    MetaRig rig;
    rig.reader.script().push("getPicture", -2);
    rig.reader.setPicture(picture(pixels, 2, 2));
    const QImage image = rig.session.updateID3Pic();
    QVERIFY(!image.isNull());
    QCOMPARE(image.pixel(0, 0), qRgb(10, 20, 30));
}

void tst_Id3Picture::unusablePicture_data()
{
    QTest::addColumn<bool>("withData");
    QTest::addColumn<int>("width");
    QTest::addColumn<int>("height");
    QTest::newRow("null pixel pointer") << false << 4 << 4;
    QTest::newRow("zero width") << true << 0 << 4;
    QTest::newRow("zero height") << true << 4 << 0;
    QTest::newRow("negative width") << true << -4 << 4;
    QTest::newRow("negative height") << true << 4 << -1;
}

void tst_Id3Picture::unusablePicture()
{
    QFETCH(bool, withData);
    QFETCH(int, width);
    QFETCH(int, height);
    unsigned char pixels[64] = {};
    MetaRig rig;
    rig.reader.setPicture(picture(withData ? pixels : nullptr, width, height));
    LogCapture log;
    QVERIFY(rig.session.updateID3Pic().isNull());
    ORVIC_COMPARE_LINES(log.lines(), QStringList{
        QStringLiteral("D/OPMetaSession updateID3Pic(#):updateID3Pic error, return null image.")});
}

QTEST_GUILESS_MAIN(tst_Id3Picture)
#include "tst_id3picture.moc"
