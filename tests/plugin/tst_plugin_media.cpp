// QMediaPlayer through the back end plugin, beyond transport: metadata with
// legacy-charset tags and the cover, streams (subtitle files beside the
// medium among them), playback from a QIODevice, playlists and several
// players at once.
#include "e2esupport.h"
#include "playerrecorder.h"
#include "samples.h"
#include "../hostservice/subtitlesamples.h"

#include <QtCore/QBuffer>
#include <QtCore/QFile>
#include <QtCore/QTemporaryDir>
#include <QtGui/QImage>
#include <QtMultimedia/QMediaMetaData>
#include <QtMultimedia/QMediaPlayer>
#include <QtMultimedia/QMediaPlaylist>
#include <QtMultimedia/QMediaService>
#include <QtMultimedia/QMediaStreamsControl>
#include <QtTest/QtTest>

#include <memory>

using namespace orvice2e;

namespace {
// Generous: the service bounds a network preparation at 30 s.
const int kLoadMs = 40000;

// A device that can only be read front to back, like a pipe or socket.
class SequentialDevice : public QIODevice
{
public:
    explicit SequentialDevice(const QByteArray &data) : m_data(data) {}
    bool isSequential() const override { return true; }
    qint64 bytesAvailable() const override { return m_data.size() - m_pos + QIODevice::bytesAvailable(); }
    bool atEnd() const override { return m_pos >= m_data.size() && QIODevice::bytesAvailable() == 0; }

protected:
    qint64 readData(char *data, qint64 max) override
    {
        const qint64 n = qMin<qint64>(max, m_data.size() - m_pos);
        memcpy(data, m_data.constData() + m_pos, size_t(n));
        m_pos += n;
        return n;
    }
    qint64 writeData(const char *, qint64) override { return -1; }

private:
    QByteArray m_data;
    qint64 m_pos = 0;
};

QByteArray readAll(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

bool writeFile(const QString &path, const QByteArray &bytes)
{
    QFile f(path);
    return f.open(QIODevice::WriteOnly) && f.write(bytes) == bytes.size();
}

const subtitlesamples::Sample &subtitleSample(const char *name)
{
    static const QVector<subtitlesamples::Sample> all = subtitlesamples::samples();
    for (const subtitlesamples::Sample &sample : all) {
        if (qstrcmp(sample.name, name) == 0)
            return sample;
    }
    qFatal("no subtitle sample %s", name);
}
} // namespace

class tst_PluginMedia : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void legacyCharsetTags_data();
    void legacyCharsetTags();
    void coverArtIsADeepCopy();
    void metadataSignals();
    void streamsAndSwitching();
    void subtitleFilesBesideTheMedium();
    void playFromDevice_data();
    void playFromDevice();
    void unreadableDevice();
    void playlistPlaysEachItem();
    void m3uPlaylistFile();
    void eightPlayersAtOnce();

private:
    std::unique_ptr<RuntimeDir> m_runtime;
};

void tst_PluginMedia::init()
{
    m_runtime = std::make_unique<RuntimeDir>();
    QVERIFY(m_runtime->isValid());
}

void tst_PluginMedia::cleanup()
{
    m_runtime.reset();
}

void tst_PluginMedia::legacyCharsetTags_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("key");
    QTest::addColumn<QVariant>("value");
    QTest::newRow("gbk title") << "tagged-gbk.mp3" << QMediaMetaData::Title << QVariant(samples::gbkTitle());
    QTest::newRow("gbk artist") << "tagged-gbk.mp3" << QMediaMetaData::AlbumArtist << QVariant(samples::gbkArtist());
    QTest::newRow("gbk album") << "tagged-gbk.mp3" << QMediaMetaData::AlbumTitle << QVariant(samples::gbkAlbum());
    QTest::newRow("gbk genre") << "tagged-gbk.mp3" << QMediaMetaData::Genre << QVariant(samples::gbkGenre());
    QTest::newRow("gbk comment") << "tagged-gbk.mp3" << QMediaMetaData::Comment << QVariant(samples::gbkComment());
    QTest::newRow("year") << "tagged-gbk.mp3" << QMediaMetaData::Year << QVariant(QStringLiteral("2023"));
    QTest::newRow("audio codec") << "tagged-gbk.mp3" << QMediaMetaData::AudioCodec << QVariant(QStringLiteral("mp3"));
    QTest::newRow("v1 title (windows-1251)") << "tagged-v1only.mp3" << QMediaMetaData::Title << QVariant(samples::v1Title());
    QTest::newRow("mp4 title") << "movie.mp4" << QMediaMetaData::Title << QVariant(QStringLiteral("Sample movie"));
    QTest::newRow("mp4 resolution") << "movie.mp4" << QMediaMetaData::Resolution << QVariant(QSize(320, 240));
    QTest::newRow("mp4 language") << "movie.mp4" << QMediaMetaData::Language << QVariant(QStringLiteral("eng"));
}

void tst_PluginMedia::legacyCharsetTags()
{
    QFETCH(QString, file);
    QFETCH(QString, key);
    QFETCH(QVariant, value);
    QMediaPlayer player;
    PlayerRecorder rec(&player);
    player.setMedia(QUrl::fromLocalFile(samples::path(file)));
    QVERIFY(rec.waitForStatus(QMediaPlayer::LoadedMedia, kLoadMs));
    QVERIFY(player.isMetaDataAvailable());
    QVERIFY(player.availableMetaData().contains(key));
    QCOMPARE(player.metaData(key), value);
}

void tst_PluginMedia::coverArtIsADeepCopy()
{
    QMediaPlayer player;
    PlayerRecorder rec(&player);
    player.setMedia(QUrl::fromLocalFile(samples::path("tagged-gbk.mp3")));
    QVERIFY(rec.waitForStatus(QMediaPlayer::LoadedMedia, kLoadMs));
    const QImage cover = player.metaData(QMediaMetaData::CoverArtImage).value<QImage>();
    // The session hands out the 640x480 front cover scaled to 512 columns.
    QCOMPARE(cover.size(), QSize(512, 384));
    const QImage reference = QImage(samples::path("cover-640x480.jpg"))
                                     .scaled(cover.size(), Qt::IgnoreAspectRatio, Qt::SmoothTransformation)
                                     .convertToFormat(QImage::Format_RGB32);
    const QImage pixels = cover.convertToFormat(QImage::Format_RGB32);
    // The same picture: a pixel in each quarter agrees within the scalers' rounding.
    for (const QPoint &p : {QPoint(128, 96), QPoint(384, 96), QPoint(128, 288), QPoint(384, 288)}) {
        const QColor a(pixels.pixel(p)), b(reference.pixel(p));
        QVERIFY2(qAbs(a.red() - b.red()) + qAbs(a.green() - b.green()) + qAbs(a.blue() - b.blue()) < 60,
                 qPrintable(QStringLiteral("%1,%2: %3 vs %4").arg(p.x()).arg(p.y()).arg(a.name(), b.name())));
    }
    const QImage kept = pixels.copy();
    // The picture outlives the medium it came from and the session's next one.
    player.setMedia(QUrl::fromLocalFile(samples::path("tagged-unicode.mp3")));
    QVERIFY(rec.waitForStatus(QMediaPlayer::LoadedMedia, kLoadMs));
    QCOMPARE(cover.convertToFormat(QImage::Format_RGB32), kept);
    QCOMPARE(player.metaData(QMediaMetaData::CoverArtImage).value<QImage>().size(), QSize(300, 300));
}

void tst_PluginMedia::metadataSignals()
{
    QMediaPlayer player;
    PlayerRecorder rec(&player);
    QSignalSpy available(&player, &QMediaPlayer::metaDataAvailableChanged);
    QSignalSpy changed(&player, QOverload<>::of(&QMediaPlayer::metaDataChanged));
    QSignalSpy keyChanged(&player, QOverload<const QString &, const QVariant &>::of(&QMediaPlayer::metaDataChanged));
    player.setMedia(QUrl::fromLocalFile(samples::path("tagged-gbk.mp3")));
    QVERIFY(rec.waitForStatus(QMediaPlayer::LoadedMedia, kLoadMs));
    QCOMPARE(available.size(), 1);
    QCOMPARE(available.at(0).at(0).toBool(), true);
    QCOMPARE(changed.size(), 1);
    bool titleSeen = false;
    for (const QList<QVariant> &args : qAsConst(keyChanged))
        titleSeen |= args.at(0).toString() == QMediaMetaData::Title && args.at(1).toString() == samples::gbkTitle();
    QVERIFY(titleSeen);
    // Unloading takes the metadata away, with a signal.
    player.setMedia(QMediaContent());
    QCOMPARE(available.size(), 2);
    QCOMPARE(available.at(1).at(0).toBool(), false);
    QVERIFY(player.availableMetaData().isEmpty());
}

void tst_PluginMedia::streamsAndSwitching()
{
    QMediaPlayer player;
    PlayerRecorder rec(&player);
    auto *streams = qobject_cast<QMediaStreamsControl *>(player.service()->requestControl(QMediaStreamsControl_iid));
    QVERIFY(streams);
    QSignalSpy streamsChanged(streams, &QMediaStreamsControl::streamsChanged);
    QSignalSpy activeChanged(streams, &QMediaStreamsControl::activeStreamsChanged);
    player.setMedia(QUrl::fromLocalFile(samples::path("movie.mp4")));
    QVERIFY(rec.waitForStatus(QMediaPlayer::LoadedMedia, kLoadMs));
    QVERIFY(player.isVideoAvailable());
    QVERIFY(player.isAudioAvailable());
    QCOMPARE(streamsChanged.size(), 1);
    QCOMPARE(streams->streamCount(), 3);
    QCOMPARE(streams->streamType(0), QMediaStreamsControl::AudioStream);
    QCOMPARE(streams->streamType(1), QMediaStreamsControl::AudioStream);
    QCOMPARE(streams->streamType(2), QMediaStreamsControl::SubPictureStream);
    QCOMPARE(streams->metaData(0, QMediaMetaData::Language).toString(), QStringLiteral("eng"));
    QCOMPARE(streams->metaData(1, QMediaMetaData::Language).toString(), QStringLiteral("fre"));
    QCOMPARE(streams->metaData(0, QMediaMetaData::AudioCodec).toString(), QStringLiteral("aac"));
    // Subtitle languages as the engine names them.
    QCOMPARE(streams->metaData(2, QMediaMetaData::Language).toString(), QStringLiteral("en"));
    QVERIFY(streams->isActive(0));
    QVERIFY(!streams->isActive(1));
    QVERIFY(!streams->isActive(2));

    player.play();
    QVERIFY(rec.waitForStatus(QMediaPlayer::BufferedMedia, kLoadMs));
    streams->setActive(1, true);
    QVERIFY(activeChanged.wait(10000));
    QVERIFY(streams->isActive(1));
    QVERIFY(!streams->isActive(0));
    QCOMPARE(player.metaData(QMediaMetaData::Language).toString(), QStringLiteral("fre"));

    streams->setActive(2, true);
    QTRY_COMPARE_WITH_TIMEOUT(activeChanged.size(), 2, 10000);
    QVERIFY(streams->isActive(2));
    QCOMPARE(player.metaData(QStringLiteral("SubtitleOnOff")).toBool(), true);
    streams->setActive(2, false);
    QTRY_COMPARE_WITH_TIMEOUT(activeChanged.size(), 3, 10000);
    QVERIFY(!streams->isActive(2));
    QCOMPARE(player.state(), QMediaPlayer::PlayingState);
}

// film.srt in CP949 and film.ru.srt in windows-1251 beside a film with two
// audio streams and one subtitle stream of its own: the files are listed
// after the embedded stream, named by their tags, and their lines reach the
// player decoded when one of them is switched on.
void tst_PluginMedia::subtitleFilesBesideTheMedium()
{
    QTemporaryDir folder;
    QVERIFY(folder.isValid());
    const QString film = folder.filePath(QStringLiteral("film.mp4"));
    QVERIFY(QFile::copy(samples::path("movie.mp4"), film));
    const subtitlesamples::Sample &korean = subtitleSample("Korean CP949");
    const subtitlesamples::Sample &russian = subtitleSample("Russian windows-1251");
    const QStringList russianLines = russian.lines.mid(0, 2);
    QVERIFY(writeFile(folder.filePath(QStringLiteral("film.srt")),
                      subtitlesamples::encode(subtitlesamples::srt(korean.lines.mid(0, 2), 1000, 1000, 700),
                                              korean.codepage)));
    QVERIFY(writeFile(folder.filePath(QStringLiteral("film.ru.srt")),
                      subtitlesamples::encode(subtitlesamples::srt(russianLines, 1000, 1000, 700),
                                              russian.codepage)));

    QMediaPlayer player;
    PlayerRecorder rec(&player);
    auto *streams = qobject_cast<QMediaStreamsControl *>(player.service()->requestControl(QMediaStreamsControl_iid));
    QVERIFY(streams);
    QSignalSpy activeChanged(streams, &QMediaStreamsControl::activeStreamsChanged);
    QSignalSpy keyChanged(&player, QOverload<const QString &, const QVariant &>::of(&QMediaPlayer::metaDataChanged));
    player.setMedia(QUrl::fromLocalFile(film));
    QVERIFY(rec.waitForStatus(QMediaPlayer::LoadedMedia, kLoadMs));
    QCOMPARE(streams->streamCount(), 5);
    const QList<QMediaStreamsControl::StreamType> types = {
            QMediaStreamsControl::AudioStream, QMediaStreamsControl::AudioStream,
            QMediaStreamsControl::SubPictureStream, QMediaStreamsControl::SubPictureStream,
            QMediaStreamsControl::SubPictureStream};
    const QStringList languages = {QStringLiteral("eng"), QStringLiteral("fre"), QStringLiteral("en"),
                                   QStringLiteral("und"), QStringLiteral("ru")};
    for (int i = 0; i < types.size(); ++i) {
        QCOMPARE(streams->streamType(i), types.at(i));
        const QString language = streams->metaData(i, QMediaMetaData::Language).toString();
        QVERIFY2(language == languages.at(i), qPrintable(QStringLiteral("stream %1: \"%2\", not \"%3\"")
                                                                 .arg(i)
                                                                 .arg(language, languages.at(i))));
    }

    // The Russian file, switched on before playing: its lines from the start.
    streams->setActive(4, true);
    QVERIFY(activeChanged.wait(10000));
    QVERIFY(streams->isActive(4));
    QVERIFY(!streams->isActive(2));
    QVERIFY(!streams->isActive(3));
    keyChanged.clear();
    player.play();
    QVERIFY(rec.waitForStatus(QMediaPlayer::EndOfMedia, kLoadMs));
    QStringList subtitles;
    for (const QList<QVariant> &args : qAsConst(keyChanged)) {
        if (args.at(0).toString() == QMediaMetaData::SubTitle)
            subtitles << args.at(1).toString();
    }
    QStringList expected;
    for (const QString &line : russianLines)
        expected << line << QString();
    QCOMPARE(subtitles, expected);
}

void tst_PluginMedia::playFromDevice_data()
{
    QTest::addColumn<bool>("sequential");
    QTest::addColumn<QString>("file");
    QTest::newRow("file, random access") << false << mediaPath("av.mp4");
    QTest::newRow("sequential") << true << mediaPath("sine.mp3");
}

void tst_PluginMedia::playFromDevice()
{
    QFETCH(bool, sequential);
    QFETCH(QString, file);
    std::unique_ptr<QIODevice> device;
    if (sequential)
        device = std::make_unique<SequentialDevice>(readAll(file));
    else
        device = std::make_unique<QFile>(file);
    QVERIFY(device->open(QIODevice::ReadOnly));
    QMediaPlayer player;
    PlayerRecorder rec(&player);
    player.setMedia(QMediaContent(), device.get());
    QCOMPARE(player.mediaStream(), device.get());
    player.play();
    QVERIFY2(rec.waitForStatus(QMediaPlayer::BufferedMedia, kLoadMs), qPrintable(rec.events().join(' ')));
    QCOMPARE(rec.events(), (QStringList{"status:LoadingMedia", "state:PlayingState", "status:BufferedMedia"}));
    QTRY_VERIFY_WITH_TIMEOUT(player.position() > 500, 10000);
    QVERIFY(rec.waitForStatus(QMediaPlayer::EndOfMedia, 20000));
    QCOMPARE(player.error(), QMediaPlayer::NoError);
}

void tst_PluginMedia::unreadableDevice()
{
    QFile closed(mediaPath("sine.mp3")); // never opened
    QMediaPlayer player;
    PlayerRecorder rec(&player);
    player.setMedia(QMediaContent(), &closed);
    QCOMPARE(rec.events(), (QStringList{"error:ResourceError", "status:InvalidMedia"}));
    QCOMPARE(player.mediaStatus(), QMediaPlayer::InvalidMedia);
    QCOMPARE(player.error(), QMediaPlayer::ResourceError);
}

void tst_PluginMedia::playlistPlaysEachItem()
{
    QMediaPlayer player;
    PlayerRecorder rec(&player);
    QMediaPlaylist playlist;
    QVERIFY(playlist.addMedia(QUrl::fromLocalFile(mediaPath("sine.ogg"))));
    QVERIFY(playlist.addMedia(QUrl::fromLocalFile(mediaPath("sine.mp3"))));
    QSignalSpy current(&player, &QMediaPlayer::currentMediaChanged);
    player.setPlaylist(&playlist);
    player.setPosition(3500);
    player.play();
    QTRY_COMPARE_WITH_TIMEOUT(playlist.currentIndex(), 1, 20000);
    QCOMPARE(player.state(), QMediaPlayer::PlayingState);
    QVERIFY(current.size() >= 2);
    QCOMPARE(current.last().at(0).value<QMediaContent>().request().url(), QUrl::fromLocalFile(mediaPath("sine.mp3")));
    player.setPosition(3500);
    // The end of the last item ends the playlist.
    QTRY_COMPARE_WITH_TIMEOUT(player.state(), QMediaPlayer::StoppedState, 20000);
    QCOMPARE(player.error(), QMediaPlayer::NoError);
}

void tst_PluginMedia::m3uPlaylistFile()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    QFile list(dir.filePath("list.m3u"));
    QVERIFY(list.open(QIODevice::WriteOnly));
    list.write("#EXTM3U\n" + QFile::encodeName(mediaPath("sine.mp3")) + "\n"
               + QFile::encodeName(mediaPath("sine.ogg")) + "\n");
    list.close();
    QMediaPlayer player;
    PlayerRecorder rec(&player);
    QSignalSpy current(&player, &QMediaPlayer::currentMediaChanged);
    player.setMedia(QUrl::fromLocalFile(list.fileName()));
    player.play();
    // QMediaPlayer opens the list itself and plays its first item.
    QTRY_VERIFY_WITH_TIMEOUT(!current.isEmpty()
                                     && current.last().at(0).value<QMediaContent>().request().url()
                                             == QUrl::fromLocalFile(mediaPath("sine.mp3")),
                             20000);
    QVERIFY(rec.waitForStatus(QMediaPlayer::BufferedMedia, kLoadMs));
    QCOMPARE(player.state(), QMediaPlayer::PlayingState);
    QCOMPARE(player.error(), QMediaPlayer::NoError);
}

void tst_PluginMedia::eightPlayersAtOnce()
{
    std::vector<std::unique_ptr<QMediaPlayer>> players;
    std::vector<std::unique_ptr<PlayerRecorder>> recs;
    for (int i = 0; i < 8; ++i) {
        players.push_back(std::make_unique<QMediaPlayer>());
        recs.push_back(std::make_unique<PlayerRecorder>(players.back().get()));
        players.back()->setMedia(QUrl::fromLocalFile(mediaPath(i % 2 ? "sine.ogg" : "sine.mp3")));
        players.back()->play();
    }
    for (int i = 0; i < 8; ++i) {
        QVERIFY2(recs[size_t(i)]->waitForStatus(QMediaPlayer::EndOfMedia, 60000), qPrintable(QString::number(i)));
        QCOMPARE(recs[size_t(i)]->events(),
                 (QStringList{"status:LoadingMedia", "state:PlayingState", "status:BufferedMedia",
                              "status:EndOfMedia", "state:StoppedState"}));
    }
}

QTEST_GUILESS_MAIN(tst_PluginMedia)
#include "tst_plugin_media.moc"
