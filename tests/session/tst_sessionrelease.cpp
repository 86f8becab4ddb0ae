// Playback service and engine shutdown of the adaptor: release, reset and
// the session's destructor.
#include "enginerecords.h"
#include "qorvicmetadatasession.h"
#include "sessionaccess.h"
#include "sessionlifecyclefixture.h"
#include "sessionrecorder.h"
#include "statetransitionchecker.h"

#include <QtTest/QtTest>

using namespace orvictest;
using namespace orvictest::sessionlifecycle;
using Session = QOrvicPlayerSession;

namespace {

const char kReset[] = "void QOrvicPlayerSessionPrivate::reset()";
const char kRelease[] = "void QOrvicPlayerSessionPrivate::release()";

QString stoppedWarning(const QString &value)
{
    return QStringLiteral("D/OPSession reset(#):Warning: waiting psserver stopped over 5 sec, key:init.svc.psserver value:%1 ")
        .arg(value);
}

// The engine goes before the reader: it may still deliver into what goes after it.
const QStringList kEngineDown = {QStringLiteral("stop()"), QStringLiteral("SPPlayer::destroy"),
                                 QStringLiteral("SPMetaData::destroy")};

} // namespace

class tst_SessionRelease : public QObject, protected SessionLifecycleFixture
{
    Q_OBJECT

private Q_SLOTS:
    void init() { setUp(); }
    void cleanup() { tearDown(); }

    void releaseWithoutEngine();
    void releaseOrder_data();
    void releaseOrder();
    void resetSequence_data();
    void resetSequence();
    void destructorKeepsServiceRunning();
};

void tst_SessionRelease::releaseWithoutEngine()
{
    {
        QOrvicPlayerSessionPrivate adaptor(QMediaPlayer::Flags{});
        adaptor.release();
        ORVIC_COMPARE_LINES(m_log->lines(), QStringList{QStringLiteral("V/OPSession release(#) called")});
        adaptor.release();
        ORVIC_COMPARE_LINES(m_log->lines(), (QStringList{QStringLiteral("V/OPSession release(#) called"),
                                                   QStringLiteral("V/OPSession release(#) called")}));
        m_log->clear();
    }
    ORVIC_COMPARE_LINES(m_log->lines(), (QStringList{QStringLiteral("V/OPSession ~QOrvicPlayerSessionPrivate(#) called"),
                                               QStringLiteral("V/OPSession release(#) called")}));
    QCOMPARE(m_engine->recorder().calls(), QStringList());
    QCOMPARE(m_properties->sets(), (QList<QPair<QByteArray, QByteArray>>{}));
}

void tst_SessionRelease::releaseOrder_data()
{
    QTest::addColumn<int>("stopResult");
    QTest::newRow("stop 0") << 0;
    QTest::newRow("stop -3") << -3;
}

// release: engine stop and destroy, sink, metadata session, reader, heap
// blocks; the session state stays; a second release only logs.
void tst_SessionRelease::releaseOrder()
{
    QFETCH(int, stopResult);
    Session session(QMediaPlayer::Flags{});
    QOrvicPlayerSessionPrivate *d = QOrvicPlayerSessionPrivate::get(&session);
    SessionRecorder recorder(&session);
    m_engine->lastPlayer()->script().push("stop", stopResult);
    CallRecorder &calls = m_engine->recorder();
    QObject::connect(d->mMetaSession, &QObject::destroyed, [&calls] { calls.record(QStringLiteral("metaSession destroyed")); });
    d->mMetaData.videoAttribute = callocBlock<Session::VideoAttribute>();
    d->mMetaData.audioAttribute = callocBlock<Session::AudioAttribute>();
    d->mMetaData.audioAttribute->id3Info = callocBlock<Session::Id3Info>();
    d->mMetaData.subtitleAttribute = callocBlock<Session::SubtitleAttribute>();
    calls.clear();
    m_log->clear();

    d->release();
    QCOMPARE(calls.calls(), (QStringList{QStringLiteral("stop()"), QStringLiteral("SPPlayer::destroy"),
                                         QStringLiteral("metaSession destroyed"), QStringLiteral("SPMetaData::destroy")}));
    ORVIC_COMPARE_LINES(m_log->linesFrom(QLatin1String(kRelease)),
                  (QStringList{QStringLiteral("V/OPSession release(#) called"), QStringLiteral("D/OPSession release(#):stop start "),
                               QStringLiteral("D/OPSession release(#):stop:%1 ").arg(stopResult),
                               QStringLiteral("D/OPSession release(#):SPPlayer::destroy ")}));
    QCOMPARE(d->mFilePlayer, nullptr);
    QCOMPARE(d->mSPMetaData, nullptr);
    QCOMPARE(d->mMetaSession, nullptr);
    QCOMPARE(d->mCallBack, nullptr);
    QCOMPARE(d->mMetaData.videoAttribute, nullptr);
    QCOMPARE(d->mMetaData.audioAttribute, nullptr);
    QCOMPARE(d->mMetaData.subtitleAttribute, nullptr);
    QCOMPARE(m_engine->destroyedPlayers(), 1);
    QCOMPARE(session.state(), Session::Player_Initialized);
    QCOMPARE(recorder.texts(), QStringList());
    QCOMPARE(m_properties->sets(), (QList<QPair<QByteArray, QByteArray>>{{"ctl.start", "psserver"}}));

    calls.clear();
    m_log->clear();
    d->release();
    ORVIC_COMPARE_LINES(m_log->lines(), QStringList{QStringLiteral("V/OPSession release(#) called")});
    QCOMPARE(calls.calls(), QStringList());
}

void tst_SessionRelease::resetSequence_data()
{
    QTest::addColumn<int>("notStopped");   // polls that do not see "stopped"
    QTest::addColumn<int>("warnings");
    QTest::addColumn<int>("setResult");
    QTest::newRow("stopped at once") << 0 << 0 << 0;
    QTest::newRow("1 poll") << 1 << 1 << 0;
    QTest::newRow("2 polls") << 2 << 1 << 0;
    QTest::newRow("999 polls") << 999 << 1 << 0;
    QTest::newRow("1000 polls") << 1000 << 1 << 0;
    QTest::newRow("1001 polls") << 1001 << 2 << 0;
    QTest::newRow("2001 polls") << 2001 << 3 << 0;
    QTest::newRow("set result 1") << 1 << 1 << 1;
}

// reset: release, "ctl.stop", wait for "stopped" (warning at the first poll
// and every 1000th), then init again; all under the reset lock.
void tst_SessionRelease::resetSequence()
{
    QFETCH(int, notStopped);
    QFETCH(int, warnings);
    QFETCH(int, setResult);
    m_engine->onNewPlayer([](ScriptedPlayer *p) { p->script().setDefault("getVolume", 50); });
    Session session(QMediaPlayer::Flags{});
    QOrvicPlayerSessionPrivate *d = QOrvicPlayerSessionPrivate::get(&session);
    QCOMPARE(session.volume(), 50);
    SessionRecorder recorder(&session);
    StateTransitionChecker checker(&session);
    // The restarted engine reports silence: its volume wins over the saved one.
    m_engine->onNewPlayer([](ScriptedPlayer *p) { p->script().setDefault("getVolume", 0); });

    QList<QByteArray> answers;
    for (int i = 0; i < notStopped; ++i)
        answers.append("running");
    answers << "stopped" << "running";
    m_properties->scriptGet(kStatusKey, answers);
    m_properties->scriptSetResult(setResult);
    // Held from the release through the stop wait to the end of init.
    int checks = 0;
    bool lockedThroughout = true;
    const auto checkLocked = [&] {
        ++checks;
        if (d->mResetLock.tryLock()) {
            lockedThroughout = false;
            d->mResetLock.unlock();
        }
    };
    m_properties->onGet(kStatusKey, [&](int) { checkLocked(); });
    m_log->setObserver([&](const LogEntry &e) {
        if (e.text.endsWith(QLatin1String(" called")) || e.text.contains(QLatin1String("init volume")))
            checkLocked();
    });
    m_properties->clearLog();
    m_engine->recorder().clear();
    m_log->clear();
    m_polls->clear();

    d->reset();
    m_log->setObserver(nullptr);

    QCOMPARE(m_properties->sets(), (QList<QPair<QByteArray, QByteArray>>{{"ctl.stop", "psserver"}, {"ctl.start", "psserver"}}));
    QCOMPARE(m_properties->getCount(kStatusKey), notStopped + 2);
    const QList<unsigned long> pauses = m_polls->pauses();
    QCOMPARE(pauses.size(), notStopped);
    QVERIFY(std::all_of(pauses.cbegin(), pauses.cend(), [](unsigned long ms) { return ms == 5; }));
    QVERIFY(lockedThroughout);
    QVERIFY(checks >= notStopped + 5);
    QVERIFY(d->mResetLock.tryLock());
    d->mResetLock.unlock();

    QStringList resetLines;
    if (setResult == 0)
        resetLines << QStringLiteral("D/OPSession reset(#):property_set ctl.stop error ");
    for (int i = 0; i < warnings; ++i)
        resetLines << stoppedWarning(QStringLiteral("running"));
    ORVIC_COMPARE_LINES(m_log->linesFrom(QLatin1String(kReset)), resetLines);

    // Release first, then the stop wait, then init with the saved values logged.
    QStringList order{QStringLiteral("V/OPSession release(#) called"), QStringLiteral("D/OPSession release(#):SPPlayer::destroy ")};
    order += resetLines;
    order << QStringLiteral("V/OPSession init(#) called") << QStringLiteral("D/OPSession init(#):save vol 50 is mute 0")
          << QStringLiteral("D/OPSession init(#):init volume 0") << QStringLiteral("D/OPSession setState(#):emit state 1");
    QVERIFY(m_log->containsInOrder(order));
    QCOMPARE(m_log->count(QStringLiteral("V/OPSession init(#) called")), 1);

    QCOMPARE(m_engine->recorder().calls(), kEngineDown + kEngineUp);
    QCOMPARE(m_engine->createdPlayers(), 2);
    QCOMPARE(m_engine->destroyedPlayers(), 1);
    QCOMPARE(recorder.texts(), QStringList{QStringLiteral("stateChanged(1)")});
    QCOMPARE(checker.transitions(), QStringList{QStringLiteral("1->1")});
    QCOMPARE(checker.violations(), QStringList());
    QCOMPARE(session.state(), Session::Player_Initialized);
    QCOMPARE(session.volume(), 0);
    QCOMPARE(session.isMuted(), true);
    QCOMPARE(m_engine->lastPlayer()->callBack(), static_cast<playback::SPPlayer::CallBack *>(d->mCallBack));
}

// Destroying a session releases the engine but leaves the service running.
void tst_SessionRelease::destructorKeepsServiceRunning()
{
    {
        Session session(QMediaPlayer::Flags{});
        m_properties->clearLog();
        m_engine->recorder().clear();
        m_log->clear();
    }
    QCOMPARE(m_properties->sets(), (QList<QPair<QByteArray, QByteArray>>{}));
    QCOMPARE(m_properties->gets(), QList<QByteArray>());
    QCOMPARE(m_properties->storedValue(kStatusKey), QByteArray("running"));
    QCOMPARE(m_engine->recorder().calls(), kEngineDown);
    ORVIC_COMPARE_LINES(m_log->lines(), (QStringList{QStringLiteral("V/OPSession ~QOrvicPlayerSessionPrivate(#) called"),
                                               QStringLiteral("V/OPSession release(#) called"),
                                               QStringLiteral("D/OPSession release(#):stop start "),
                                               QStringLiteral("D/OPSession release(#):stop:0 "),
                                               QStringLiteral("D/OPSession release(#):SPPlayer::destroy ")}));
    QCOMPARE(m_engine->livePlayers(), QList<ScriptedPlayer *>());
}

QTEST_GUILESS_MAIN(tst_SessionRelease)
#include "tst_sessionrelease.moc"
