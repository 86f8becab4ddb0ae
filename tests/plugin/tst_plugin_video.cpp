// Video through the back end plugin on the real playback service: frames on
// a test surface with their format, size, count and colours, the surface's
// start/stop sequence (paused load, paused seek, size change, end of media),
// a surface that takes no format, a service that dies under a playing
// surface, and the video probe.
#include "e2esupport.h"
#include "playerrecorder.h"

#include <QtMultimedia/QAbstractVideoSurface>
#include <QtMultimedia/QMediaPlayer>
#include <QtMultimedia/QAudioProbe>
#include <QtMultimedia/QVideoProbe>
#include <QtMultimedia/QVideoSurfaceFormat>
#include <QtTest/QtTest>

#include <csignal>
#include <memory>

using namespace orvice2e;

namespace {

const int kLoadMs = 20000;

QMediaContent media(const QString &name)
{
    return QMediaContent(QUrl::fromLocalFile(mediaPath(name)));
}

// Records its calls as text: "start(320x240,RGB32)", "present", "stop";
// keeps the pixel at (20, 20) of every presented frame (first plane).
class TestSurface : public QAbstractVideoSurface
{
public:
    explicit TestSurface(QList<QVideoFrame::PixelFormat> formats) : m_formats(std::move(formats)) {}

    QList<QVideoFrame::PixelFormat> supportedPixelFormats(QAbstractVideoBuffer::HandleType type) const override
    {
        return type == QAbstractVideoBuffer::NoHandle ? m_formats : QList<QVideoFrame::PixelFormat>();
    }
    bool start(const QVideoSurfaceFormat &format) override
    {
        m_calls.append(QStringLiteral("start(%1x%2,%3)").arg(format.frameWidth()).arg(format.frameHeight())
                               .arg(formatName(format.pixelFormat())));
        return QAbstractVideoSurface::start(format);
    }
    void stop() override
    {
        m_calls.append(QStringLiteral("stop"));
        QAbstractVideoSurface::stop();
    }
    bool present(const QVideoFrame &frame) override
    {
        if (!m_calls.isEmpty() && m_calls.last() == QLatin1String("present"))
            ++m_presentedInRun;
        else
            m_calls.append(QStringLiteral("present"));
        ++m_frames;
        m_startTimes.append(frame.startTime());
        QVideoFrame mapped(frame);
        QByteArray pixel;
        if (mapped.map(QAbstractVideoBuffer::ReadOnly)) {
            const int bytes = frame.pixelFormat() == QVideoFrame::Format_RGB32 ? 4 : 1;
            pixel = QByteArray(reinterpret_cast<const char *>(mapped.bits(0) + 20 * mapped.bytesPerLine(0) + 20 * bytes),
                               bytes);
            mapped.unmap();
        }
        m_pixels.append(pixel);
        return true;
    }

    static QString formatName(QVideoFrame::PixelFormat format)
    {
        switch (format) {
        case QVideoFrame::Format_RGB32: return QStringLiteral("RGB32");
        case QVideoFrame::Format_YUV420P: return QStringLiteral("YUV420P");
        case QVideoFrame::Format_NV12: return QStringLiteral("NV12");
        default: return QString::number(int(format));
        }
    }

    QStringList calls() const { return m_calls; }
    int frames() const { return m_frames; }
    QList<qint64> startTimes() const { return m_startTimes; }
    QList<QByteArray> pixels() const { return m_pixels; }

private:
    QList<QVideoFrame::PixelFormat> m_formats;
    QStringList m_calls; // consecutive presents recorded once
    int m_presentedInRun = 0;
    int m_frames = 0;
    QList<qint64> m_startTimes;
    QList<QByteArray> m_pixels;
};

} // namespace

Q_DECLARE_METATYPE(QList<QVideoFrame::PixelFormat>)

class tst_PluginVideo : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void framesOnSurface_data();
    void framesOnSurface();
    void pausedLoadAndPausedSeek();
    void sizeChangeRestartsSurface();
    void surfaceTakingNoFormat();
    void surfaceResumesAfterServiceDied();
    void probeSeesFrames();
    void audioProbeSeesBuffers();

private:
    std::unique_ptr<RuntimeDir> m_runtime;
    std::unique_ptr<QMediaPlayer> m_player;
    std::unique_ptr<PlayerRecorder> m_rec;
};

void tst_PluginVideo::init()
{
    m_runtime = std::make_unique<RuntimeDir>();
    QVERIFY(m_runtime->isValid());
    m_player = std::make_unique<QMediaPlayer>();
    m_rec = std::make_unique<PlayerRecorder>(m_player.get());
}

void tst_PluginVideo::cleanup()
{
    m_rec.reset();
    m_player.reset();
    m_runtime.reset();
}

void tst_PluginVideo::framesOnSurface_data()
{
    QTest::addColumn<QList<QVideoFrame::PixelFormat>>("formats");
    QTest::addColumn<QString>("started");
    QTest::addColumn<QByteArray>("pixel"); // the grey bar at (20, 20), ± 16

    QTest::newRow("RGB32") << QList<QVideoFrame::PixelFormat>{QVideoFrame::Format_RGB32}
                           << "start(320x240,RGB32)" << QByteArray("\xc0\xc0\xc0\xff", 4);
    QTest::newRow("YUV420P preferred") << QList<QVideoFrame::PixelFormat>{QVideoFrame::Format_YUV420P,
                                                                          QVideoFrame::Format_RGB32}
                                       << "start(320x240,YUV420P)" << QByteArray("\xb4", 1);
    // A format Qt has and psserver does not, then one both have.
    QTest::newRow("NV12 after an unknown one") << QList<QVideoFrame::PixelFormat>{QVideoFrame::Format_Jpeg,
                                                                                  QVideoFrame::Format_NV12}
                                               << "start(320x240,NV12)" << QByteArray("\xb4", 1);
}

void tst_PluginVideo::framesOnSurface()
{
    QFETCH(QList<QVideoFrame::PixelFormat>, formats);
    QFETCH(QString, started);
    QFETCH(QByteArray, pixel);

    TestSurface surface(formats);
    m_player->setVideoOutput(&surface);
    m_player->setMedia(media("bars25.mp4"));
    m_player->play();
    QVERIFY(m_rec->waitForStatus(QMediaPlayer::EndOfMedia, kLoadMs));
    QTRY_COMPARE(surface.calls().last(), QStringLiteral("stop"));

    QCOMPARE(surface.calls(), (QStringList{started, "present", "stop"}));
    QVERIFY2(surface.frames() >= 25, qPrintable(QString::number(surface.frames())));
    QCOMPARE(surface.startTimes().first(), qint64(0));
    QCOMPARE(surface.startTimes().last(), qint64(960000));
    for (const QByteArray &seen : surface.pixels()) {
        QCOMPARE(seen.size(), pixel.size());
        for (int b = 0; b < qMin(3, pixel.size()); ++b)
            QVERIFY2(qAbs(int(uchar(seen.at(b))) - int(uchar(pixel.at(b)))) <= 16, seen.toHex().constData());
    }
    QCOMPARE(m_player->error(), QMediaPlayer::NoError);
}

void tst_PluginVideo::pausedLoadAndPausedSeek()
{
    TestSurface surface({QVideoFrame::Format_YUV420P});
    m_player->setVideoOutput(&surface);
    m_player->setMedia(media("bars25.mp4"));
    QVERIFY(m_rec->waitForStatus(QMediaPlayer::LoadedMedia, kLoadMs));
    QTRY_COMPARE(surface.frames(), 1);
    m_player->pause();
    QTRY_COMPARE(m_player->mediaStatus(), QMediaPlayer::BufferedMedia);
    m_player->setPosition(520);
    QTRY_COMPARE(surface.frames(), 2);
    QCOMPARE(surface.startTimes(), (QList<qint64>{0, 520000}));
    QCOMPARE(surface.calls(), (QStringList{"start(320x240,YUV420P)", "present"}));

    // Unloading stops the surface.
    m_player->setMedia(QMediaContent());
    QTRY_COMPARE(surface.calls().last(), QStringLiteral("stop"));
    QCOMPARE(surface.frames(), 2);
}

void tst_PluginVideo::sizeChangeRestartsSurface()
{
    TestSurface surface({QVideoFrame::Format_YUV420P});
    m_player->setVideoOutput(&surface);
    m_player->setMedia(media("sizechange.ts"));
    m_player->play();
    QVERIFY(m_rec->waitForStatus(QMediaPlayer::EndOfMedia, kLoadMs));
    QTRY_COMPARE(surface.calls().last(), QStringLiteral("stop"));
    QCOMPARE(surface.calls(), (QStringList{"start(320x240,YUV420P)", "present", "stop",
                                           "start(160x120,YUV420P)", "present", "stop"}));
}

void tst_PluginVideo::surfaceTakingNoFormat()
{
    TestSurface surface({QVideoFrame::Format_Jpeg});
    QSignalSpy errors(m_player.get(), QOverload<QMediaPlayer::Error>::of(&QMediaPlayer::error));
    QTest::ignoreMessage(QtWarningMsg,
                         "orvic video: The video surface takes none of the pixel formats the player delivers");
    m_player->setVideoOutput(&surface);
    QCOMPARE(errors.count(), 1);
    QCOMPARE(errors.first().first().value<QMediaPlayer::Error>(), QMediaPlayer::FormatError);
    QCOMPARE(m_player->errorString(),
             QStringLiteral("The video surface takes none of the pixel formats the player delivers"));
    // The medium still plays, without pictures.
    m_player->setMedia(media("bars25.mp4"));
    m_player->play();
    QVERIFY(m_rec->waitForStatus(QMediaPlayer::EndOfMedia, kLoadMs));
    QVERIFY(surface.calls().isEmpty());
}

void tst_PluginVideo::surfaceResumesAfterServiceDied()
{
    TestSurface surface({QVideoFrame::Format_YUV420P});
    m_player->setVideoOutput(&surface);
    m_player->setMedia(media("av.mp4"));
    m_player->play();
    QTRY_VERIFY_WITH_TIMEOUT(surface.frames() >= 5, kLoadMs);
    QVERIFY(signalDaemon(SIGKILL));
    const int before = surface.frames();
    // The session's watchdog restarts the service and reopens the medium;
    // the surface gets frames of the new engine.
    QTRY_VERIFY_WITH_TIMEOUT(surface.frames() >= before + 10, kLoadMs);
    QVERIFY(surface.calls().count(QStringLiteral("start(160x120,YUV420P)")) >= 2);
}

void tst_PluginVideo::probeSeesFrames()
{
    TestSurface surface({QVideoFrame::Format_RGB32});
    m_player->setVideoOutput(&surface);
    QVideoProbe probe;
    QVERIFY(probe.setSource(m_player.get()));
    QList<QSize> sizes;
    connect(&probe, &QVideoProbe::videoFrameProbed, this, [&](const QVideoFrame &frame) { sizes.append(frame.size()); });
    QSignalSpy flushes(&probe, &QVideoProbe::flush);
    m_player->setMedia(media("bars25.mp4"));
    m_player->play();
    QVERIFY(m_rec->waitForStatus(QMediaPlayer::EndOfMedia, kLoadMs));
    QTRY_VERIFY(!flushes.isEmpty());
    QCOMPARE(sizes.size(), surface.frames());
    QVERIFY(sizes.size() >= 25);
    QCOMPARE(sizes.first(), QSize(320, 240));
}

void tst_PluginVideo::audioProbeSeesBuffers()
{
    auto probe = std::make_unique<QAudioProbe>();
    QVERIFY(probe->setSource(m_player.get()));
    QList<QAudioFormat> formats;
    qint64 frames = 0;
    qint64 firstStart = -1;
    connect(probe.get(), &QAudioProbe::audioBufferProbed, this, [&](const QAudioBuffer &buffer) {
        formats.append(buffer.format());
        frames += buffer.frameCount();
        if (firstStart < 0)
            firstStart = buffer.startTime();
    });
    QSignalSpy flushes(probe.get(), &QAudioProbe::flush);
    // The last second of a 4 s tone of 44.1 kHz, mono.
    m_player->setMedia(media("sine.mp3"));
    QVERIFY(m_rec->waitForStatus(QMediaPlayer::LoadedMedia, kLoadMs));
    m_player->setPosition(3000);
    m_player->play();
    QVERIFY(m_rec->waitForStatus(QMediaPlayer::EndOfMedia, kLoadMs));
    QTRY_VERIFY(!flushes.isEmpty());

    QVERIFY(!formats.isEmpty());
    for (const QAudioFormat &format : qAsConst(formats)) {
        QCOMPARE(format.sampleRate(), 44100);
        QCOMPARE(format.channelCount(), 1);
        QCOMPARE(format.codec(), QStringLiteral("audio/pcm"));
        QVERIFY(format.isValid());
    }
    QVERIFY2(frames > 40000 && frames < 55000, qPrintable(QString::number(frames)));
    QVERIFY2(qAbs(firstStart - 3000000) < 60000, qPrintable(QString::number(firstStart)));

    // The probe goes (its control with it): the player loads on as before.
    probe.reset();
    m_player->setMedia(media("sine.mp3"));
    QVERIFY(m_rec->waitForStatus(QMediaPlayer::LoadedMedia, kLoadMs));
}

QTEST_GUILESS_MAIN(tst_PluginVideo)
#include "tst_plugin_video.moc"
