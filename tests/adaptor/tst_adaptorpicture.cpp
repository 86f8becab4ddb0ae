// The cover picture as a client gets it from the session: pixels of its own,
// which outlive the engine's buffer (freed at the next open or picture request).
#include "adaptorharness.h"

#include <QtTest/QtTest>

#include <cstring>
#include <memory>

using namespace orvictest;
using S = QOrvicPlayerSession;

namespace {
const QString kSong = QStringLiteral("/media/song.mp3");
const int kWidth = 6;
const int kHeight = 4;

// The engine's decoded picture: RGB888 rows padded to 4 bytes, on the heap so
// that a read after it is freed is a sanitizer error.
struct EngineBuffer {
    static const int kStride = (kWidth * 3 + 3) & ~3;
    std::unique_ptr<unsigned char[]> pixels{new unsigned char[size_t(kStride) * kHeight]};

    EngineBuffer()
    {
        for (int y = 0; y < kHeight; ++y) {
            for (int x = 0; x < kWidth * 3; ++x)
                pixels[size_t(y) * kStride + size_t(x)] = static_cast<unsigned char>(10 + 7 * y + x);
        }
    }

    playback::SPMetaData::Picture record() const
    {
        playback::SPMetaData::Picture p;
        std::memset(&p, 0, sizeof p);
        p.data = pixels.get();
        p.width = kWidth;
        p.height = kHeight;
        return p;
    }

    QRgb expected(int x, int y) const
    {
        const unsigned char *at = &pixels[size_t(y) * kStride + size_t(x) * 3];
        return qRgb(at[0], at[1], at[2]);
    }
};
} // namespace

class tst_AdaptorPicture : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void coverThroughTheSession();
    void coverOutlivesTheEngineBuffer();
    void noCover();
    void noMetadataSession();

private:
    std::unique_ptr<AdaptorHarness> h;
};

void tst_AdaptorPicture::init()
{
    h.reset(new AdaptorHarness);
    h->useMedium(Medium::AudioOnly);
}

void tst_AdaptorPicture::cleanup()
{
    QCOMPARE(closeHarness(h), QString());
}

void tst_AdaptorPicture::coverThroughTheSession()
{
    EngineBuffer engine;
    h->start();
    h->reader()->setPicture(engine.record());
    h->d->setMedia(kSong);
    h->clear();

    const QImage cover = h->session->getID3Pic();

    QCOMPARE(cover.size(), QSize(kWidth, kHeight));
    QCOMPARE(cover.format(), QImage::Format_RGB888);
    for (int y = 0; y < kHeight; ++y) {
        for (int x = 0; x < kWidth; ++x)
            QCOMPARE(cover.pixel(x, y), engine.expected(x, y));
    }
    // Pixels of its own, not a view of the engine's.
    QVERIFY(cover.constBits() != engine.pixels.get());
    QCOMPARE(h->engine.recorder().callsNamed("getPicture"), QStringList({"getPicture(0,512)"}));
    QCOMPARE(h->signalTexts(), QStringList());
}

void tst_AdaptorPicture::coverOutlivesTheEngineBuffer()
{
    std::unique_ptr<EngineBuffer> engine(new EngineBuffer);
    h->start();
    h->reader()->setPicture(engine->record());
    h->d->setMedia(kSong);
    const QImage cover = h->session->getID3Pic();
    QVector<QRgb> before;
    for (int y = 0; y < kHeight; ++y) {
        for (int x = 0; x < kWidth; ++x)
            before.append(engine->expected(x, y));
    }

    // The next open: the engine overwrites, then frees, its buffer.
    h->reader()->setPicture(playback::SPMetaData::Picture{});
    h->d->setMedia(kSong);
    std::memset(engine->pixels.get(), 0xee, size_t(EngineBuffer::kStride) * kHeight);
    engine.reset();

    QCOMPARE(cover.size(), QSize(kWidth, kHeight));
    int i = 0;
    for (int y = 0; y < kHeight; ++y) {
        for (int x = 0; x < kWidth; ++x)
            QCOMPARE(cover.pixel(x, y), before.at(i++));
    }
}

void tst_AdaptorPicture::noCover()
{
    h->start();
    h->reader()->script().setDefault("getPicture", -1);
    h->d->setMedia(kSong);
    QVERIFY(h->session->getID3Pic().isNull());
}

void tst_AdaptorPicture::noMetadataSession()
{
    h->start();
    h->d->release();
    h->clear();
    QVERIFY(h->session->getID3Pic().isNull());
    ORVIC_COMPARE_LINES(h->sessionLog(), QStringList({"D/OPSession getID3Pic(#):mMetaSession is null"}));
}

QTEST_GUILESS_MAIN(tst_AdaptorPicture)
#include "tst_adaptorpicture.moc"
