// Decoded video from psserver into this process through the host-only
// extension of libplayback: frames in the shared ring with their format,
// size and timestamps, a paused load and a paused seek, a size change, a
// client that holds every slot, a client that goes away, 4K frames.
#include "playerfixture.h"

#include <hostplayback/videoout.h>
#include <hostruntime.h>
#include <videowire.h>
#include <playback/spplayer.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QMutex>
#include <QtCore/QProcess>
#include <QtCore/QMutexLocker>
#include <QtCore/QWaitCondition>
#include <QtTest/QtTest>

#include <csignal>
#include <functional>
#include <memory>
#include <unistd.h>

using namespace orvice2e;
using hostplayback::VideoFrame;
using hostplayback::VideoPixelFormat;
using playback::SPPlayer;

Q_DECLARE_METATYPE(hostplayback::VideoPixelFormat)

namespace {

using FramePtr = std::shared_ptr<const VideoFrame>;

const int kWaitMs = 10000;

// Keeps what arrives; holds the frames themselves only when told to (a
// client that never gives its slots back).
class TestReceiver : public hostplayback::VideoReceiver
{
public:
    void frameArrived(const FramePtr &frame) override
    {
        QMutexLocker lock(&m_mutex);
        Seen seen{frame->layout(), frame->ptsNs(), samplePixel(*frame)};
        m_seen.append(seen);
        if (m_hold)
            m_held.append(frame);
        else
            m_last = frame;
        m_changed.wakeAll();
    }
    void playbackStopped() override
    {
        QMutexLocker lock(&m_mutex);
        ++m_stops;
        m_changed.wakeAll();
    }
    void channelLost() override
    {
        QMutexLocker lock(&m_mutex);
        m_lost = true;
        m_changed.wakeAll();
    }

    struct Seen
    {
        hostplayback::VideoFrameLayout layout;
        int64_t ptsNs;
        QByteArray pixel; // the bytes of one pixel at (20, 20), first plane
    };

    bool waitForFrames(int count, int timeoutMs = kWaitMs)
    {
        QMutexLocker lock(&m_mutex);
        QDeadlineTimer deadline(timeoutMs);
        while (m_seen.size() < count) {
            if (!m_changed.wait(&m_mutex, deadline))
                return m_seen.size() >= count;
        }
        return true;
    }
    QList<Seen> seen() const
    {
        QMutexLocker lock(&m_mutex);
        return m_seen;
    }
    void setHold(bool hold)
    {
        QMutexLocker lock(&m_mutex);
        m_hold = hold;
        if (!hold)
            m_held.clear();
    }
    int stops() const
    {
        QMutexLocker lock(&m_mutex);
        return m_stops;
    }

private:
    static QByteArray samplePixel(const VideoFrame &frame)
    {
        const hostplayback::VideoFrameLayout &l = frame.layout();
        if (l.width <= 20 || l.height <= 20)
            return QByteArray();
        const bool packed32 = l.format == VideoPixelFormat::BGRx || l.format == VideoPixelFormat::BGRA
                || l.format == VideoPixelFormat::RGBx;
        const int bytes = packed32 ? 4 : 1;
        const unsigned char *p = frame.data() + l.offsets[0] + 20 * size_t(l.strides[0]) + 20 * bytes;
        return QByteArray(reinterpret_cast<const char *>(p), bytes);
    }

    mutable QMutex m_mutex;
    QWaitCondition m_changed;
    QList<Seen> m_seen;
    QList<FramePtr> m_held;
    FramePtr m_last;
    bool m_hold = false;
    int m_stops = 0;
    bool m_lost = false;
};

// Counts the audio buffers and their bytes.
class TestAudioReceiver : public hostplayback::AudioReceiver
{
public:
    void audioArrived(const std::shared_ptr<const hostplayback::AudioBuffer> &buffer) override
    {
        QMutexLocker lock(&m_mutex);
        m_layouts.append(buffer->layout());
        m_bytes += qint64(buffer->layout().size);
        m_firstPts = m_firstPts < 0 ? buffer->ptsNs() : m_firstPts;
    }
    void playbackStopped() override {}
    void channelLost() override {}

    QList<hostplayback::AudioBufferLayout> layouts() const
    {
        QMutexLocker lock(&m_mutex);
        return m_layouts;
    }
    qint64 bytes() const
    {
        QMutexLocker lock(&m_mutex);
        return m_bytes;
    }
    int64_t firstPts() const
    {
        QMutexLocker lock(&m_mutex);
        return m_firstPts;
    }

private:
    mutable QMutex m_mutex;
    QList<hostplayback::AudioBufferLayout> m_layouts;
    qint64 m_bytes = 0;
    int64_t m_firstPts = -1;
};

} // namespace

Q_DECLARE_METATYPE(hostplayback::AudioSampleFormat)

class tst_E2eVideo : public PlayerTestBase
{
    Q_OBJECT

private Q_SLOTS:
    void playDeliversEveryFrame_data();
    void playDeliversEveryFrame();
    void pausedLoadShowsOneFrameAndSeekShowsTheNewOne();
    void refusedAttachments_data();
    void refusedAttachments();
    void serviceRefusesClientOfUnknownFormats();
    void sizeChangeStartsNewLayout();
    void clientHoldingEverySlotIsNeverWaitedFor();
    void clientGoneLeavesOthersServed();
    void clientProcessKilledMidFrame();
    void attachAfterLoadTakesEffectAtOnce();
    void uhdFrameArrives();
    void audioBuffersOfWhatIsPlayed_data();
    void audioBuffersOfWhatIsPlayed();

private:
    SPPlayer *newPlayer();
    using Attachment = std::unique_ptr<hostplayback::VideoAttachment>;
    // A new player, attached by `attach`, with generated medium `medium` set
    // and prepared: the attachment, or null with the step that failed in
    // m_openFailure.
    Attachment openAttached(const QString &medium, const std::function<Attachment(SPPlayer *)> &attach);
    // The same with `receiver` attached for video in the formats `accepted`;
    // `error` gets the attachment's error.
    Attachment openWithVideo(const QString &medium, const std::vector<VideoPixelFormat> &accepted,
                             TestReceiver *receiver, int *error = nullptr);
    bool waitForEvent(const QString &event, int timeoutMs = kWaitMs);

    QByteArray m_openFailure;
};

SPPlayer *tst_E2eVideo::newPlayer()
{
    m_player.reset(SPPlayer::create("Qspmediaplayer", m_events.get()));
    return m_player.get();
}

tst_E2eVideo::Attachment tst_E2eVideo::openAttached(const QString &medium,
                                                    const std::function<Attachment(SPPlayer *)> &attach)
{
    SPPlayer *player = newPlayer();
    Attachment attachment = attach(player);
    int result = 0;
    if (!attachment)
        m_openFailure = "attaching failed";
    else if ((result = player->setUrl(mediaPath(medium).toUtf8().constData())) != 0)
        m_openFailure = "setUrl: " + QByteArray::number(result);
    else if ((result = player->prepare(0, 0)) != 0)
        m_openFailure = "prepare: " + QByteArray::number(result);
    else
        return attachment;
    return nullptr;
}

tst_E2eVideo::Attachment tst_E2eVideo::openWithVideo(const QString &medium,
                                                     const std::vector<VideoPixelFormat> &accepted,
                                                     TestReceiver *receiver, int *error)
{
    return openAttached(medium, [&](SPPlayer *player) {
        return hostplayback::attachVideo(player, accepted, receiver, error);
    });
}

bool tst_E2eVideo::waitForEvent(const QString &event, int timeoutMs)
{
    return m_events->waitFor(event, timeoutMs);
}

void tst_E2eVideo::playDeliversEveryFrame_data()
{
    QTest::addColumn<std::vector<VideoPixelFormat>>("accepted");
    QTest::addColumn<VideoPixelFormat>("expected");
    QTest::addColumn<int>("planes");
    QTest::addColumn<QByteArray>("pixel"); // the grey bar at (20, 20), ± 16

    // The decoder gives I420: taken as it is when accepted, else converted.
    QTest::newRow("I420 first") << std::vector<VideoPixelFormat>{VideoPixelFormat::I420, VideoPixelFormat::BGRx}
                                << VideoPixelFormat::I420 << 3 << QByteArray("\xb4", 1);
    QTest::newRow("YV12 only") << std::vector<VideoPixelFormat>{VideoPixelFormat::YV12}
                               << VideoPixelFormat::YV12 << 3 << QByteArray("\xb4", 1);
    QTest::newRow("RGB32 only") << std::vector<VideoPixelFormat>{VideoPixelFormat::BGRx}
                                << VideoPixelFormat::BGRx << 1 << QByteArray("\xc0\xc0\xc0", 3);
    QTest::newRow("NV12 only") << std::vector<VideoPixelFormat>{VideoPixelFormat::NV12}
                               << VideoPixelFormat::NV12 << 2 << QByteArray("\xb4", 1);
}

void tst_E2eVideo::playDeliversEveryFrame()
{
    QFETCH(std::vector<VideoPixelFormat>, accepted);
    QFETCH(VideoPixelFormat, expected);
    QFETCH(int, planes);
    QFETCH(QByteArray, pixel);

    TestReceiver receiver;
    int error = 1;
    auto attachment = openWithVideo(QStringLiteral("bars25.mp4"), accepted, &receiver, &error);
    QVERIFY2(attachment, m_openFailure.constData());
    QCOMPARE(error, 0);
    QCOMPARE(m_player->play(), 0);
    QVERIFY(waitForEvent("playbackFinish()"));

    const QList<TestReceiver::Seen> seen = receiver.seen();
    QVERIFY2(seen.size() >= 25, qPrintable(QString::number(seen.size())));
    int64_t previous = -1;
    for (int i = 0; i < seen.size(); ++i) {
        const TestReceiver::Seen &frame = seen.at(i);
        QCOMPARE(frame.layout.format, expected);
        QCOMPARE(frame.layout.width, 320);
        QCOMPARE(frame.layout.height, 240);
        QCOMPARE(frame.layout.planes, planes);
        QVERIFY(frame.layout.strides[0] >= (planes == 1 ? 4 * 320 : 320));
        // The preroll frame comes again as the first one played.
        QVERIFY(frame.ptsNs >= previous);
        previous = frame.ptsNs;
        for (int b = 0; b < pixel.size(); ++b)
            QVERIFY2(qAbs(int(uchar(frame.pixel.at(b))) - int(uchar(pixel.at(b)))) <= 16,
                     qPrintable(QStringLiteral("frame %1 byte %2: %3").arg(i).arg(b).arg(uchar(frame.pixel.at(b)))));
    }
    QCOMPARE(seen.first().ptsNs, int64_t(0));
    QCOMPARE(seen.last().ptsNs, int64_t(960) * 1000000);
}

void tst_E2eVideo::pausedLoadShowsOneFrameAndSeekShowsTheNewOne()
{
    TestReceiver receiver;
    auto attachment = openWithVideo(QStringLiteral("bars25.mp4"), {VideoPixelFormat::I420}, &receiver);
    QVERIFY2(attachment, m_openFailure.constData());
    QVERIFY(receiver.waitForFrames(1));
    QCOMPARE(receiver.seen().first().ptsNs, int64_t(0));

    // The next frame is the one of the seek: nothing came between.
    QCOMPARE(m_player->seekTo(520), 0);
    QVERIFY(receiver.waitForFrames(2));
    const QList<TestReceiver::Seen> seen = receiver.seen();
    QCOMPARE(seen.size(), 2);
    QCOMPARE(seen.at(1).ptsNs, int64_t(520) * 1000000);
}

void tst_E2eVideo::refusedAttachments_data()
{
    QTest::addColumn<bool>("ownPlayer");
    QTest::addColumn<std::vector<VideoPixelFormat>>("accepted");

    QTest::newRow("no format") << true << std::vector<VideoPixelFormat>{};
    QTest::newRow("only unknown formats")
            << true << std::vector<VideoPixelFormat>{VideoPixelFormat::None, VideoPixelFormat(77)};
    QTest::newRow("not a player of the library") << false << std::vector<VideoPixelFormat>{VideoPixelFormat::I420};
}

void tst_E2eVideo::refusedAttachments()
{
    QFETCH(bool, ownPlayer);
    QFETCH(std::vector<VideoPixelFormat>, accepted);

    SPPlayer *player = newPlayer();
    // Any other object of the player type: the library must not take it for one of its own.
    SPPlayer *foreign = reinterpret_cast<SPPlayer *>(m_events.get());
    TestReceiver receiver;
    int error = 0;
    auto attachment = hostplayback::attachVideo(ownPlayer ? player : foreign, accepted, &receiver, &error);
    QVERIFY(!attachment);
    QCOMPARE(error, -22);
    // The player plays on as before.
    QCOMPARE(player->setUrl(mediaPath("bars25.mp4").toUtf8().constData()), 0);
    QCOMPARE(player->prepare(0, 0), 0);
    QVERIFY(receiver.seen().isEmpty());
}

// A client that bypasses the library's checks: the service answers its hello
// by closing the channel, and serves on.
void tst_E2eVideo::serviceRefusesClientOfUnknownFormats()
{
    const int fd = videowire::connectToSocket(hostruntime::runtimeDirectory());
    QVERIFY(fd >= 0);
    videowire::Message hello;
    hello.type = videowire::MsgHello;
    hello.formatCount = 2;
    hello.formats[0] = 0;
    hello.formats[1] = 77;
    QVERIFY(videowire::sendMessage(fd, hello, -1, true));
    videowire::Message answer;
    int passed = -1;
    QCOMPARE(videowire::receiveMessage(fd, &answer, &passed), 0); // closed, no acknowledgement
    QCOMPARE(passed, -1);
    ::close(fd);

    TestReceiver receiver;
    auto attachment = openWithVideo(QStringLiteral("bars25.mp4"), {VideoPixelFormat::I420}, &receiver);
    QVERIFY2(attachment, m_openFailure.constData());
    QVERIFY(receiver.waitForFrames(1));
    QVERIFY(m_runtime->daemonLog().contains("video out: refusing a client that takes no format known here"));
}

void tst_E2eVideo::sizeChangeStartsNewLayout()
{
    TestReceiver receiver;
    auto attachment = openWithVideo(QStringLiteral("sizechange.ts"), {VideoPixelFormat::I420}, &receiver);
    QVERIFY2(attachment, m_openFailure.constData());
    QCOMPARE(m_player->play(), 0);
    QVERIFY(waitForEvent("playbackFinish()"));

    const QList<TestReceiver::Seen> seen = receiver.seen();
    QVERIFY(!seen.isEmpty());
    QCOMPARE(seen.first().layout.width, 320);
    QCOMPARE(seen.last().layout.width, 160);
    QCOMPARE(seen.last().layout.height, 120);
    int changes = 0;
    for (int i = 1; i < seen.size(); ++i) {
        const bool sizeChanged = seen.at(i).layout.width != seen.at(i - 1).layout.width;
        const bool newLayout = seen.at(i).layout.generation != seen.at(i - 1).layout.generation;
        QCOMPARE(newLayout, sizeChanged);
        changes += sizeChanged ? 1 : 0;
    }
    QCOMPARE(changes, 1);
}

void tst_E2eVideo::clientHoldingEverySlotIsNeverWaitedFor()
{
    TestReceiver receiver;
    receiver.setHold(true);
    auto attachment = openWithVideo(QStringLiteral("bars25.mp4"), {VideoPixelFormat::I420}, &receiver);
    QVERIFY2(attachment, m_openFailure.constData());
    QCOMPARE(m_player->play(), 0);
    // Playback runs to its end at its own pace while the client holds the ring.
    QVERIFY(waitForEvent("playbackFinish()"));
    QCOMPARE(receiver.seen().size(), 4);

    // Slots given back: frames come again.
    receiver.setHold(false);
    QCOMPARE(m_player->seekTo(0), 0);
    QCOMPARE(m_player->play(), 0);
    QVERIFY(receiver.waitForFrames(10));
}

void tst_E2eVideo::clientGoneLeavesOthersServed()
{
    TestReceiver gone;
    gone.setHold(true); // mid-frame: it holds slots as it goes
    auto attachment = openWithVideo(QStringLiteral("bars25.mp4"), {VideoPixelFormat::I420}, &gone);
    QVERIFY2(attachment, m_openFailure.constData());
    QCOMPARE(m_player->play(), 0);
    QVERIFY(gone.waitForFrames(2));
    attachment.reset();

    RecordingCallBack otherEvents;
    PlayerPtr other(SPPlayer::create("Qspmediaplayer", &otherEvents));
    TestReceiver receiver;
    auto otherAttachment = hostplayback::attachVideo(other.get(), {VideoPixelFormat::BGRx}, &receiver, nullptr);
    QVERIFY(otherAttachment);
    QCOMPARE(other->setUrl(mediaPath("bars25.mp4").toUtf8().constData()), 0);
    QCOMPARE(other->prepare(0, 0), 0);
    QCOMPARE(other->play(), 0);
    QVERIFY(otherEvents.waitFor("playbackFinish()", kWaitMs));
    QVERIFY(receiver.seen().size() >= 25);
    // The first player, without its client, still plays to its end.
    QVERIFY(waitForEvent("playbackFinish()"));
    otherAttachment.reset();
    other.reset();
}

void tst_E2eVideo::clientProcessKilledMidFrame()
{
    const pid_t daemon = daemonPid();
    QVERIFY(daemon > 0);
    // This program again, as a client that plays with video and is killed
    // while it holds frames (see childClient()).
    QProcess child;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("ORVIC_VIDEO_CHILD"), mediaPath("bars25.mp4"));
    child.setProcessEnvironment(environment);
    child.start(QCoreApplication::applicationFilePath(), QStringList());
    QVERIFY2(child.waitForFinished(2 * kWaitMs), child.readAllStandardError().constData());
    QCOMPARE(child.exitStatus(), QProcess::CrashExit);
    QCOMPARE(child.exitCode(), int(SIGKILL));

    // The same service serves the next client in full.
    QCOMPARE(daemonPid(), daemon);
    TestReceiver receiver;
    auto attachment = openWithVideo(QStringLiteral("bars25.mp4"), {VideoPixelFormat::I420}, &receiver);
    QVERIFY2(attachment, m_openFailure.constData());
    QCOMPARE(m_player->play(), 0);
    QVERIFY(waitForEvent("playbackFinish()"));
    QVERIFY(receiver.seen().size() >= 25);
    QCOMPARE(daemonPid(), daemon);
}

void tst_E2eVideo::attachAfterLoadTakesEffectAtOnce()
{
    SPPlayer *player = newPlayer();
    QCOMPARE(player->setUrl(mediaPath("bars25.mp4").toUtf8().constData()), 0);
    QCOMPARE(player->prepare(0, 0), 0);
    QCOMPARE(player->seekTo(520), 0);

    TestReceiver receiver;
    auto attachment = hostplayback::attachVideo(player, {VideoPixelFormat::I420}, &receiver, nullptr);
    QVERIFY(attachment);
    // The frame where the paused player stands.
    QVERIFY(receiver.waitForFrames(1));
    QCOMPARE(receiver.seen().first().ptsNs, int64_t(520) * 1000000);
    QCOMPARE(player->play(), 0);
    QVERIFY(waitForEvent("playbackFinish()"));
    QVERIFY(receiver.seen().size() >= 12);
}

void tst_E2eVideo::uhdFrameArrives()
{
    TestReceiver receiver;
    auto attachment = openWithVideo(QStringLiteral("uhd.mp4"), {VideoPixelFormat::I420}, &receiver);
    QVERIFY2(attachment, m_openFailure.constData());
    QVERIFY(receiver.waitForFrames(1));
    const TestReceiver::Seen frame = receiver.seen().first();
    QCOMPARE(frame.layout.width, 3840);
    QCOMPARE(frame.layout.height, 2160);
    QCOMPARE(frame.layout.size, size_t(3840 * 2160 * 3 / 2));
}

void tst_E2eVideo::audioBuffersOfWhatIsPlayed_data()
{
    QTest::addColumn<hostplayback::AudioSampleFormat>("format");
    QTest::addColumn<int>("sampleBytes");

    QTest::newRow("S16LE") << hostplayback::AudioSampleFormat::S16LE << 2;
    QTest::newRow("F32LE") << hostplayback::AudioSampleFormat::F32LE << 4;
}

void tst_E2eVideo::audioBuffersOfWhatIsPlayed()
{
    QFETCH(hostplayback::AudioSampleFormat, format);
    QFETCH(int, sampleBytes);

    TestAudioReceiver receiver;
    int error = 1;
    auto attachment = openAttached(QStringLiteral("sine.mp3"), [&](SPPlayer *player) {
        return hostplayback::attachAudio(player, {format}, &receiver, &error);
    });
    QVERIFY2(attachment, m_openFailure.constData());
    QCOMPARE(error, 0);
    // The last second of the 440 Hz tone (44.1 kHz mono).
    QCOMPARE(m_player->seekTo(3000), 0);
    QCOMPARE(m_player->play(), 0);
    QVERIFY(waitForEvent("playbackFinish()"));

    const QList<hostplayback::AudioBufferLayout> layouts = receiver.layouts();
    QVERIFY(!layouts.isEmpty());
    for (const hostplayback::AudioBufferLayout &layout : layouts) {
        QCOMPARE(layout.format, format);
        QCOMPARE(layout.sampleRate, 44100);
        QCOMPARE(layout.channels, 1);
        QCOMPARE(layout.size % size_t(sampleBytes), size_t(0));
    }
    // About one second of samples (the file's last frame is padded).
    const qint64 samples = receiver.bytes() / sampleBytes;
    QVERIFY2(samples > 40000 && samples < 55000, qPrintable(QString::number(samples) + " in " + QString::number(layouts.size()) + " first " + QString::number(receiver.firstPts())));
    QVERIFY2(qAbs(receiver.firstPts() - int64_t(3000) * 1000000) < int64_t(60) * 1000000,
             qPrintable(QString::number(receiver.firstPts())));
}

namespace {

// Kills its own process once it holds three frames of the ring.
class DyingReceiver : public TestReceiver
{
public:
    void frameArrived(const FramePtr &frame) override
    {
        m_kept.append(frame);
        if (m_kept.size() == 3)
            std::raise(SIGKILL);
    }

private:
    QList<FramePtr> m_kept;
};

// The client of clientProcessKilledMidFrame(): plays the medium named in
// ORVIC_VIDEO_CHILD with video until it kills itself.
int childClient(const QByteArray &medium)
{
    RecordingCallBack events;
    PlayerPtr player(SPPlayer::create("Qspmediaplayer", &events));
    DyingReceiver receiver;
    auto attachment = hostplayback::attachVideo(player.get(), {VideoPixelFormat::I420}, &receiver, nullptr);
    if (!attachment || player->setUrl(medium.constData()) != 0 || player->prepare(0, 0) != 0
        || player->play() != 0)
        return 1;
    events.waitFor(QStringLiteral("playbackFinish()"), kWaitMs);
    return 2; // not killed: the parent sees a normal exit and fails
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const QByteArray childMedium = qgetenv("ORVIC_VIDEO_CHILD");
    if (!childMedium.isEmpty())
        return childClient(childMedium);
    tst_E2eVideo test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}
#include "tst_e2e_video.moc"
