// Subtitle streams of the adaptor: choosing one, the subtitle switch, and the
// subtitle stream attributes.
#include "streamfixture.h"

#include <QtMultimedia/QMediaMetaData>
#include <QtTest/QtTest>

#include <cstring>

using namespace orvictest;
using S = QOrvicPlayerSession;

class tst_AdaptorSubtitles : public QObject, protected StreamFixture
{
    Q_OBJECT

private Q_SLOTS:
    void init() { setUp(); }
    void cleanup() { tearDown(); }

    void setSubtitleNum();
    void setSubtitleNumKeepsTheSessionsSwitch();
    void setSubtitleNumWithoutBlock();
    void setSubtitleNumEngineRefuses();
    void setSubtitleOnOff_data();
    void setSubtitleOnOff();
    void setSubtitleOnOffFails();
    void setSubtitleOnOffWithoutBlock();

    void getSubtitleAttribute_data();
    void getSubtitleAttribute();
};

void tst_AdaptorSubtitles::setSubtitleNum()
{
    openMedium(Medium::LocalVideo);
    QVERIFY(h->d->mMetaData.subtitleAttribute);
    QCOMPARE(h->d->mMetaDataMap.value(QMediaMetaData::SubtitleId).toInt(), 0);
    QSignalSpy maps(h->session.get(), &S::metadataChanged);

    h->d->setSubtitleNum(1);

    QCOMPARE(h->engine.recorder().calls().value(0), QStringLiteral("changeStream(3,1)"));
    QCOMPARE(h->signalTexts(), QStringList({"metaDataChanged(SubtitleId,1)", mapSignal(media::localVideoKeys())}));
    ORVIC_COMPARE_LINES(h->sessionLog(), QStringList({"V/OPSession setSubtitleNum(#) called",
                                                    "D/OPSession setSubtitleNum(#):mCurSubtitleNum:0 ",
                                                    "D/OPSession setSubtitleNum(#):setsubtitlenum:1 "}));
    QCOMPARE(h->d->mCurSubtitleNum, 1);
    // The engine still reports stream 0 as current; the session's switch wins.
    const QVariantMap map = maps.at(0).at(0).toMap();
    QCOMPARE(map.value(QMediaMetaData::SubtitleId).toInt(), 1);
    QCOMPARE(map.value(QMediaMetaData::SubtitleOnOff).toBool(), false);
    QCOMPARE(h->d->mMetaData.subtitleAttribute->curSubtitleNum, 1);
    QCOMPARE(map, h->d->mMetaDataMap);
}

void tst_AdaptorSubtitles::setSubtitleNumKeepsTheSessionsSwitch()
{
    openMedium(Medium::LocalVideo);
    QVERIFY(h->d->mMetaData.subtitleAttribute);
    h->d->setSubtitleOnOff(true);
    h->clear();
    QSignalSpy maps(h->session.get(), &S::metadataChanged);

    // The engine answers "off" when asked; the switch made through the session stays.
    h->d->setSubtitleNum(0);

    QCOMPARE(maps.size(), 1);
    QCOMPARE(maps.at(0).at(0).toMap().value(QMediaMetaData::SubtitleOnOff).toBool(), true);
    QVERIFY(h->d->mMetaData.subtitleAttribute->subtitleOn);
    QVERIFY(h->log->contains("D/OPSession setSubtitleNum(#):mCurSubtitleNum:0 "));
}

void tst_AdaptorSubtitles::setSubtitleNumWithoutBlock()
{
    openMedium(Medium::WithoutSubtitles, QStringLiteral("/media/song.mp3"));
    QVERIFY(!h->d->mMetaData.subtitleAttribute);

    h->d->setSubtitleNum(1);

    ORVIC_COMPARE_LINES(h->log->lines(), QStringList({"V/OPSession setSubtitleNum(#) called",
                                                    "D/OPSession setSubtitleNum(#):mCurSubtitleNum:0 "}));
    QCOMPARE(h->engine.recorder().calls(), QStringList());
    QCOMPARE(h->signalTexts(), QStringList());
    QCOMPARE(h->d->mCurSubtitleNum, 0);
}

void tst_AdaptorSubtitles::setSubtitleNumEngineRefuses()
{
    openMedium(Medium::LocalVideo);
    const QVariantMap before = h->d->mMetaDataMap;
    h->player()->script().push("changeStream", -4);

    h->d->setSubtitleNum(1);

    QCOMPARE(h->engine.recorder().calls(), QStringList({"changeStream(3,1)"}));
    QCOMPARE(h->signalTexts(), QStringList());
    ORVIC_COMPARE_LINES(h->sessionLog(), QStringList({"V/OPSession setSubtitleNum(#) called",
                                                    "D/OPSession setSubtitleNum(#):mCurSubtitleNum:0 ",
                                                    "E/OPSession setSubtitleNum(#):PE_FILE_ChangeSupicStream error -4"}));
    QCOMPARE(h->d->mCurSubtitleNum, 0);
    QCOMPARE(h->d->mMetaDataMap, before);
}

void tst_AdaptorSubtitles::setSubtitleOnOff_data()
{
    QTest::addColumn<bool>("on");
    QTest::newRow("on") << true;
    QTest::newRow("off after on") << false;
}

void tst_AdaptorSubtitles::setSubtitleOnOff()
{
    QFETCH(bool, on);
    openMedium(Medium::LocalVideo);
    QVERIFY(h->d->mMetaData.subtitleAttribute);
    if (!on) {
        h->d->setSubtitleOnOff(true);
        h->clear();
    }
    QSignalSpy maps(h->session.get(), &S::metadataChanged);

    h->d->setSubtitleOnOff(on);

    QCOMPARE(h->engine.recorder().calls(),
             QStringList({QStringLiteral("setParameter(mPlayer,set-subtitle-onoff,%1,1)").arg(int(on))}));
    QCOMPARE(h->signalTexts(), QStringList({QStringLiteral("metaDataChanged(SubtitleOnOff,%1)").arg(on ? "true" : "false"),
                                            mapSignal(media::localVideoKeys())}));
    ORVIC_COMPARE_LINES(h->sessionLog(), QStringList({
        "V/OPSession setSubtitleOnOff(#) called",
        QStringLiteral("D/OPSession setSubtitleOnOff(#):setSubtitleOnOff isOn: %1 dPERet!(0)").arg(int(on)),
    }));
    QCOMPARE(h->d->mSubtitleOn, on);
    QCOMPARE(h->d->mMetaData.subtitleAttribute->subtitleOn, on);
    QCOMPARE(maps.at(0).at(0).toMap().value(QMediaMetaData::SubtitleOnOff).toBool(), on);
}

void tst_AdaptorSubtitles::setSubtitleOnOffFails()
{
    openMedium(Medium::LocalVideo);
    QVERIFY(h->d->mMetaData.subtitleAttribute);
    h->player()->script().push("setParameter", -1);

    h->d->setSubtitleOnOff(true);

    QCOMPARE(h->signalTexts(), QStringList());
    ORVIC_COMPARE_LINES(h->sessionLog(), QStringList({
        "V/OPSession setSubtitleOnOff(#) called",
        "E/OPSession setSubtitleOnOff(#):setSubtitleOnOff isOn: 1 failed!!",
    }));
    QVERIFY(!h->d->mSubtitleOn);
    QVERIFY(!h->d->mMetaData.subtitleAttribute->subtitleOn);
}

void tst_AdaptorSubtitles::setSubtitleOnOffWithoutBlock()
{
    openMedium(Medium::WithoutSubtitles, QStringLiteral("/media/song.mp3"));
    QVERIFY(!h->d->mMetaData.subtitleAttribute);

    h->d->setSubtitleOnOff(true);

    // The engine is switched and the switch kept; there is no block to write it to.
    QCOMPARE(h->engine.recorder().calls(), QStringList({"setParameter(mPlayer,set-subtitle-onoff,1,1)"}));
    QCOMPARE(h->signalTexts(), QStringList({"metaDataChanged(SubtitleOnOff,true)",
                                            mapSignal(media::withoutSubtitlesKeys())}));
    QVERIFY(h->d->mSubtitleOn);
    QVERIFY(!h->d->mMetaData.subtitleAttribute);
    QCOMPARE(QStringList(h->d->mMetaDataMap.keys()), media::withoutSubtitlesKeys());
    QVERIFY(h->log->contains("D/OPSession setSubtitleOnOff(#):setSubtitleOnOff isOn: 1 dPERet!(0)"));
}

void tst_AdaptorSubtitles::getSubtitleAttribute_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("written");
    QTest::addColumn<QString>("language");
    QTest::newRow("answered") << 0 << QByteArray("chi", 4) << QStringLiteral("chi");
    QTest::newRow("the whole field") << 0 << QByteArray("abcdefgh") << QStringLiteral("abcdefgh");
    QTest::newRow("refused") << -1 << QByteArray() << QString();
}

void tst_AdaptorSubtitles::getSubtitleAttribute()
{
    QFETCH(int, status);
    QFETCH(QByteArray, written);
    QFETCH(QString, language);
    openMedium(Medium::LocalVideo);
    h->player()->script().push("getSubtitleLanguage", status);
    if (!written.isEmpty())
        h->player()->script().push("getSubtitleLanguage/2", written);
    playback::SPMetaData::SubtitleAttribute attr;
    std::memset(&attr, 0, sizeof attr);

    h->d->getSubtitleAttribute(2, attr);

    QCOMPARE(h->engine.recorder().calls(), QStringList({"getSubtitleLanguage(2)"}));
    QCOMPARE(QOrvicPlayerSessionPrivate::engineText(attr.language, sizeof attr.language), language);
    QStringList lines = {"V/OPSession getSubtitleAttribute(#) called",
                         "D/OPSession getSubtitleAttribute(#):language:" + language};
    if (status != 0)
        lines << "E/OPSession getSubtitleAttribute(#):error";
    ORVIC_COMPARE_LINES(h->sessionLog(), lines);
    QCOMPARE(h->signalTexts(), QStringList());
}

QTEST_GUILESS_MAIN(tst_AdaptorSubtitles)
#include "tst_adaptorsubtitles.moc"
