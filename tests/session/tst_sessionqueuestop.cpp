// The session's command queue under stop(): on an idle queue, on the owner
// thread and from another one, with commands signalled, being posted or
// waiting; and a session destroyed with commands in flight.
//
// Thread tests order their threads with semaphores and with the log observer,
// which runs on the logging thread and may hold it at a known line; no sleeps.
#include "sessionqueuefixture.h"

#include <QtCore/QSemaphore>
#include <QtTest/QtTest>

#include <atomic>
#include <thread>

using namespace orvictest;
using namespace orvictest::sessionqueue;

class tst_SessionQueueStop : public QObject, protected SessionQueueFixture
{
    Q_OBJECT

private Q_SLOTS:
    void init() { setUp(); }
    void cleanup() { tearDown(); }

    void stopOnIdleQueue();
    void stopOnOwnerDeliversSignalledCommand();
    void stopOnOwnerWhileSenderIsPosting();
    void stopFromOtherThreadWaitsForPickup();
    void stopFromOtherThreadDropsPending();
    void destroyWithCommandsInFlight();
};

void tst_SessionQueueStop::stopOnIdleQueue()
{
    m_session->stop();
    ORVIC_COMPARE_LINES(frontLines(), (QStringList{kLock, kUnlock}));
    QCOMPARE(adaptorOperations().value(0), QStringLiteral("stop"));
    // The pending list is emptied before the adaptor stops.
    ORVIC_COMPARE_LINES(m_log->lines(), QStringList({kLock, kUnlock}) + kIdleEngineStop);
    QCOMPARE(m_checker->transitions(), QStringList({"1->3", "3->2"}));
    expectIdle();
    // The session stays usable.
    m_log->clear();
    m_session->manageActList(Session::Msg_Volume, 33);
    ORVIC_COMPARE_LINES(frontLines(), directLines(6));
    QVERIFY(m_log->contains(QStringLiteral("D/OPSession setVolume(#):set vol 33 org vol # ismute #")));
}

// stop() on the owner thread while a command from another thread is signalled
// but not picked up (and two more wait): the posted command is delivered by
// stop() itself instead of waiting for an event loop that stop() blocks; it is
// acknowledged and skipped, and so are the waiting ones it starts.
void tst_SessionQueueStop::stopOnOwnerDeliversSignalledCommand()
{
    std::thread t([&] {
        m_session->manageActList(Session::Msg_Volume, 11);
        m_session->manageActList(Session::Msg_Volume, 12);
        m_session->manageActList(Session::Msg_Muted, true);
    });
    t.join();
    QCOMPARE(d->mDispatchState.loadAcquire(), 1);
    QCOMPARE(pendingCount(m_session.get()), 2);
    QVERIFY(!d->mAckLock.tryLock());
    m_log->clear();

    m_session->stop();
    ORVIC_COMPARE_LINES(frontLines(), receivedLines(6) + receivedLines(6) + receivedLines(7) + QStringList({kLock, kUnlock}));
    // The skipped commands left no line of their operations.
    ORVIC_COMPARE_LINES(m_log->lines(), receivedLines(6) + receivedLines(6) + receivedLines(7)
                                            + QStringList({kLock, kUnlock}) + kIdleEngineStop);
    const QStringList ops = adaptorOperations();
    QVERIFY2(!ops.contains(QStringLiteral("setVolume")) && !ops.contains(QStringLiteral("setMuted")),
             qPrintable(ops.join(QLatin1Char(' '))));
    QCOMPARE(ops.value(0), QStringLiteral("stop"));
    for (const LogEntry &e : m_log->entries())
        QCOMPARE(e.thread, QThread::currentThread());
    expectIdle();

    // Nothing stale is left for the event loop.
    m_log->clear();
    QCoreApplication::processEvents();
    QCOMPARE(m_log->lines(), QStringList());
    m_session->manageActList(Session::Msg_Volume, 14);
    QVERIFY(m_log->contains(QStringLiteral("D/OPSession setVolume(#):set vol 14 org vol # ismute #")));
}

// As above, but stop() starts while the sender holds the acknowledge mutex and
// has not posted its command yet: stop() keeps delivering until it arrives.
void tst_SessionQueueStop::stopOnOwnerWhileSenderIsPosting()
{
    QSemaphore atGate;
    QSemaphore gate;
    QThread *owner = QThread::currentThread();
    m_log->setObserver([&](const LogEntry &e) {
        if (e.thread != owner && e.text.endsWith(QLatin1String(":send msg 6 "))) {
            atGate.release();
            gate.acquire();
        }
    });
    std::thread sender([&] { m_session->manageActList(Session::Msg_Volume, 13); });
    QVERIFY(atGate.tryAcquire(1, kWaitMs));
    QCOMPARE(d->mDispatchState.loadAcquire(), 1);
    QVERIFY(!d->mAckLock.tryLock());

    // Lets the sender post once stop() is under way.
    std::atomic<bool> sawStopping{false};
    std::thread releaser([&] {
        sawStopping = spinUntil([&] { return d->mIsStopping.loadAcquire(); });
        gate.release();
    });
    m_session->stop();
    sender.join();
    releaser.join();
    m_log->setObserver(nullptr);

    QVERIFY(sawStopping.load());
    ORVIC_COMPARE_LINES(frontLines(), QStringList({kLock, kUnlock, sendLine(6)}) + receivedLines(6) + QStringList({kLock, kUnlock}));
    ORVIC_COMPARE_LINES(m_log->lines(), QStringList({kLock, kUnlock, sendLine(6)}) + receivedLines(6)
                                            + QStringList({kLock, kUnlock}) + kIdleEngineStop);
    for (const LogEntry &e : m_log->entriesMatching(actLine(6)))
        QCOMPARE(e.thread, owner);
    QVERIFY(!adaptorOperations().contains(QStringLiteral("setVolume")));
    QCOMPARE(adaptorOperations().value(0), QStringLiteral("stop"));
    expectIdle();
}

// stop() from another thread waits until the signalled command has been picked
// up by the owner; the command, delivered while stop() runs, is skipped.
void tst_SessionQueueStop::stopFromOtherThreadWaitsForPickup()
{
    std::thread t1([&] { m_session->manageActList(Session::Msg_Volume, 21); });
    t1.join();
    m_log->clear();

    std::atomic<QThread *> stopper{nullptr};
    std::atomic<bool> stopReturned{false};
    std::thread t2([&] {
        stopper = QThread::currentThread();
        m_session->stop();
        stopReturned = true;
    });
    // The owner runs no event loop until the stopping flag is up.
    QVERIFY(spinUntil([&] { return d->mIsStopping.loadAcquire(); }));
    // Held at the acknowledge mutex: nothing done, nothing logged by the stopper.
    QVERIFY(!stopReturned.load());
    QCOMPARE(m_log->lines(), QStringList());
    QCOMPARE(pendingCount(m_session.get()), 0);

    QTRY_VERIFY_WITH_TIMEOUT(stopReturned.load(), kWaitMs);
    t2.join();
    const QList<LogEntry> entries = m_log->entries();
    QStringList ownerLines;
    QStringList stopperLines;
    for (const LogEntry &e : entries) {
        if (!isFrontLine(e))
            continue;
        (e.thread == stopper.load() ? stopperLines : ownerLines).append(e.text);
    }
    ORVIC_COMPARE_LINES(ownerLines, receivedLines(6));
    ORVIC_COMPARE_LINES(stopperLines, (QStringList{kLock, kUnlock}));
    // All the owner logged is the skipped command; all the stopper logged, the
    // emptied list and the adaptor's stop.
    QStringList allOwnerLines;
    QStringList allStopperLines;
    for (const LogEntry &e : entries)
        (e.thread == stopper.load() ? allStopperLines : allOwnerLines).append(e.text);
    ORVIC_COMPARE_LINES(allOwnerLines, receivedLines(6));
    ORVIC_COMPARE_LINES(allStopperLines, QStringList({kLock, kUnlock}) + kIdleEngineStop);
    // The stopper went on only after the acknowledge.
    QVERIFY(m_log->containsInOrder({ackLine(), kLock, kUnlock}));
    QVERIFY(!adaptorOperations().contains(QStringLiteral("setVolume")));
    bool stopOnStopper = false;
    for (const LogEntry &e : entries)
        stopOnStopper |= e.function.contains(QLatin1String("QOrvicPlayerSessionPrivate::stop(")) && e.thread == stopper.load();
    QVERIFY(stopOnStopper);
    expectIdle();
}

// stop() from another thread while the owner finishes a command and two more
// wait: the waiting ones are destroyed and never carried out.
void tst_SessionQueueStop::stopFromOtherThreadDropsPending()
{
    QThread *owner = QThread::currentThread();
    bool held = false;
    int waitingBeforeStop = -1;
    int waitingAfterStop = -1;
    m_log->setObserver([&](const LogEntry &e) {
        if (held || e.thread != owner || !e.text.endsWith(QLatin1String("done  10 check list")))
            return;
        held = true;
        std::thread t1([&] {
            m_session->manageActList(Session::Msg_Volume, 31);
            m_session->manageActList(Session::Msg_Volume, 32);
        });
        t1.join();
        waitingBeforeStop = pendingCount(m_session.get());
        std::thread t2([&] { m_session->stop(); });
        t2.join();
        waitingAfterStop = pendingCount(m_session.get());
    });
    m_session->manageActList(Session::Msg_ResumePlay, QVariant());
    m_log->setObserver(nullptr);

    QVERIFY(held);
    QCOMPARE(waitingBeforeStop, 2);
    QCOMPARE(waitingAfterStop, 0);
    QCOMPARE(m_log->count(addLine(6)), 2);
    QCOMPARE(m_log->count(QStringLiteral("D/OPSession actMessage(#):play session actMessage 6")), 0);
    QVERIFY(!adaptorOperations().contains(QStringLiteral("setVolume")));
    QVERIFY(adaptorOperations().contains(QStringLiteral("stop")));
    QCoreApplication::processEvents();
    QCOMPARE(m_log->count(QStringLiteral("D/OPSession actMessage(#):play session actMessage 6")), 0);
    expectIdle();
}

// A session destroyed with a command signalled but never picked up and more
// waiting: nothing runs, nothing leaks, no mutex is destroyed locked.
void tst_SessionQueueStop::destroyWithCommandsInFlight()
{
    std::thread t([&] {
        m_session->manageActList(Session::Msg_Volume, 41);
        m_session->manageActList(Session::Msg_Volume, 42);
    });
    t.join();
    QCOMPARE(d->mDispatchState.loadAcquire(), 1);
    m_session.reset();
    d = nullptr;
    QCoreApplication::processEvents();
    QCOMPARE(m_log->count(QStringLiteral("D/OPSession actMessage(#):play session actMessage #")), 0);
    QVERIFY(m_log->contains(QStringLiteral("V/OPSession ~QOrvicPlayerSessionPrivate(#) called")));
}

QTEST_GUILESS_MAIN(tst_SessionQueueStop)
#include "tst_sessionqueuestop.moc"
