// QOrvicPlayerSession::metadataInvoke: one stream's codec and language.
#include "adaptorharness.h"

#include <QtTest/QtTest>

#include <cstring>

using namespace orvictest;
using S = QOrvicPlayerSession;

namespace {
const QString kMovie = QStringLiteral("/media/movie.mkv");
const char kAudioInfoName[] = "QMediaPlayer::AudioStreamInfo";
const char kSubtitleInfoName[] = "QMediaPlayer::SubtitleInfo";

QMediaPlayer::MetadataInvoke invokeId(int id)
{
    return static_cast<QMediaPlayer::MetadataInvoke>(id);
}

bool isIntZero(const QVariant &v)
{
    return v.userType() == QMetaType::Int && v.toInt() == 0;
}
} // namespace

class tst_MetadataInvoke : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // Runs first, before anything of this process has used the platform records.
    void initTestCase();
    void init();
    void cleanup();

    void recordsRegisteredOnFirstUse();
    void unknownId_data();
    void unknownId();
    void indexNotConvertible_data();
    void indexNotConvertible();
    void audioStream_data();
    void audioStream();
    void audioStreamEngineFails();
    void audioStreamWithoutPlayer();
    void subtitleStream_data();
    void subtitleStream();
    void subtitleStreamWithoutPlayer();

private:
    std::unique_ptr<AdaptorHarness> h;
    bool m_audioKnownBefore = true;
    bool m_subtitleKnownBefore = true;
};

void tst_MetadataInvoke::initTestCase()
{
    m_audioKnownBefore = QMetaType::type(kAudioInfoName) != QMetaType::UnknownType;
    m_subtitleKnownBefore = QMetaType::type(kSubtitleInfoName) != QMetaType::UnknownType;
}

void tst_MetadataInvoke::init()
{
    h.reset(new AdaptorHarness);
    h->useMedium(Medium::LocalVideo);
    h->start();
    h->d->setMedia(kMovie);
    h->player()->script().push("getSubtitleLanguage/1", QByteArray("eng", 4));
    h->clear();
}

void tst_MetadataInvoke::cleanup()
{
    QCOMPARE(closeHarness(h), QString());
}

void tst_MetadataInvoke::recordsRegisteredOnFirstUse()
{
    // Neither the library's load nor a session registers them ...
    QVERIFY(!m_audioKnownBefore);
    QVERIFY(!m_subtitleKnownBefore);
    QCOMPARE(QMetaType::type(kAudioInfoName), int(QMetaType::UnknownType));

    // ... the first answer does, under their own names.
    const QVariant audio = h->session->metadataInvoke(QMediaPlayer::AudioStreamInvoke, 0);
    QVERIFY(QMetaType::type(kAudioInfoName) != QMetaType::UnknownType);
    QCOMPARE(audio.userType(), QMetaType::type(kAudioInfoName));
    QCOMPARE(QByteArray(audio.typeName()), QByteArray(kAudioInfoName));
    QCOMPARE(QMetaType::type(kSubtitleInfoName), int(QMetaType::UnknownType));

    const QVariant subtitle = h->session->metadataInvoke(QMediaPlayer::SubtitleStreamInvoke, 1);
    QCOMPARE(subtitle.userType(), QMetaType::type(kSubtitleInfoName));
    QCOMPARE(QByteArray(subtitle.typeName()), QByteArray(kSubtitleInfoName));

    // Plain create and copy: a value made from nothing is empty with index 0.
    QVariant created(QMetaType::type(kAudioInfoName), nullptr);
    const QMediaPlayer::AudioStreamInfo empty = created.value<QMediaPlayer::AudioStreamInfo>();
    QCOMPARE(empty.index, 0);
    QVERIFY(empty.codec.isEmpty() && empty.language.isEmpty());
    const QVariant copy = subtitle;
    QCOMPARE(copy.value<QMediaPlayer::SubtitleInfo>().language, QStringLiteral("eng"));
}

void tst_MetadataInvoke::unknownId_data()
{
    QTest::addColumn<int>("id");
    QTest::newRow("2") << 2;
    QTest::newRow("-1") << -1;
    QTest::newRow("100") << 100;
}

void tst_MetadataInvoke::unknownId()
{
    QFETCH(int, id);

    const QVariant answer = h->session->metadataInvoke(invokeId(id), QVariant(0));

    QVERIFY(isIntZero(answer));
    ORVIC_COMPARE_LINES(h->sessionLog(), QStringList({QStringLiteral("D/OPSession metadataInvoke(#):metadatainvoke id %1").arg(id)}));
    QCOMPARE(h->engine.recorder().calls(), QStringList());
}

void tst_MetadataInvoke::indexNotConvertible_data()
{
    QTest::addColumn<int>("id");
    QTest::addColumn<QVariant>("param");
    QTest::newRow("audio, text") << 0 << QVariant("x");
    QTest::newRow("audio, invalid") << 0 << QVariant();
    QTest::newRow("subtitle, text") << 1 << QVariant("one");
    QTest::newRow("subtitle, list") << 1 << QVariant(QVariantList{1});
}

void tst_MetadataInvoke::indexNotConvertible()
{
    QFETCH(int, id);
    QFETCH(QVariant, param);

    const QVariant answer = h->session->metadataInvoke(invokeId(id), param);

    QVERIFY(isIntZero(answer));
    ORVIC_COMPARE_LINES(h->sessionLog(), QStringList({QStringLiteral("D/OPSession metadataInvoke(#):metadatainvoke id %1").arg(id)}));
    QCOMPARE(h->engine.recorder().calls(), QStringList());
}

void tst_MetadataInvoke::audioStream_data()
{
    QTest::addColumn<QVariant>("param");
    QTest::addColumn<int>("stream");
    QTest::addColumn<QString>("codec");
    QTest::addColumn<QString>("language");
    QTest::newRow("stream 0") << QVariant(0) << 0 << "aac" << "eng";
    QTest::newRow("stream 1") << QVariant(1) << 1 << "ac3" << "fra";
    QTest::newRow("index as text") << QVariant("1") << 1 << "ac3" << "fra";
    QTest::newRow("stream out of range") << QVariant(9) << 9 << "" << "";
}

void tst_MetadataInvoke::audioStream()
{
    QFETCH(QVariant, param);
    QFETCH(int, stream);
    QFETCH(QString, codec);
    QFETCH(QString, language);

    const QVariant answer = h->session->metadataInvoke(QMediaPlayer::AudioStreamInvoke, param);

    QCOMPARE(answer.userType(), qMetaTypeId<QMediaPlayer::AudioStreamInfo>());
    const QMediaPlayer::AudioStreamInfo info = answer.value<QMediaPlayer::AudioStreamInfo>();
    QCOMPARE(info.index, 0);   // never filled by the answer
    QCOMPARE(info.codec, codec);
    QCOMPARE(info.language, language);
    QCOMPARE(h->engine.recorder().calls(), QStringList({QStringLiteral("getAudioAttribute(0,%1)").arg(stream)}));
    ORVIC_COMPARE_LINES(h->sessionLog(), QStringList({"D/OPSession metadataInvoke(#):metadatainvoke id 0",
                                                    "V/OPSession getAudioAttribute(#) called"}));
}

void tst_MetadataInvoke::audioStreamEngineFails()
{
    h->reader()->script().push("getAudioAttribute", -1);

    const QVariant answer = h->session->metadataInvoke(QMediaPlayer::AudioStreamInvoke, 5);

    // Still a record, with empty texts.
    QCOMPARE(answer.userType(), qMetaTypeId<QMediaPlayer::AudioStreamInfo>());
    const QMediaPlayer::AudioStreamInfo info = answer.value<QMediaPlayer::AudioStreamInfo>();
    QVERIFY(info.codec.isEmpty());
    QVERIFY(info.language.isEmpty());
    QCOMPARE(info.index, 0);
    ORVIC_COMPARE_LINES(h->sessionLog(), QStringList({"D/OPSession metadataInvoke(#):metadatainvoke id 0",
                                                    "V/OPSession getAudioAttribute(#) called",
                                                    "E/OPSession getAudioAttribute(#):error"}));
}

void tst_MetadataInvoke::audioStreamWithoutPlayer()
{
    // The metadata reader answers; the player is not needed. (The player
    // object stays with the scripted engine, which deletes it at the end.)
    h->d->mFilePlayer = nullptr;

    const QMediaPlayer::AudioStreamInfo info =
        h->session->metadataInvoke(QMediaPlayer::AudioStreamInvoke, 1).value<QMediaPlayer::AudioStreamInfo>();

    QCOMPARE(info.codec, QStringLiteral("ac3"));
    QCOMPARE(info.language, QStringLiteral("fra"));
}

void tst_MetadataInvoke::subtitleStream_data()
{
    QTest::addColumn<QVariant>("param");
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("written");
    QTest::addColumn<QString>("language");
    QTest::newRow("answered") << QVariant(1) << 0 << QByteArray() << QStringLiteral("eng");
    QTest::newRow("Latin-1 text") << QVariant(3) << 0 << QByteArray("fr\xe9", 4) << QStringLiteral("fr\u00e9");
    QTest::newRow("no NUL in the field") << QVariant(3) << 0 << QByteArray("abcdefgh") << QStringLiteral("abcdefgh");
    QTest::newRow("refused") << QVariant(3) << -1 << QByteArray() << QString();
}

void tst_MetadataInvoke::subtitleStream()
{
    QFETCH(QVariant, param);
    QFETCH(int, status);
    QFETCH(QByteArray, written);
    QFETCH(QString, language);
    h->player()->script().push("getSubtitleLanguage", status);
    if (!written.isEmpty())
        h->player()->script().push("getSubtitleLanguage/3", written);

    const QVariant answer = h->session->metadataInvoke(QMediaPlayer::SubtitleStreamInvoke, param);

    QCOMPARE(answer.userType(), qMetaTypeId<QMediaPlayer::SubtitleInfo>());
    QCOMPARE(answer.value<QMediaPlayer::SubtitleInfo>().language, language);
    QCOMPARE(h->engine.recorder().calls(),
             QStringList({QStringLiteral("getSubtitleLanguage(%1)").arg(param.toInt())}));
    QStringList lines = {"D/OPSession metadataInvoke(#):metadatainvoke id 1",
                         "V/OPSession getSubtitleAttribute(#) called",
                         "D/OPSession getSubtitleAttribute(#):language:" + QString::fromUtf8(language.toLatin1())};
    if (status != 0)
        lines << "E/OPSession getSubtitleAttribute(#):error";
    ORVIC_COMPARE_LINES(h->sessionLog(), lines);
}

void tst_MetadataInvoke::subtitleStreamWithoutPlayer()
{
    h->d->release();
    h->clear();

    const QVariant answer = h->session->metadataInvoke(QMediaPlayer::SubtitleStreamInvoke, QVariant(0));

    // A record with an empty language, not the int 0 of an unanswerable question.
    QCOMPARE(answer.userType(), qMetaTypeId<QMediaPlayer::SubtitleInfo>());
    QVERIFY(answer.value<QMediaPlayer::SubtitleInfo>().language.isEmpty());
    ORVIC_COMPARE_LINES(h->sessionLog(), QStringList({"D/OPSession metadataInvoke(#):metadatainvoke id 1",
                                                    "V/OPSession getSubtitleAttribute(#) called",
                                                    "D/OPSession getSubtitleAttribute(#):mFilePlayer is null"}));
}

QTEST_GUILESS_MAIN(tst_MetadataInvoke)
#include "tst_metadatainvoke.moc"
