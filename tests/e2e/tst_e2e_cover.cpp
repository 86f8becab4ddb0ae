// The cover picture through a session on the real host platform (psserver,
// the property service, the file metadata reader): the pixels the platform's
// reader decodes, kept by the client after the next open has freed the
// reader's buffer. Also what the opened media make available.
#include "e2esupport.h"
#include "sessionrecorder.h"

#include <qorvicplayersession.h>
#include <playback/spmetadata.h>

#include <QtCore/QDir>
#include <QtCore/QFileInfo>
#include <QtTest/QtTest>

#include <cstring>
#include <memory>

using namespace orvice2e;
using orvictest::SessionRecorder;
using Session = QOrvicPlayerSession;

namespace {
QString sample(const QString &name)
{
    return QDir(QStringLiteral(ORVIC_SAMPLES_DIR)).filePath(name);
}

// The picture as the platform's reader decodes it for the session (front
// cover, at most 512 pixels a side), one RGB888 row after the other.
QByteArray readerPixels(const QString &path, QSize *size)
{
    playback::SPMetaData *reader = playback::SPMetaData::create("SpMetadata", "default");
    if (!reader)
        return QByteArray();
    QByteArray rows;
    playback::SPMetaData::Picture picture;
    std::memset(&picture, 0, sizeof picture);
    if (reader->setUrl(path.toUtf8().constData()) == 0 && reader->getPicture(picture, 0, 512) == 0) {
        *size = QSize(picture.width, picture.height);
        const int stride = (picture.width * 3 + 3) & ~3;   // rows padded to 4 bytes
        const auto *bytes = reinterpret_cast<const char *>(picture.data);
        for (int y = 0; y < picture.height; ++y)
            rows.append(bytes + size_t(y) * size_t(stride), picture.width * 3);
    }
    playback::SPMetaData::destroy(reader);
    return rows;
}

QByteArray imagePixels(const QImage &image)
{
    QByteArray rows;
    for (int y = 0; y < image.height(); ++y)
        rows.append(reinterpret_cast<const char *>(image.constScanLine(y)), image.width() * 3);
    return rows;
}
} // namespace

class tst_E2eCover : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void coverThroughSessionOutlivesNextOpen();
    void availabilityOfRealMedia();

private:
    bool open(const QString &path);

    std::unique_ptr<RuntimeDir> m_runtime;
    std::unique_ptr<Session> m_session;
    std::unique_ptr<SessionRecorder> m_recorder;
};

void tst_E2eCover::init()
{
    QVERIFY2(QFileInfo::exists(sample("tagged-gbk.mp3")), ORVIC_SAMPLES_DIR);
    m_runtime.reset(new RuntimeDir);
    QVERIFY(m_runtime->isValid());
    m_session.reset(new Session(QMediaPlayer::Flags{}));
    m_recorder.reset(new SessionRecorder(m_session.get()));
}

void tst_E2eCover::cleanup()
{
    if (m_session)
        m_session->stop();
    m_session.reset();
    m_recorder.reset();
    if (m_runtime) {
        // Stopped first: a sanitizer's report is written when the daemon exits.
        QCOMPARE(stopService(), 0);
        const QByteArray log = m_runtime->daemonLog();
        QVERIFY2(!hasSanitizerReport(log), log.constData());
    }
    m_runtime.reset();
}

bool tst_E2eCover::open(const QString &path)
{
    // Every successful open ends with the rate announced.
    const int before = m_recorder->texts({"playbackRateChanged"}).size();
    m_session->manageActList(Session::Msg_SetMedia, path);
    return QTest::qWaitFor([this, before] {
        return m_recorder->texts({"playbackRateChanged"}).size() > before;
    }, 10000);
}

void tst_E2eCover::coverThroughSessionOutlivesNextOpen()
{
    const QString gbk = sample("tagged-gbk.mp3");
    QVERIFY(open(gbk));
    QCOMPARE(m_recorder->texts({"error"}), QStringList());

    const QImage cover = m_session->getID3Pic();

    // The 640x480 front cover, scaled to the 512-pixel limit by the reader.
    QCOMPARE(cover.size(), QSize(512, 384));
    QCOMPARE(cover.format(), QImage::Format_RGB888);
    QSize decoded;
    const QByteArray expected = readerPixels(gbk, &decoded);
    QCOMPARE(decoded, QSize(512, 384));
    const QByteArray pixels = imagePixels(cover);
    QCOMPARE(pixels.size(), 512 * 384 * 3);
    QVERIFY(pixels == expected);
    // Not a blank picture: the generated test pattern has many colours.
    QVERIFY(cover.pixel(0, 0) != cover.pixel(511, 383) || cover.pixel(0, 0) != cover.pixel(256, 192));

    // The next open frees the reader's buffer; the client's cover stays.
    QVERIFY(open(sample("tagged-unicode.mp3")));
    const QImage next = m_session->getID3Pic();
    QCOMPARE(next.size(), QSize(300, 300));
    QCOMPARE(cover.size(), QSize(512, 384));
    QVERIFY(imagePixels(cover) == expected);
}

void tst_E2eCover::availabilityOfRealMedia()
{
    QVERIFY(!m_session->isAudioAvailable());
    QVERIFY(!m_session->isVideoAvailable());

    QVERIFY(open(mediaPath("av.mp4")));
    QVERIFY(m_session->isVideoAvailable());
    QVERIFY(m_session->isAudioAvailable());
    QCOMPARE(m_recorder->texts({"videoAvailableChanged", "audioAvailableChanged"}),
             QStringList({"videoAvailableChanged(true)", "audioAvailableChanged(true)"}));

    // Sound without pictures: the movie's video goes, audio stays available.
    m_recorder->clear();
    QVERIFY(open(sample("tagged-unicode.mp3")));
    QVERIFY(!m_session->isVideoAvailable());
    QVERIFY(m_session->isAudioAvailable());
    QCOMPARE(m_recorder->texts({"videoAvailableChanged", "audioAvailableChanged"}),
             QStringList({"videoAvailableChanged(false)", "audioAvailableChanged(false)",
                          "audioAvailableChanged(true)"}));
}

QTEST_GUILESS_MAIN(tst_E2eCover)
#include "tst_e2e_cover.moc"
