// Volume, muting, audio streams, the decoder switches and the audio stream
// attributes; the subtitle streams and switch are in tst_adaptorsubtitles.
#include "streamfixture.h"

#include <QtMultimedia/QMediaMetaData>
#include <QtTest/QtTest>

#include <climits>
#include <cstring>

using namespace orvictest;
using S = QOrvicPlayerSession;

class tst_AdaptorStreams : public QObject, protected StreamFixture
{
    Q_OBJECT

private Q_SLOTS:
    void init() { setUp(); }
    void cleanup() { tearDown(); }

    void setVolume_data();
    void setVolume();
    void setVolumeEngineResultIsOnlyLogged();
    void volumeWhileMuted();
    void muteTwice();
    void withoutEngine_data();
    void withoutEngine();

    void setAudioStream();
    void setAudioStreamAudioOnly();
    void setAudioStreamEngineRefuses();
    void setAudioStreamAttributeFails();
    void lockedWhileSwitchingStreams();

    void decoderSwitches_data();
    void decoderSwitches();

    void getAudioAttribute();
    void getAudioAttributeFails();
    void getAudioAttributeWithoutPlayer();

    void streamsThroughCommandQueue();
};

void tst_AdaptorStreams::setVolume_data()
{
    QTest::addColumn<int>("volume");
    QTest::addColumn<bool>("accepted");
    QTest::newRow("100") << 100 << true;
    QTest::newRow("99") << 99 << true;
    QTest::newRow("0") << 0 << true;
    QTest::newRow("101") << 101 << false;
    QTest::newRow("-1") << -1 << false;
    QTest::newRow("INT_MIN") << INT_MIN << false;
    QTest::newRow("INT_MAX") << INT_MAX << false;
    QTest::newRow("the stored volume") << 50 << false;
}

void tst_AdaptorStreams::setVolume()
{
    QFETCH(int, volume);
    QFETCH(bool, accepted);
    openMedium(Medium::LocalVideo);

    h->d->setVolume(volume);

    QStringList lines = {"V/OPSession setVolume(#) called",
                         QStringLiteral("D/OPSession setVolume(#):set vol %1 org vol 50 ismute 0").arg(volume)};
    if (accepted) {
        QCOMPARE(h->engine.recorder().calls(), QStringList({QStringLiteral("setStreamVolume(%1)").arg(volume)}));
        QCOMPARE(h->signalTexts(), QStringList({QStringLiteral("volumeChanged(%1)").arg(volume)}));
        lines << "D/OPSession setVolume(#):setStreamVolume 0";
        QCOMPARE(h->session->volume(), volume);
    } else {
        QCOMPARE(h->engine.recorder().calls(), QStringList());
        QCOMPARE(h->signalTexts(), QStringList());
        QCOMPARE(h->session->volume(), 50);
    }
    ORVIC_COMPARE_LINES(h->sessionLog(), lines);
}

void tst_AdaptorStreams::setVolumeEngineResultIsOnlyLogged()
{
    openMedium(Medium::LocalVideo);
    h->player()->script().push("setStreamVolume", -2);

    h->d->setVolume(70);

    QCOMPARE(h->signalTexts(), QStringList({"volumeChanged(70)"}));
    QVERIFY(h->log->contains("D/OPSession setVolume(#):setStreamVolume -2"));
    QCOMPARE(h->session->volume(), 70);
}

void tst_AdaptorStreams::volumeWhileMuted()
{
    openMedium(Medium::LocalVideo);

    h->d->setMuted(true);
    QCOMPARE(h->engine.recorder().calls(), QStringList({"setStreamVolume(0)"}));
    QCOMPARE(h->signalTexts(), QStringList({"mutedStateChanged(true)"}));
    ORVIC_COMPARE_LINES(h->sessionLog(), QStringList({
        "V/OPSession setMuted(#) called",
        "D/OPSession setMuted(#):old mute 0 new mute 1",
        "D/OPSession setMuted(#):set muted 0",
        "D/OPSession setMuted(#):setStreamVolume 0",
    }));
    QVERIFY(h->session->isMuted());
    h->clear();

    // Stored and announced, the engine stays silent.
    h->d->setVolume(40);
    QCOMPARE(h->engine.recorder().calls(), QStringList());
    QCOMPARE(h->signalTexts(), QStringList({"volumeChanged(40)"}));
    ORVIC_COMPARE_LINES(h->sessionLog(), QStringList({"V/OPSession setVolume(#) called",
                                                    "D/OPSession setVolume(#):set vol 40 org vol 50 ismute 1"}));
    QCOMPARE(h->session->volume(), 40);
    h->clear();

    h->d->setMuted(false);
    QCOMPARE(h->engine.recorder().calls(), QStringList({"setStreamVolume(40)"}));
    QCOMPARE(h->signalTexts(), QStringList({"mutedStateChanged(false)"}));
    ORVIC_COMPARE_LINES(h->sessionLog(), QStringList({
        "V/OPSession setMuted(#) called",
        "D/OPSession setMuted(#):old mute 1 new mute 0",
        "D/OPSession setMuted(#):setStreamVolume 0",
    }));
    QVERIFY(!h->session->isMuted());
}

void tst_AdaptorStreams::muteTwice()
{
    openMedium(Medium::LocalVideo);

    h->d->setMuted(true);
    h->d->setMuted(true);

    QCOMPARE(h->engine.recorder().calls(), QStringList({"setStreamVolume(0)"}));
    QCOMPARE(h->signalTexts(), QStringList({"mutedStateChanged(true)"}));
    QCOMPARE(h->log->count("D/OPSession setMuted(#):old mute 1 new mute 1"), 1);
    h->clear();

    h->d->setMuted(false);
    h->d->setMuted(false);
    QCOMPARE(h->engine.recorder().calls(), QStringList({"setStreamVolume(50)"}));
    QCOMPARE(h->signalTexts(), QStringList({"mutedStateChanged(false)"}));
}

void tst_AdaptorStreams::withoutEngine_data()
{
    QTest::addColumn<QString>("operation");
    for (const char *op : {"setVolume", "setMuted", "setAudioStream", "setSubtitleNum", "setSubtitleOnOff",
                           "setVideoOnOff", "setAudioOnOff", "getSubtitleAttribute"})
        QTest::newRow(op) << QString::fromLatin1(op);
}

void tst_AdaptorStreams::withoutEngine()
{
    QFETCH(QString, operation);
    openMedium(Medium::LocalVideo);
    h->d->release();
    h->clear();
    QOrvicPlayerSessionPrivate *d = h->d;

    playback::SPMetaData::SubtitleAttribute subtitle;
    std::memset(&subtitle, 0, sizeof subtitle);
    if (operation == "setVolume")
        d->setVolume(20);
    else if (operation == "setMuted")
        d->setMuted(true);
    else if (operation == "setAudioStream")
        d->setAudioStream(1);
    else if (operation == "setSubtitleNum")
        d->setSubtitleNum(1);
    else if (operation == "setSubtitleOnOff")
        d->setSubtitleOnOff(true);
    else if (operation == "setVideoOnOff")
        d->setVideoOnOff(false);
    else if (operation == "setAudioOnOff")
        d->setAudioOnOff(false);
    else
        d->getSubtitleAttribute(0, subtitle);

    ORVIC_COMPARE_LINES(h->sessionLog(), QStringList({QStringLiteral("V/OPSession %1(#) called").arg(operation),
                                                    QStringLiteral("D/OPSession %1(#):mFilePlayer is null").arg(operation)}));
    QCOMPARE(h->signalTexts(), QStringList());
    QCOMPARE(h->engine.recorder().calls(), QStringList());
    QCOMPARE(d->mVolume, 50);
    QVERIFY(!d->mMuted);
    QCOMPARE(d->mCurAudioStream, 0);
    QCOMPARE(d->mCurSubtitleNum, 0);
    QVERIFY(!d->mSubtitleOn);
}

void tst_AdaptorStreams::setAudioStream()
{
    openMedium(Medium::LocalVideo);
    QCOMPARE(h->d->mMetaDataMap.value(QMediaMetaData::AudioCodec).toString(), QStringLiteral("aac"));

    h->d->setAudioStream(1);

    QCOMPARE(h->engine.recorder().calls().mid(0, 2), QStringList({"changeStream(1,1)", "getAudioAttribute(0,1)"}));
    // The single keys are announced; the rebuilt map is not published.
    QCOMPARE(h->signalTexts(), QStringList({"metaDataChanged(AudioStream,1)", "metaDataChanged(AudioCodec,ac3)",
                                            "metaDataChanged(Language,fra)"}));
    ORVIC_COMPARE_LINES(h->sessionLog(), QStringList({"V/OPSession setAudioStream(#) called"}));
    QCOMPARE(h->session->getCurrentAudioStream(), 1);
    const QVariantMap &map = h->d->mMetaDataMap;
    QCOMPARE(map.value(QMediaMetaData::AudioCodec).toString(), QStringLiteral("ac3"));
    QCOMPARE(map.value(QMediaMetaData::Language).toString(), QStringLiteral("fra"));
    QCOMPARE(map.value(QMediaMetaData::ChannelCount).toInt(), 6);
    // The map's stream key stays 0 whatever stream plays.
    QCOMPARE(map.value(QMediaMetaData::AudioStream).toInt(), 0);
    QCOMPARE(QStringList(map.keys()), media::localVideoKeys());
}

void tst_AdaptorStreams::setAudioStreamAudioOnly()
{
    openMedium(Medium::AudioOnly, QStringLiteral("/media/song.mp3"));
    QVERIFY(h->d->mMetaData.audioAttribute);
    QVERIFY(!h->d->mMetaData.videoAttribute);

    h->d->setAudioStream(1);

    QCOMPARE(h->engine.recorder().calls(), QStringList());
    QCOMPARE(h->signalTexts(), QStringList({"error(1,has not audio stream)"}));
    ORVIC_COMPARE_LINES(h->sessionLog(), QStringList({"V/OPSession setAudioStream(#) called",
                                                    "E/OPSession setAudioStream(#):has not audio stream"}));
    QCOMPARE(h->session->getCurrentAudioStream(), 0);
}

void tst_AdaptorStreams::setAudioStreamEngineRefuses()
{
    openMedium(Medium::LocalVideo);
    const QVariantMap before = h->d->mMetaDataMap;
    h->player()->script().push("changeStream", -1);

    h->d->setAudioStream(1);

    QCOMPARE(h->engine.recorder().calls(), QStringList({"changeStream(1,1)"}));
    QCOMPARE(h->signalTexts(), QStringList());
    ORVIC_COMPARE_LINES(h->sessionLog(), QStringList({"V/OPSession setAudioStream(#) called",
                                                    "E/OPSession setAudioStream(#):PE_FILE_ChangeAudioStream error -1"}));
    QCOMPARE(h->session->getCurrentAudioStream(), 0);
    QCOMPARE(h->d->mMetaDataMap, before);
}

void tst_AdaptorStreams::setAudioStreamAttributeFails()
{
    openMedium(Medium::LocalVideo);
    const QVariantMap before = h->d->mMetaDataMap;
    h->reader()->script().push("getAudioAttribute", -1);

    h->d->setAudioStream(1);

    // Switched, but nothing announced and the metadata not refreshed.
    QCOMPARE(h->engine.recorder().calls(), QStringList({"changeStream(1,1)", "getAudioAttribute(0,1)"}));
    QCOMPARE(h->signalTexts(), QStringList());
    QCOMPARE(h->session->getCurrentAudioStream(), 1);
    QCOMPARE(h->d->mMetaDataMap, before);
}

// Every switch holds the player lock while it uses the engine, so that a
// watchdog recovery on another thread cannot replace the engine under it.
void tst_AdaptorStreams::lockedWhileSwitchingStreams()
{
    openMedium(Medium::LocalVideo);
    QOrvicPlayerSessionPrivate *d = h->d;
    QList<bool> lockedElsewhere;
    h->player()->setHook("changeStream", [d, &lockedElsewhere] {
        runOnEngineThread([d, &lockedElsewhere] {
            const bool free = d->mPlayerLock.tryLock();
            if (free)
                d->mPlayerLock.unlock();
            lockedElsewhere.append(!free);
        });
    });

    d->setAudioStream(1);
    d->setSubtitleNum(1);

    QCOMPARE(lockedElsewhere, QList<bool>({true, true}));
}

void tst_AdaptorStreams::decoderSwitches_data()
{
    QTest::addColumn<QString>("output");
    QTest::addColumn<bool>("on");
    QTest::addColumn<int>("result");
    for (const char *output : {"Video", "Audio"}) {
        for (bool on : {true, false}) {
            QTest::addRow("%s %s", output, on ? "on" : "off") << QString::fromLatin1(output) << on << 0;
            QTest::addRow("%s %s refused", output, on ? "on" : "off") << QString::fromLatin1(output) << on << -1;
        }
    }
}

void tst_AdaptorStreams::decoderSwitches()
{
    QFETCH(QString, output);
    QFETCH(bool, on);
    QFETCH(int, result);
    openMedium(Medium::LocalVideo);
    h->player()->script().push("setParameter", result);
    const QVariantMap before = h->d->mMetaDataMap;

    if (output == "Video")
        h->d->setVideoOnOff(on);
    else
        h->d->setAudioOnOff(on);

    const QString function = QStringLiteral("set%1OnOff").arg(output);
    QCOMPARE(h->engine.recorder().calls(),
             QStringList({QStringLiteral("setParameter(mDecoder,set-%1-onoff,%2,1)").arg(output.toLower()).arg(int(on))}));
    QStringList lines = {QStringLiteral("V/OPSession %1(#) called").arg(function)};
    if (result != 0)
        lines << QStringLiteral("E/OPSession %1(#):%1 isOn: %2 failed!!").arg(function).arg(int(on));
    ORVIC_COMPARE_LINES(h->sessionLog(), lines);
    // Nothing is stored and nothing announced either way.
    QCOMPARE(h->signalTexts(), QStringList());
    QCOMPARE(h->d->mMetaDataMap, before);
}

void tst_AdaptorStreams::getAudioAttribute()
{
    openMedium(Medium::LocalVideo);
    playback::SPMetaData::AudioAttribute attr;
    std::memset(&attr, 0, sizeof attr);

    h->d->getAudioAttribute(1, attr);

    QCOMPARE(h->engine.recorder().calls(), QStringList({"getAudioAttribute(0,1)"}));
    QCOMPARE(QByteArray(attr.codec), QByteArray("ac3"));
    QCOMPARE(QByteArray(attr.language), QByteArray("fra"));
    QCOMPARE(attr.channel, 6);
    ORVIC_COMPARE_LINES(h->sessionLog(), QStringList({"V/OPSession getAudioAttribute(#) called"}));
}

void tst_AdaptorStreams::getAudioAttributeFails()
{
    openMedium(Medium::LocalVideo);
    h->reader()->script().push("getAudioAttribute", -1);
    playback::SPMetaData::AudioAttribute attr;
    std::memset(&attr, 0, sizeof attr);

    h->d->getAudioAttribute(7, attr);

    QCOMPARE(QByteArray(attr.codec), QByteArray());
    ORVIC_COMPARE_LINES(h->sessionLog(), QStringList({"V/OPSession getAudioAttribute(#) called",
                                                    "E/OPSession getAudioAttribute(#):error"}));
}

void tst_AdaptorStreams::getAudioAttributeWithoutPlayer()
{
    // Answered by the metadata reader alone. (The player object stays with the
    // scripted engine, which deletes it at the end.)
    openMedium(Medium::LocalVideo);
    h->d->mFilePlayer = nullptr;
    playback::SPMetaData::AudioAttribute attr;
    std::memset(&attr, 0, sizeof attr);

    h->d->getAudioAttribute(0, attr);

    QCOMPARE(QByteArray(attr.codec), QByteArray("aac"));
    ORVIC_COMPARE_LINES(h->sessionLog(), QStringList({"V/OPSession getAudioAttribute(#) called"}));
}

void tst_AdaptorStreams::streamsThroughCommandQueue()
{
    openMedium(Medium::LocalVideo);
    QOrvicPlayerSession *session = h->session.get();

    session->manageActList(S::Msg_Volume, 30);
    session->manageActList(S::Msg_Muted, true);
    session->manageActList(S::Msg_AudioStream, 1);
    session->manageActList(S::Msg_SubtitleNum, QVariant("1"));
    session->manageActList(S::Msg_SubtitleOnOff, true);
    session->manageActList(S::Msg_SetVideoOnOff, false);
    session->manageActList(S::Msg_SetAudioOnOff, true);

    QCOMPARE(h->transportCalls(), QStringList({
        "setStreamVolume(30)", "setStreamVolume(0)", "changeStream(1,1)", "changeStream(3,1)",
        "setParameter(mPlayer,set-subtitle-onoff,1,1)", "setParameter(mDecoder,set-video-onoff,0,1)",
        "setParameter(mDecoder,set-audio-onoff,1,1)"}));
    QCOMPARE(h->signalTexts(), QStringList({
        "volumeChanged(30)", "mutedStateChanged(true)", "metaDataChanged(AudioStream,1)",
        "metaDataChanged(AudioCodec,ac3)", "metaDataChanged(Language,fra)", "metaDataChanged(SubtitleId,1)",
        mapSignal(media::localVideoKeys()), "metaDataChanged(SubtitleOnOff,true)", mapSignal(media::localVideoKeys())}));
}

QTEST_GUILESS_MAIN(tst_AdaptorStreams)
#include "tst_adaptorstreams.moc"
