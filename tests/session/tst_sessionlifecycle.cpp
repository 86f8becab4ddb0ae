// Playback service and engine start of the adaptor (init) and what a newly
// constructed session reports. Release, reset and the destructor are in
// tst_sessionrelease.
#include "qorvicmetadatasession.h"
#include "sessionaccess.h"
#include "sessionlifecyclefixture.h"
#include "sessionrecorder.h"

#include <QtCore/QPointer>
#include <QtCore/QSemaphore>
#include <QtTest/QtTest>

#include <thread>

using namespace orvictest;
using namespace orvictest::sessionlifecycle;
using Session = QOrvicPlayerSession;
using Answer = ScriptedPropertyService::Answer;

Q_DECLARE_METATYPE(QList<ScriptedPropertyService::Answer>)

namespace {

const char kInit[] = "void QOrvicPlayerSessionPrivate::init()";

QString runningWarning(const QString &value)
{
    return QStringLiteral("D/OPSession init(#):Warning: waiting psserver running over 5 sec, key:init.svc.psserver value:%1 ")
        .arg(value);
}

} // namespace

class tst_SessionLifecycle : public QObject, protected SessionLifecycleFixture
{
    Q_OBJECT

private Q_SLOTS:
    void init() { setUp(); }
    void cleanup() { tearDown(); }

    void newSession();
    void volumeRestoredFromEngine_data();
    void volumeRestoredFromEngine();
    void engineName_data();
    void engineName();
    void initPollsUntilRunning();
    void initWarningCarriesValue();
    void initPropertyGetFailure_data();
    void initPropertyGetFailure();
    void initPropertySetResult_data();
    void initPropertySetResult();
    void initNumbersPlayers();
    void initOnAdaptor();
    void initAndResetTakeNoOtherLock();
    void initWithoutEngineObjects_data();
    void initWithoutEngineObjects();
    void setVideoOutputHasNoEffect();
    void id3PicWithoutMetaSession();
};

// A new session has run init: the service was started, the engine created,
// and the getters answer from what init restored.
void tst_SessionLifecycle::newSession()
{
    m_engine->onNewPlayer([](ScriptedPlayer *p) {
        p->script().setDefault("getVolume", 35);
        p->script().setDefault("getSpeed", 2.0);  // not asked outside trick play
    });
    Session session(QMediaPlayer::Flags{});
    QOrvicPlayerSessionPrivate *d = QOrvicPlayerSessionPrivate::get(&session);

    QCOMPARE(m_engine->recorder().calls(), kEngineUp);
    QCOMPARE(m_properties->sets(), (QList<QPair<QByteArray, QByteArray>>{{"ctl.start", "psserver"}}));
    QCOMPARE(m_properties->initCount(), 1);
    QVERIFY(m_log->containsInOrder({QStringLiteral("D/OPSession init(#):init volume 35"),
                                    QStringLiteral("D/OPSession setState(#):emit state 1")}));
    QCOMPARE(d->mPlaybackRate, 1.0f);
    QVERIFY(d->mFilePlayer);
    QVERIFY(d->mSPMetaData);
    QVERIFY(d->mMetaSession);
    QCOMPARE(d->mMetaSession->parent(), nullptr);
    QVERIFY(d->mCallBack);
    QCOMPARE(m_engine->lastPlayer()->callBack(), static_cast<playback::SPPlayer::CallBack *>(d->mCallBack));
    QCOMPARE(d->q, &session);

    m_engine->recorder().clear();
    QCOMPARE(session.state(), Session::Player_Initialized);
    QCOMPARE(session.volume(), 35);
    QCOMPARE(session.isMuted(), false);
    QCOMPARE(session.playbackRate(), 1.0f);
    QCOMPARE(session.isAudioAvailable(), false);
    QCOMPARE(session.isVideoAvailable(), false);
    QCOMPARE(session.isSeekable(), false);
    QCOMPARE(session.duration(), qint64(0));
    QCOMPARE(session.position(), qint64(0));
    QVERIFY(session.availablePlaybackRanges().isEmpty());
    QCOMPARE(session.getCurrentAudioStream(), 0);
    // Nothing playing: the getters did not need the engine.
    QCOMPARE(m_engine->recorder().calls(), QStringList());
}

void tst_SessionLifecycle::volumeRestoredFromEngine_data()
{
    QTest::addColumn<int>("engineVolume");
    QTest::addColumn<bool>("muted");
    QTest::newRow("0 is muted") << 0 << true;
    QTest::newRow("negative is muted") << -1 << true;
    QTest::newRow("1 is not muted") << 1 << false;
    QTest::newRow("100 is not muted") << 100 << false;
}

void tst_SessionLifecycle::volumeRestoredFromEngine()
{
    QFETCH(int, engineVolume);
    QFETCH(bool, muted);
    m_engine->onNewPlayer([=](ScriptedPlayer *p) { p->script().setDefault("getVolume", engineVolume); });
    Session session(QMediaPlayer::Flags{});
    QCOMPARE(session.volume(), engineVolume);
    QCOMPARE(session.isMuted(), muted);
    // The values saved before the engine existed are the initial ones.
    QVERIFY(m_log->containsInOrder({QStringLiteral("D/OPSession init(#):save vol 0 is mute 0"),
                                    QStringLiteral("D/OPSession init(#):init volume %1").arg(engineVolume)}));
    // The engine's volume is read, never set.
    QCOMPARE(m_engine->recorder().count(QStringLiteral("setStreamVolume")), 0);
}

void tst_SessionLifecycle::engineName_data()
{
    QTest::addColumn<int>("flags");
    QTest::addColumn<QString>("name");
    QTest::newRow("none") << 0 << "Qspmediaplayer";
    QTest::newRow("0x8 metadata only") << int(QMediaPlayer::MetaDataOnly) << "QspmediaplayerOnlyMetadata";
    QTest::newRow("0x8 with low latency") << int(QMediaPlayer::MetaDataOnly | QMediaPlayer::LowLatency)
                                          << "QspmediaplayerOnlyMetadata";
    QTest::newRow("all four") << int(QMediaPlayer::MetaDataOnly | QMediaPlayer::LowLatency | QMediaPlayer::StreamPlayback
                                     | QMediaPlayer::VideoSurface)
                              << "QspmediaplayerOnlyMetadata";
    QTest::newRow("low latency") << int(QMediaPlayer::LowLatency) << "Qspmediaplayer";
    QTest::newRow("stream playback") << int(QMediaPlayer::StreamPlayback) << "Qspmediaplayer";
    QTest::newRow("video surface") << int(QMediaPlayer::VideoSurface) << "Qspmediaplayer";
}

void tst_SessionLifecycle::engineName()
{
    QFETCH(int, flags);
    QFETCH(QString, name);
    QCOMPARE(int(QMediaPlayer::MetaDataOnly), 0x8);
    Session session{QMediaPlayer::Flags(flags)};
    QCOMPARE(m_engine->recorder().calls(),
             (QStringList{QStringLiteral("SPPlayer::create(%1)").arg(name), QStringLiteral("getVolume()"),
                          QStringLiteral("SPMetaData::create(SpMetadata,default)")}));
    QCOMPARE(m_engine->lastPlayer()->name(), name);
    QCOMPARE(m_engine->lastMetaData()->name(), QStringLiteral("SpMetadata"));
    QCOMPARE(m_engine->lastMetaData()->config(), QStringLiteral("default"));
    QCOMPARE(int(QOrvicPlayerSessionPrivate::get(&session)->mFlags), flags);
}

// "init.svc.psserver" answers "" three times, then "running": three warnings,
// one per poll, three pauses of 5 ms, four reads; the service was started first.
void tst_SessionLifecycle::initPollsUntilRunning()
{
    m_properties->scriptGet(kStatusKey, QList<QByteArray>{"", "", "", "running"});
    int setsAtFirstRead = -1;
    m_properties->onGet(kStatusKey, [&](int n) {
        if (n == 0)
            setsAtFirstRead = m_properties->sets().size();
    });
    Session session(QMediaPlayer::Flags{});

    ORVIC_COMPARE_LINES(m_log->linesFrom(QLatin1String(kInit)),
                  (QStringList{QStringLiteral("V/OPSession init(#) called"), QStringLiteral("D/OPSession init(#):palyer id #"),
                               QStringLiteral("D/OPSession init(#):property_set ctl.start error "),
                               runningWarning(QString()), runningWarning(QString()), runningWarning(QString()),
                               QStringLiteral("D/OPSession init(#):save vol 0 is mute 0"),
                               QStringLiteral("D/OPSession init(#):init volume 0")}));
    QCOMPARE(m_polls->pauses(), (QList<unsigned long>{5, 5, 5}));
    QCOMPARE(m_properties->getCount(kStatusKey), 4);
    QCOMPARE(m_properties->gets(), (QList<QByteArray>{kStatusKey, kStatusKey, kStatusKey, kStatusKey}));
    QCOMPARE(m_properties->sets(), (QList<QPair<QByteArray, QByteArray>>{{"ctl.start", "psserver"}}));
    QCOMPARE(setsAtFirstRead, 1);
    QCOMPARE(session.state(), Session::Player_Initialized);
}

void tst_SessionLifecycle::initWarningCarriesValue()
{
    m_properties->scriptGet(kStatusKey, QList<QByteArray>{"starting", "restarting", "running"});
    Session session(QMediaPlayer::Flags{});
    const QStringList warnings = m_log->matching(QStringLiteral("Warning: waiting psserver running"));
    ORVIC_COMPARE_LINES(warnings, (QStringList{runningWarning(QStringLiteral("starting")),
                                         runningWarning(QStringLiteral("restarting"))}));
    QCOMPARE(m_polls->pauses().size(), 2);
}

void tst_SessionLifecycle::initPropertyGetFailure_data()
{
    QTest::addColumn<QList<Answer>>("answers");
    QTest::addColumn<QStringList>("polling");
    QTest::addColumn<int>("pauses");
    const QString error = QStringLiteral("D/OPSession init(#):property_get error ");
    QTest::newRow("fails twice, then running")
        << QList<Answer>{{-1, ""}, {-1, ""}, {7, "running"}}
        << QStringList{error, runningWarning(QString()), error, runningWarning(QString())} << 2;
    // The loop goes on with whatever the buffer holds.
    QTest::newRow("fails, buffer holds running")
        << QList<Answer>{{-1, "running"}} << QStringList{error} << 0;
    QTest::newRow("fails with stale text")
        << QList<Answer>{{-2, "stopped"}, {7, "running"}}
        << QStringList{error, runningWarning(QStringLiteral("stopped"))} << 1;
}

void tst_SessionLifecycle::initPropertyGetFailure()
{
    QFETCH(QList<Answer>, answers);
    QFETCH(QStringList, polling);
    QFETCH(int, pauses);
    m_properties->scriptGet(kStatusKey, answers);
    Session session(QMediaPlayer::Flags{});
    ORVIC_COMPARE_LINES(m_log->linesFrom(QLatin1String(kInit)),
                  QStringList({QStringLiteral("V/OPSession init(#) called"), QStringLiteral("D/OPSession init(#):palyer id #"),
                               QStringLiteral("D/OPSession init(#):property_set ctl.start error ")})
                      + polling
                      + QStringList({QStringLiteral("D/OPSession init(#):save vol 0 is mute 0"),
                                     QStringLiteral("D/OPSession init(#):init volume 0")}));
    QCOMPARE(m_polls->pauses().size(), pauses);
    QCOMPARE(session.state(), Session::Player_Initialized);
}

void tst_SessionLifecycle::initPropertySetResult_data()
{
    QTest::addColumn<int>("result");
    QTest::addColumn<bool>("logged");
    // The line is printed for a zero result, not for a failure code.
    QTest::newRow("0") << 0 << true;
    QTest::newRow("1") << 1 << false;
    QTest::newRow("-1") << -1 << false;
}

void tst_SessionLifecycle::initPropertySetResult()
{
    QFETCH(int, result);
    QFETCH(bool, logged);
    m_properties->scriptSetResult(result);
    Session session(QMediaPlayer::Flags{});
    const QStringList lines = m_log->linesFrom(QLatin1String(kInit));
    const QString line = QStringLiteral("D/OPSession init(#):property_set ctl.start error ");
    QCOMPARE(m_log->count(line), logged ? 1 : 0);
    if (logged)
        QVERIFY(LogCapture::pattern(line).match(lines.value(2)).hasMatch());
    // Nothing else depends on it.
    QCOMPARE(m_engine->createdPlayers(), 1);
    QCOMPARE(session.state(), Session::Player_Initialized);
}

void tst_SessionLifecycle::initNumbersPlayers()
{
    Session first(QMediaPlayer::Flags{});
    Session second(QMediaPlayer::Flags{});
    const QRegularExpression id(QStringLiteral("^D/OPSession init\\(\\d+\\):palyer id (\\d+)$"));
    QList<int> ids;
    for (const QString &l : m_log->lines()) {
        const QRegularExpressionMatch m = id.match(l);
        if (m.hasMatch())
            ids.append(m.captured(1).toInt());
    }
    QCOMPARE(ids.size(), 2);
    QCOMPARE(ids.at(1), ids.at(0) + 1);
    QCOMPARE(QOrvicPlayerSessionPrivate::get(&first)->mPlayerId, ids.at(0));
    QCOMPARE(QOrvicPlayerSessionPrivate::get(&second)->mPlayerId, ids.at(1));
}

// init on an adaptor: state Player_Initialized announced through the session,
// network flag cleared, heap fields nulled (not freed), and the command
// queue's dispatch state and a running stop's flag left alone (a watchdog
// restart must not end a stop that is still running).
void tst_SessionLifecycle::initOnAdaptor()
{
    Session session(QMediaPlayer::Flags{});
    SessionRecorder recorder(&session);
    QOrvicPlayerSessionPrivate adaptor(QMediaPlayer::Flags{});
    adaptor.q = &session;
    adaptor.mCurrentState = Session::Player_Play;
    adaptor.mIsStopping.storeRelease(true);
    adaptor.mIsNetwork = true;
    adaptor.mDispatchState.storeRelease(2);
    adaptor.mPlaybackRate = 2.5f;
    Session::VideoAttribute video;
    Session::AudioAttribute audio;
    Session::SubtitleAttribute subtitle;
    adaptor.mMetaData.videoAttribute = &video;
    adaptor.mMetaData.audioAttribute = &audio;
    adaptor.mMetaData.subtitleAttribute = &subtitle;
    m_log->clear();

    adaptor.init();
    QCOMPARE(recorder.texts(), QStringList{QStringLiteral("stateChanged(1)")});
    QCOMPARE(adaptor.mCurrentState, Session::Player_Initialized);
    QVERIFY(adaptor.mIsStopping.loadAcquire());
    QVERIFY(!adaptor.mIsNetwork);
    QCOMPARE(adaptor.mDispatchState.loadAcquire(), 2);
    QCOMPARE(adaptor.mMetaData.videoAttribute, nullptr);
    QCOMPARE(adaptor.mMetaData.audioAttribute, nullptr);
    QCOMPARE(adaptor.mMetaData.subtitleAttribute, nullptr);
    QCOMPARE(adaptor.mPlaybackRate, 1.0f);
    QCOMPARE(session.state(), Session::Player_Initialized);
    adaptor.mDispatchState.storeRelease(0);
}

// init takes no lock at all and reset only the reset lock: both complete on a
// thread of their own while this thread holds every other lock of the adaptor.
void tst_SessionLifecycle::initAndResetTakeNoOtherLock()
{
    Session session(QMediaPlayer::Flags{});
    QOrvicPlayerSessionPrivate *d = QOrvicPlayerSessionPrivate::get(&session);
    QOrvicPlayerSessionPrivate adaptor(QMediaPlayer::Flags{});
    adaptor.q = &session;
    QOrvicPlayerSessionPrivate *const adaptors[] = {&adaptor, d};
    for (QOrvicPlayerSessionPrivate *a : adaptors) {
        a->mPlayerLock.lock();
        a->mMessageWaitLock.lock();
        a->mListLock.lock();
        a->mAckLock.lock();
    }
    QSemaphore done;
    std::thread worker([&] {
        adaptor.init();
        d->reset();
        done.release();
    });
    const bool finished = done.tryAcquire(1, 30000);
    for (QOrvicPlayerSessionPrivate *a : adaptors) {
        a->mAckLock.unlock();
        a->mListLock.unlock();
        a->mMessageWaitLock.unlock();
        a->mPlayerLock.unlock();
    }
    worker.join();
    QVERIFY(finished);
    QCOMPARE(adaptor.mCurrentState, Session::Player_Initialized);
    QCOMPARE(m_engine->createdPlayers(), 3);
}

// An engine or reader that could not be created: the session still comes up;
// the missing player is reported instead of being used.
void tst_SessionLifecycle::initWithoutEngineObjects_data()
{
    QTest::addColumn<bool>("player");
    QTest::addColumn<bool>("reader");
    QTest::newRow("no player") << false << true;
    QTest::newRow("no reader") << true << false;
    QTest::newRow("neither") << false << false;
}

void tst_SessionLifecycle::initWithoutEngineObjects()
{
    QFETCH(bool, player);
    QFETCH(bool, reader);
    m_engine->script().setDefault("create/player", player);
    m_engine->script().setDefault("create/metadata", reader);
    {
        Session session(QMediaPlayer::Flags{});
        QCOMPARE(session.state(), Session::Player_Initialized);
        QCOMPARE(m_log->count(QStringLiteral("D/OPSession init(#):mFilePlayer is null")), player ? 0 : 1);
        if (!player) {
            // Nothing read back: the saved (initial) values stay.
            QCOMPARE(session.volume(), 0);
            QCOMPARE(session.isMuted(), false);
            QCOMPARE(m_engine->recorder().count(QStringLiteral("getVolume")), 0);
        }
        m_engine->recorder().clear();
        m_log->clear();
    }
    QStringList down;
    if (player)
        down << QStringLiteral("stop()") << QStringLiteral("SPPlayer::destroy");
    if (reader)
        down << QStringLiteral("SPMetaData::destroy");
    QCOMPARE(m_engine->recorder().calls(), down);
}

void tst_SessionLifecycle::setVideoOutputHasNoEffect()
{
    Session session(QMediaPlayer::Flags{});
    SessionRecorder recorder(&session);
    QObject output;
    QPointer<QObject> watch(&output);
    m_engine->recorder().clear();
    m_log->clear();

    session.setVideoOutput(&output);
    session.setVideoOutput(nullptr);
    QVERIFY(QMetaObject::invokeMethod(&session, "setVideoOutput", Q_ARG(QObject *, &session)));

    QCOMPARE(m_log->lines(), QStringList());
    QCOMPARE(recorder.texts(), QStringList());
    QCOMPARE(m_engine->recorder().calls(), QStringList());
    QVERIFY(watch);
    QCOMPARE(output.parent(), nullptr);
    QCOMPARE(session.children(), QObjectList());
    QCOMPARE(session.state(), Session::Player_Initialized);
}

void tst_SessionLifecycle::id3PicWithoutMetaSession()
{
    Session session(QMediaPlayer::Flags{});
    QOrvicPlayerSessionPrivate::get(&session)->release();
    m_log->clear();
    QVERIFY(session.getID3Pic().isNull());
    ORVIC_COMPARE_LINES(m_log->lines(), QStringList{QStringLiteral("D/OPSession getID3Pic(#):mMetaSession is null")});
}

QTEST_GUILESS_MAIN(tst_SessionLifecycle)
#include "tst_sessionlifecycle.moc"
