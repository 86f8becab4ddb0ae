// Stream metadata collection of the video and subtitle blocks: when they
// are filled, reused, created and released.
#include "collecttestutil.h"

#include <QtTest/QtTest>

using namespace orvictest;

class tst_MetaDataStreams : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void videoOnlyForVideoMedia_data();
    void videoOnlyForVideoMedia();
    void videoWithoutProgramKeepsBlock();
    void videoReleased_data();
    void videoReleased();
    void videoBlockReused();
    void videoBlockCreated();
    void subtitle_data();
    void subtitle();
    void subtitleBlockCreated();
};

void tst_MetaDataStreams::videoOnlyForVideoMedia_data()
{
    QTest::addColumn<int>("mediaType");
    QTest::addColumn<bool>("withBlock");
    for (int type : {0, 1, 3, 4}) {
        QTest::addRow("kind %d, no block", type) << type << false;
        QTest::addRow("kind %d, previous block", type) << type << true;
    }
}

void tst_MetaDataStreams::videoOnlyForVideoMedia()
{
    QFETCH(int, mediaType);
    QFETCH(bool, withBlock);
    MetaRig rig;
    rig.reader.script().setDefault("getProgramNum", 1);
    rig.reader.script().setDefault("getVideoStreamNum", 0);
    MetaDataOwner owner;
    owner.meta.mediaType = mediaType;
    QOrvicPlayerSession::VideoAttribute *block = nullptr;
    if (withBlock) {
        block = callocBlock<QOrvicPlayerSession::VideoAttribute>();
        block->width = 640;
        owner.meta.videoAttribute = block;
    }
    LogCapture log;
    rig.session.updateVideoMetadata(owner.meta, 0, 0);
    // Neither created nor released, and the engine is not asked.
    QCOMPARE(owner.meta.videoAttribute, block);
    if (block)
        QCOMPARE(block->width, 640);
    QCOMPARE(rig.recorder.calls(), QStringList());
    ORVIC_COMPARE_LINES(log.lines(), QStringList{
        QStringLiteral("D/OPMetaSession updateVideoMetadata(#):updateVideoMetadata %1").arg(mediaType)});
}

void tst_MetaDataStreams::videoWithoutProgramKeepsBlock()
{
    MetaRig rig;
    rig.reader.script().setDefault("getProgramNum", 0);
    MetaDataOwner owner;
    owner.meta.mediaType = 2;
    owner.meta.videoAttribute = callocBlock<QOrvicPlayerSession::VideoAttribute>();
    owner.meta.videoAttribute->height = 480;
    QOrvicPlayerSession::VideoAttribute *const block = owner.meta.videoAttribute;
    rig.session.updateVideoMetadata(owner.meta, 0, 0);
    QCOMPARE(owner.meta.videoAttribute, block);
    QCOMPARE(block->height, 480);
    QCOMPARE(rig.recorder.calls(), QStringList{QStringLiteral("getProgramNum()")});
}

void tst_MetaDataStreams::videoReleased_data()
{
    QTest::addColumn<int>("count");
    QTest::addColumn<int>("status");
    QTest::addColumn<QStringList>("calls");
    QTest::newRow("no video stream") << 0 << 0
                                     << QStringList{QStringLiteral("getProgramNum()"),
                                                    QStringLiteral("getVideoStreamNum(0)")};
    QTest::newRow("attribute read fails") << 1 << -1
                                          << QStringList{QStringLiteral("getProgramNum()"),
                                                         QStringLiteral("getVideoStreamNum(0)"),
                                                         QStringLiteral("getVideoAttribute(0,2)")};
}

void tst_MetaDataStreams::videoReleased()
{
    QFETCH(int, count);
    QFETCH(int, status);
    QFETCH(QStringList, calls);
    MetaRig rig;
    rig.reader.script().setDefault("getProgramNum", 1);
    rig.reader.script().setDefault("getVideoStreamNum", count);
    rig.reader.script().setDefault("getVideoAttribute", status);
    MetaDataOwner owner;
    owner.meta.mediaType = 2;
    owner.meta.videoAttribute = callocBlock<QOrvicPlayerSession::VideoAttribute>();
    LogCapture log;
    rig.session.updateVideoMetadata(owner.meta, 2, 7);
    QVERIFY(!owner.meta.videoAttribute);
    QCOMPARE(rig.recorder.calls(), calls);
    ORVIC_COMPARE_LINES(log.lines(), QStringList{QStringLiteral("D/OPMetaSession updateVideoMetadata(#):updateVideoMetadata 2")});
}

void tst_MetaDataStreams::videoBlockReused()
{
    MetaRig rig;
    rig.reader.script().setDefault("getProgramNum", 1);
    rig.reader.script().setDefault("getVideoStreamNum", 2);
    rig.reader.setVideoAttribute(1, engineVideo(1280, 720, -3, 30000, 11, "mpeg4"));
    MetaDataOwner owner;
    owner.meta.mediaType = 2;
    owner.meta.videoAttribute = callocBlock<QOrvicPlayerSession::VideoAttribute>();
    setField(owner.meta.videoAttribute->codec, "h264abc");
    QOrvicPlayerSession::VideoAttribute *const block = owner.meta.videoAttribute;

    LogCapture log;
    rig.session.updateVideoMetadata(owner.meta, 1, 0);
    QCOMPARE(owner.meta.videoAttribute, block);
    QCOMPARE(block->videoStreamNum, 2);
    QCOMPARE(block->width, 1280);
    QCOMPARE(block->height, 720);
    QCOMPARE(block->videoInfo1, -3);
    QCOMPARE(block->frameRate, 30000);
    QCOMPARE(block->videoInfo2, 11);
    // All eight codec bytes come from the engine's record.
    QCOMPARE(QByteArray(block->codec, 8), QByteArray("mpeg4\0\0\0", 8));
    QCOMPARE(rig.recorder.calls(), (QStringList{QStringLiteral("getProgramNum()"),
                                                QStringLiteral("getVideoStreamNum(0)"),
                                                QStringLiteral("getVideoAttribute(0,1)")}));
    ORVIC_COMPARE_LINES(log.lines(), (QStringList{QStringLiteral("D/OPMetaSession updateVideoMetadata(#):updateVideoMetadata 2"),
                                        QStringLiteral("D/OPMetaSession updateVideoMetadata(#):width*height 1280 * 720\n"),
                                        QStringLiteral("D/OPMetaSession updateVideoMetadata(#):codec")}));
}

void tst_MetaDataStreams::videoBlockCreated()
{
    MetaRig rig;
    rig.reader.script().setDefault("getProgramNum", 1);
    rig.reader.script().setDefault("getVideoStreamNum", 1);
    rig.reader.setVideoAttribute(0, engineVideo(720, 576, 0, 25, 0, "ABCDEFGH"));
    MetaDataOwner owner;
    owner.meta.mediaType = 2;
    rig.session.updateVideoMetadata(owner.meta, 0, 0);
    QVERIFY(owner.meta.videoAttribute);
    QCOMPARE(owner.meta.videoAttribute->width, 720);
    QCOMPARE(owner.meta.videoAttribute->height, 576);
    QCOMPARE(QByteArray(owner.meta.videoAttribute->codec, 8), QByteArray("ABCDEFGH"));
}

void tst_MetaDataStreams::subtitle_data()
{
    QTest::addColumn<bool>("withPlayer");
    QTest::addColumn<int>("countStatus");
    QTest::addColumn<int>("countWritten");
    QTest::addColumn<int>("current");
    QTest::addColumn<int>("onoffStatus");
    QTest::addColumn<int>("onoffWritten");
    QTest::addColumn<int>("programs");
    QTest::addColumn<int>("readerCount");
    QTest::addColumn<int>("stream");
    QTest::addColumn<bool>("kept");
    QTest::addColumn<int>("subtitleNum");
    QTest::addColumn<int>("curSubtitleNum");
    QTest::addColumn<bool>("subtitleOn");
    QTest::addColumn<bool>("readerAsked");

    const int n = kNotWritten;
    // withPlayer countStatus countWritten current onoffStatus onoffWritten programs readerCount stream
    //   -> kept subtitleNum curSubtitleNum subtitleOn readerAsked
    QTest::newRow("player reports the streams") << true << 0 << 2 << 1 << 1 << n << 1 << 9 << 0
                                                << true << 2 << 1 << true << false;
    QTest::newRow("player count 0: reader count, stream as current") << true << 0 << 0 << 1 << 0 << n << 1 << 3 << 2
                                                                     << true << 3 << 2 << false << true;
    QTest::newRow("player count 0, no program: record without streams") << true << 0 << 0 << 5 << 1 << n << 0 << 9
                                                                        << 0 << true << 0 << 5 << true << true;
    QTest::newRow("count query fails, no program") << true << -1 << n << 1 << 0 << n << 0 << 9 << 0
                                                   << false << 0 << 0 << false << true;
    QTest::newRow("count query fails, reader answers") << true << -1 << n << 1 << 0 << n << 1 << 2 << 0
                                                       << true << 2 << 0 << false << true;
    QTest::newRow("count query fails after writing a count") << true << -2 << 4 << 1 << 0 << n << 1 << 9 << 0
                                                             << false << 0 << 0 << false << false;
    QTest::newRow("on/off status decides, not the written value") << true << 0 << 2 << 1 << 0 << 1 << 1 << 9 << 0
                                                                  << true << 2 << 1 << false << false;
    QTest::newRow("negative on/off status counts as on") << true << 0 << 2 << 1 << -5 << 0 << 1 << 9 << 0
                                                         << true << 2 << 1 << true << false;
    QTest::newRow("negative player count") << true << 0 << -1 << 1 << 0 << n << 1 << 9 << 0
                                           << false << 0 << 0 << false << false;
    QTest::newRow("no player: reader count, stream as current") << false << 0 << n << 0 << 0 << n << 1 << 2 << 4
                                                                << true << 2 << 4 << false << true;
    QTest::newRow("no player, no program") << false << 0 << n << 0 << 0 << n << 0 << 2 << 0
                                           << false << 0 << 0 << false << true;
    QTest::newRow("stream -1 with player") << true << 0 << 2 << 1 << 1 << n << 1 << 9 << -1
                                           << false << 0 << 0 << false << false;
    QTest::newRow("stream -1 without player") << false << 0 << n << 0 << 0 << n << 1 << 2 << -1
                                              << false << 0 << 0 << false << true;
    QTest::newRow("stream -1 after player count 0") << true << 0 << 0 << 1 << 0 << n << 1 << 2 << -1
                                                    << false << 0 << 0 << false << true;
    QTest::newRow("negative reader count") << false << 0 << n << 0 << 0 << n << 1 << -1 << 0
                                           << false << 0 << 0 << false << true;
}

void tst_MetaDataStreams::subtitle()
{
    QFETCH(bool, withPlayer);
    QFETCH(int, countStatus);
    QFETCH(int, countWritten);
    QFETCH(int, current);
    QFETCH(int, onoffStatus);
    QFETCH(int, onoffWritten);
    QFETCH(int, programs);
    QFETCH(int, readerCount);
    QFETCH(int, stream);
    QFETCH(bool, kept);
    QFETCH(int, subtitleNum);
    QFETCH(int, curSubtitleNum);
    QFETCH(bool, subtitleOn);
    QFETCH(bool, readerAsked);

    MetaRig rig(withPlayer);
    rig.player.script().push("getParameter", QVariantList{countStatus, onoffStatus});
    if (countWritten != kNotWritten)
        rig.player.script().push("getParameter/get-subtitle-count", countWritten);
    if (onoffWritten != kNotWritten)
        rig.player.script().push("getParameter/get-subtitle-onoff", onoffWritten);
    rig.player.script().setDefault("getCurrentStream", current);
    rig.reader.script().setDefault("getProgramNum", programs);
    rig.reader.script().setDefault("getSubtitleStreamNum", readerCount);

    MetaDataOwner owner;
    owner.meta.subtitleAttribute = callocBlock<QOrvicPlayerSession::SubtitleAttribute>();
    owner.meta.subtitleAttribute->reserved[1] = 77;
    setField(owner.meta.subtitleAttribute->language, "chi");
    QOrvicPlayerSession::SubtitleAttribute *const block = owner.meta.subtitleAttribute;

    LogCapture log;
    rig.session.updateSubtitleMetadata(owner.meta, stream, 6);

    QStringList expectedCalls;
    if (withPlayer)
        expectedCalls << QStringLiteral("getParameter(mPlayer,get-subtitle-count,4)")
                      << QStringLiteral("getCurrentStream(3)")
                      << QStringLiteral("getParameter(mPlayer,get-subtitle-onoff,4)");
    if (readerAsked) {
        expectedCalls << QStringLiteral("getProgramNum()");
        if (programs != 0)
            expectedCalls << QStringLiteral("getSubtitleStreamNum(0)");
    }
    QCOMPARE(rig.recorder.calls(), expectedCalls);

    QStringList expectedLog;
    if (readerAsked)
        expectedLog << QStringLiteral("D/OPMetaSession updateSubtitleMetadata(#):use mSPMetaData to get subtitleTrackNum\n");
    if (kept) {
        const int onoff = withPlayer ? onoffStatus : 0;
        expectedLog << QStringLiteral("get subtitle ison %1 %2 %3").arg(onoff).arg(stream).arg(subtitleNum);
    }
    ORVIC_COMPARE_LINES(log.lines(), expectedLog);

    if (!kept) {
        QVERIFY(!owner.meta.subtitleAttribute);
        return;
    }
    // Kept records are the same block, patched field by field.
    QCOMPARE(owner.meta.subtitleAttribute, block);
    QCOMPARE(block->subtitleNum, subtitleNum);
    QCOMPARE(block->curSubtitleNum, curSubtitleNum);
    QCOMPARE(block->subtitleOn, subtitleOn);
    QCOMPARE(block->reserved[1], 77);
    QCOMPARE(QByteArray(block->language), QByteArray("chi"));
}

void tst_MetaDataStreams::subtitleBlockCreated()
{
    MetaRig rig;
    rig.player.script().push("getParameter/get-subtitle-count", 1);
    rig.player.script().setDefault("getCurrentStream", 0);
    MetaDataOwner owner;
    rig.session.updateSubtitleMetadata(owner.meta, 0, 0);
    QVERIFY(owner.meta.subtitleAttribute);
    QCOMPARE(owner.meta.subtitleAttribute->subtitleNum, 1);
    QCOMPARE(owner.meta.subtitleAttribute->curSubtitleNum, 0);
    QCOMPARE(owner.meta.subtitleAttribute->subtitleOn, false);
    QCOMPARE(QByteArray(owner.meta.subtitleAttribute->language, 8), QByteArray(8, '\0'));
}

QTEST_GUILESS_MAIN(tst_MetaDataStreams)
#include "tst_metadatastreams.moc"
