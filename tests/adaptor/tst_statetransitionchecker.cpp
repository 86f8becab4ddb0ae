// The state-transition checker used by the adaptor tests must itself reject
// what the session's state machine forbids, and see a stored state that was
// never announced, or "no violations" would prove nothing.
#include "adaptorharness.h"

#include <QtTest/QtTest>

#include <thread>

using namespace orvictest;
using S = QOrvicPlayerSession;
using Cause = StateTransitionChecker::Cause;

Q_DECLARE_METATYPE(StateTransitionChecker::Cause)

namespace {
const QString kMovie = QStringLiteral("/media/movie.mkv");
}

class tst_StateTransitionChecker : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void anyCause_data();
    void anyCause();
    void byCause_data();
    void byCause();
    void silentStop_data();
    void silentStop();
    void causeOfLogLines_data();
    void causeOfLogLines();
    void recordsViolationsInOrder();
    void flagsForbiddenAnnouncementOfAnOperation();
    void flagsUnannouncedStoredState();
    void flagsUnannouncedStateAtTheEnd();
    void acceptsFailedOpen();
    void flagsSilentStopOfAStop();
    void acceptsTheIdleOfAnInitSeenFromAnotherThread();
    void realSessionPassesCleanly();
};

// Through some cause: which state may follow which.
void tst_StateTransitionChecker::anyCause_data()
{
    QTest::addColumn<int>("from");
    QTest::addColumn<int>("to");
    QTest::addColumn<bool>("ok");

    for (int from = S::Player_Idle; from <= S::Player_Pause; ++from) {
        QTest::addRow("%d->Initialized", from) << from << int(S::Player_Initialized) << true;
        QTest::addRow("%d->Preparing", from) << from << int(S::Player_Preparing) << true;
        QTest::addRow("%d->Play", from) << from << int(S::Player_Play) << true;
        QTest::addRow("%d->FF", from) << from << int(S::Player_FF) << true;
        QTest::addRow("%d->FB", from) << from << int(S::Player_FB) << true;
        QTest::addRow("%d->SF", from) << from << int(S::Player_SF) << true;
        QTest::addRow("%d->Pause", from) << from << int(S::Player_Pause) << true;
        QTest::addRow("%d->Idle", from) << from << int(S::Player_Idle) << (from == S::Player_Idle);
        QTest::addRow("%d->SB", from) << from << int(S::Player_SB) << (from == S::Player_SB);
        const bool prepared = from == S::Player_Preparing || from == S::Player_Prepared;  // or re-announced
        QTest::addRow("%d->Prepared", from) << from << int(S::Player_Prepared) << prepared;
        // Stop is announced only at the end of a stop (after Preparing), or re-announced.
        const bool stop = from == S::Player_Preparing || from == S::Player_Stop;
        QTest::addRow("%d->Stop", from) << from << int(S::Player_Stop) << stop;
    }
}

void tst_StateTransitionChecker::anyCause()
{
    QFETCH(int, from);
    QFETCH(int, to);
    QFETCH(bool, ok);
    QCOMPARE(StateTransitionChecker::allowed(S::PlayerState(from), S::PlayerState(to)), ok);
}

// Through a given operation or event.
void tst_StateTransitionChecker::byCause_data()
{
    QTest::addColumn<int>("from");
    QTest::addColumn<int>("to");
    QTest::addColumn<Cause>("cause");
    QTest::addColumn<bool>("ok");

    QTest::newRow("init: play -> initialized") << int(S::Player_Play) << int(S::Player_Initialized) << Cause::Init << true;
    QTest::newRow("init: initialized -> preparing") << int(S::Player_Initialized) << int(S::Player_Preparing) << Cause::Init << false;
    QTest::newRow("open: play -> preparing") << int(S::Player_Play) << int(S::Player_Preparing) << Cause::Open << true;
    QTest::newRow("open: preparing -> prepared") << int(S::Player_Preparing) << int(S::Player_Prepared) << Cause::Open << true;
    QTest::newRow("open: initialized -> prepared") << int(S::Player_Initialized) << int(S::Player_Prepared) << Cause::Open << false;
    QTest::newRow("open: preparing -> stop") << int(S::Player_Preparing) << int(S::Player_Stop) << Cause::Open << false;
    QTest::newRow("open: preparing -> pause") << int(S::Player_Preparing) << int(S::Player_Pause) << Cause::Open << false;
    QTest::newRow("open: preparing -> initialized") << int(S::Player_Preparing) << int(S::Player_Initialized) << Cause::Open << false;
    QTest::newRow("play: prepared -> play") << int(S::Player_Prepared) << int(S::Player_Play) << Cause::Play << true;
    QTest::newRow("play: pause -> play") << int(S::Player_Pause) << int(S::Player_Play) << Cause::Play << true;
    QTest::newRow("play: ff -> play") << int(S::Player_FF) << int(S::Player_Play) << Cause::Play << true;
    QTest::newRow("play: refused, re-announced") << int(S::Player_Initialized) << int(S::Player_Initialized) << Cause::Play << true;
    QTest::newRow("play: prepared -> pause") << int(S::Player_Prepared) << int(S::Player_Pause) << Cause::Play << false;
    QTest::newRow("play: prepared -> ff") << int(S::Player_Prepared) << int(S::Player_FF) << Cause::Play << false;
    QTest::newRow("pause: play -> pause") << int(S::Player_Play) << int(S::Player_Pause) << Cause::Pause << true;
    QTest::newRow("pause: play -> stop") << int(S::Player_Play) << int(S::Player_Stop) << Cause::Pause << false;
    QTest::newRow("stop: play -> preparing") << int(S::Player_Play) << int(S::Player_Preparing) << Cause::Stop << true;
    QTest::newRow("stop: preparing -> stop") << int(S::Player_Preparing) << int(S::Player_Stop) << Cause::Stop << true;
    QTest::newRow("stop: play -> stop") << int(S::Player_Play) << int(S::Player_Stop) << Cause::Stop << false;
    QTest::newRow("stop: preparing -> prepared") << int(S::Player_Preparing) << int(S::Player_Prepared) << Cause::Stop << false;
    QTest::newRow("rate: play -> fb") << int(S::Player_Play) << int(S::Player_FB) << Cause::Rate << true;
    QTest::newRow("rate: pause -> sf") << int(S::Player_Pause) << int(S::Player_SF) << Cause::Rate << true;
    QTest::newRow("rate: play -> sb") << int(S::Player_Play) << int(S::Player_SB) << Cause::Rate << false;
    QTest::newRow("rate: play -> pause") << int(S::Player_Play) << int(S::Player_Pause) << Cause::Rate << false;
    QTest::newRow("engine: preparing -> play") << int(S::Player_Preparing) << int(S::Player_Play) << Cause::EngineEvent << true;
    QTest::newRow("engine: play -> pause") << int(S::Player_Play) << int(S::Player_Pause) << Cause::EngineEvent << false;
    // The engine's report of playing may come while any operation runs.
    QTest::newRow("open: prepared -> play") << int(S::Player_Prepared) << int(S::Player_Play) << Cause::Open << true;
}

void tst_StateTransitionChecker::byCause()
{
    QFETCH(int, from);
    QFETCH(int, to);
    QFETCH(Cause, cause);
    QFETCH(bool, ok);
    QCOMPARE(StateTransitionChecker::allowed(S::PlayerState(from), S::PlayerState(to), cause), ok);
}

void tst_StateTransitionChecker::silentStop_data()
{
    QTest::addColumn<int>("from");
    QTest::addColumn<Cause>("cause");
    QTest::addColumn<bool>("ok");
    QTest::newRow("open from initialized") << int(S::Player_Initialized) << Cause::Open << true;
    QTest::newRow("open from preparing") << int(S::Player_Preparing) << Cause::Open << true;
    QTest::newRow("open from prepared") << int(S::Player_Prepared) << Cause::Open << false;
    QTest::newRow("play from prepared") << int(S::Player_Prepared) << Cause::Play << true;
    QTest::newRow("play from pause") << int(S::Player_Pause) << Cause::Play << true;
    QTest::newRow("play from initialized") << int(S::Player_Initialized) << Cause::Play << false;
    QTest::newRow("stop from play") << int(S::Player_Play) << Cause::Stop << false;
    QTest::newRow("pause from play") << int(S::Player_Play) << Cause::Pause << false;
    QTest::newRow("engine from play") << int(S::Player_Play) << Cause::EngineEvent << false;
    QTest::newRow("any from pause") << int(S::Player_Pause) << Cause::Unknown << true;
    // Play refuses to run in Play, and an open never fails from there.
    QTest::newRow("any from play") << int(S::Player_Play) << Cause::Unknown << false;
}

void tst_StateTransitionChecker::silentStop()
{
    QFETCH(int, from);
    QFETCH(Cause, cause);
    QFETCH(bool, ok);
    QCOMPARE(StateTransitionChecker::silentStop(S::PlayerState(from), cause), ok);
}

void tst_StateTransitionChecker::causeOfLogLines_data()
{
    QTest::addColumn<QString>("function");
    QTest::addColumn<Cause>("cause");
    QTest::newRow("setMedia") << "QOrvicPlayerSessionPrivate::setMedia" << Cause::Open;
    QTest::newRow("play") << "QOrvicPlayerSessionPrivate::play" << Cause::Play;
    QTest::newRow("stop") << "QOrvicPlayerSessionPrivate::stop" << Cause::Stop;
    QTest::newRow("rate") << "QOrvicPlayerSessionPrivate::setPlaybackRate" << Cause::Rate;
    QTest::newRow("init") << "QOrvicPlayerSessionPrivate::init" << Cause::Init;
    QTest::newRow("sink") << "MSPCBK_NavQueue::stateChanged" << Cause::EngineEvent;
    QTest::newRow("public stop") << "QOrvicPlayerSession::stop" << Cause::Unknown;
    QTest::newRow("list lock") << "QOrvicPlayerSessionPrivate::listLock" << Cause::Unknown;
}

void tst_StateTransitionChecker::causeOfLogLines()
{
    QFETCH(QString, function);
    QFETCH(Cause, cause);
    QCOMPARE(StateTransitionChecker::causeOf(function), cause);
}

void tst_StateTransitionChecker::recordsViolationsInOrder()
{
    AdaptorHarness h;
    h.start();
    StateTransitionChecker checker(h.session.get());   // starts at Initialized
    checker.observe(S::Player_Prepared);                 // 1->4: not prepared by an open
    checker.observe(S::Player_Play, Cause::Play);        // 4->5
    checker.observe(S::Player_Stop, Cause::Stop);        // 5->2: no stop in between
    checker.observe(S::Player_SB, Cause::Rate);          // 2->9
    checker.observe(S::Player_Initialized, Cause::Init); // 9->1
    QCOMPARE(checker.transitions(), QStringList({"1->4", "4->5", "5->2", "2->9", "9->1"}));
    QCOMPARE(checker.violations(), QStringList({"1->4", "5->2 (stop)", "2->9 (rate)"}));
}

void tst_StateTransitionChecker::flagsForbiddenAnnouncementOfAnOperation()
{
    // A play that announced Prepared: allowed for an open, not for a play.
    AdaptorHarness h;
    h.start();
    StateTransitionChecker checker(h.session.get(), h.log.get());
    h.d->play();                             // refused in Initialized: re-announced
    h.d->setState(S::Player_Prepared);       // the last line logged was play's
    QCOMPARE(checker.transitions(), QStringList({"1->1", "1->4"}));
    QCOMPARE(checker.violations(), QStringList({"1->4 (play)"}));
    h.d->mCurrentState = S::Player_Initialized;
}

void tst_StateTransitionChecker::flagsUnannouncedStoredState()
{
    AdaptorHarness h;
    h.start();
    StateTransitionChecker checker(h.session.get(), h.log.get());
    h.d->mCurrentState = S::Player_Play;     // stored, never announced
    h.d->seek(1000);                         // the session logs: the checker looks
    QCOMPARE(checker.violations(), QStringList({"unannounced 1->5 (?)"}));
    // Counted once, not again at every line.
    h.d->seek(2000);
    QCOMPARE(checker.violations(), QStringList({"unannounced 1->5 (?)"}));
    h.d->mCurrentState = S::Player_Initialized;
}

void tst_StateTransitionChecker::flagsUnannouncedStateAtTheEnd()
{
    // Also without a log capture: the stored state is compared at the end.
    AdaptorHarness h;
    h.start();
    StateTransitionChecker checker(h.session.get());
    h.d->mCurrentState = S::Player_Pause;
    QCOMPARE(checker.transitions(), QStringList());
    QCOMPARE(checker.violations(), QStringList({"unannounced 1->10 (end)"}));
    h.d->mCurrentState = S::Player_Initialized;
    QCOMPARE(checker.violations(), QStringList());
}

void tst_StateTransitionChecker::acceptsFailedOpen()
{
    // A refused URL stores Stop without an announcement; the error tells the client.
    AdaptorHarness h;
    h.useMedium(Medium::LocalVideo);
    h.start();
    h.player()->script().push("setUrl", -1);
    StateTransitionChecker checker(h.session.get(), h.log.get());
    h.d->setMedia(kMovie);
    QCOMPARE(h.session->state(), S::Player_Stop);
    QCOMPARE(checker.transitions(), QStringList({"1->2 silently"}));
    QCOMPARE(checker.violations(), QStringList());
}

void tst_StateTransitionChecker::flagsSilentStopOfAStop()
{
    // A stop must announce its end; stored silently, it is flagged.
    AdaptorHarness h;
    h.useMedium(Medium::LocalVideo);
    h.start();
    h.openAndPlay(kMovie);
    h.player()->script().setDefault("getState", int(playback::SPPlayer::STATE_PLAYING));
    StateTransitionChecker checker(h.session.get(), h.log.get());
    h.player()->setHook("reset", [&h] {
        h.d->mCurrentState = S::Player_Stop;
        Q_EMIT h.session->error(1, QStringLiteral("video format not support"));
    });
    h.d->stop();
    QCOMPARE(checker.transitions(), QStringList({"5->3", "3->2 silently", "2->2"}));
    // ... and its own announcement of Stop then follows Stop, not Preparing.
    QCOMPARE(checker.violations(), QStringList({"unannounced 3->2 (stop)", "2->2 (stop)"}));
}

// An init (here of a restart) stores Idle on its way to Initialized. A line
// that another thread logs meanwhile (a client's call, a time update) sees
// Idle stored: that is the init's, not a state that was never announced.
void tst_StateTransitionChecker::acceptsTheIdleOfAnInitSeenFromAnotherThread()
{
    AdaptorHarness h;
    h.useMedium(Medium::LocalVideo);
    h.start();
    h.openAndPlay(kMovie);
    StateTransitionChecker checker(h.session.get(), h.log.get());
    // The init's reset of the stream counts is signalled between its Idle
    // and its Initialized, on its own thread.
    S::PlayerState storedMeanwhile = S::Player_Play;
    QObject::connect(h.session.get(), &S::videoAvailableChanged, h.session.get(), [&] {
        storedMeanwhile = h.session->state();
        std::thread([] {
            QMessageLogger("qorvicplayersession", 1, "void anotherThread()", "default")
                    .debug("D/OPSession anotherThread(1):a line meanwhile");
        }).join();
    }, Qt::DirectConnection);
    h.d->reset();
    QCOMPARE(storedMeanwhile, S::Player_Idle);
    QCOMPARE(checker.transitions(), QStringList({"5->1"}));
    QCOMPARE(checker.violations(), QStringList());
    // Once the init is over, a stored Idle is flagged again.
    h.d->mCurrentState = S::Player_Idle;
    std::thread([] {
        QMessageLogger("qorvicplayersession", 1, "void anotherThread()", "default")
                .debug("D/OPSession anotherThread(1):a line after");
    }).join();
    QCOMPARE(checker.violations(), QStringList({"unannounced 1->0 (?)"}));
    h.d->mCurrentState = S::Player_Initialized;
}

void tst_StateTransitionChecker::realSessionPassesCleanly()
{
    // Open, play, trick play, pause, a refused play, stop, reopen by play, restart.
    AdaptorHarness h;
    h.useMedium(Medium::LocalVideo);
    h.start();
    StateTransitionChecker checker(h.session.get(), h.log.get());
    h.d->setMedia(kMovie);
    h.d->play();
    h.d->setPlaybackRate(2.0);
    h.d->play();
    h.d->pause();
    h.d->play();
    h.d->play();
    h.d->stop();
    h.d->play();
    h.player()->callBack()->stateChanged(playback::SPPlayer::STATE_PLAYING);
    h.d->reset();
    QCOMPARE(checker.transitions(),
             QStringList({"1->3", "3->4", "4->5", "5->6", "6->5", "5->10", "10->5", "5->5", "5->3", "3->2",
                          "2->3", "3->4", "4->5", "5->5", "5->1"}));
    QCOMPARE(checker.violations(), QStringList());
}

QTEST_GUILESS_MAIN(tst_StateTransitionChecker)
#include "tst_statetransitionchecker.moc"
