// The session's command queue: hand-over, acknowledge, pending list, the
// dispatch to the adaptor and the message-wait gate. stop() and destruction
// with commands in flight are in tst_sessionqueuestop.
//
// Thread tests order their threads with semaphores and with the log observer,
// which runs on the logging thread and may hold it at a known line; no sleeps.
#include "sessionqueuefixture.h"
#include "sessionrecorder.h"

#include <QtCore/QSemaphore>
#include <QtTest/QtTest>

#include <atomic>
#include <random>
#include <thread>
#include <vector>

using namespace orvictest;
using namespace orvictest::sessionqueue;

class tst_SessionQueue : public QObject, protected SessionQueueFixture
{
    Q_OBJECT

private Q_SLOTS:
    void init() { setUp(); }
    void cleanup() { tearDown(); }

    void ownerThreadRunsBeforeReturn();
    void otherThreadRunsLaterOnOwner();
    void commandsGivenWhileOneRunsFollowInOrder();
    void handleMessageIgnoresParam1_data();
    void handleMessageIgnoresParam1();
    void bookkeepingOnly_data();
    void bookkeepingOnly();
    void dispatchTable_data();
    void dispatchTable();
    void parameterConversion_data();
    void parameterConversion();
    void stressManyThreads();

    void messageWaitGateOpen();
    void messageWaitGateArmed();
};

void tst_SessionQueue::ownerThreadRunsBeforeReturn()
{
    m_session->manageActList(Session::Msg_Volume, 30);
    // No event loop ran: everything happened inside the call.
    ORVIC_COMPARE_LINES(frontLines(), directLines(6));
    QVERIFY(m_log->containsInOrder({ackLine(), QStringLiteral("D/OPSession setVolume(#):set vol 30 org vol # ismute #"),
                                    doneLine(6)}));
    for (const LogEntry &e : m_log->entries())
        QCOMPARE(e.thread, QThread::currentThread());
    expectIdle();
}

void tst_SessionQueue::otherThreadRunsLaterOnOwner()
{
    QThread *sender = nullptr;
    std::thread t([&] {
        sender = QThread::currentThread();
        m_session->manageActList(Session::Msg_Volume, 40);
    });
    t.join();
    // Signalled, not picked up: the acknowledge mutex stays locked.
    ORVIC_COMPARE_LINES(frontLines(), (QStringList{kLock, kUnlock, sendLine(6)}));
    QCOMPARE(d->mDispatchState.loadAcquire(), 1);
    QVERIFY(!d->mAckLock.tryLock());

    QTRY_VERIFY_WITH_TIMEOUT(m_log->contains(doneLine(6)), kWaitMs);
    ORVIC_COMPARE_LINES(frontLines(), QStringList({kLock, kUnlock, sendLine(6)}) + receivedLines(6));
    const QList<LogEntry> entries = m_log->entries();
    for (int i = 0; i < entries.size(); ++i)
        QCOMPARE(entries.at(i).thread, i < 3 ? sender : QThread::currentThread());
    QVERIFY(m_log->contains(QStringLiteral("D/OPSession setVolume(#):set vol 40 org vol # ismute #")));
    expectIdle();
}

// Two Msg_Volume given (from another thread) while a Msg_SetMedia runs are
// appended, and carried out in order after it, on the owner thread, before the
// owner's manageActList returns.
void tst_SessionQueue::commandsGivenWhileOneRunsFollowInOrder()
{
    QThread *owner = QThread::currentThread();
    bool given = false;
    int waitingAfterGiving = -1;
    m_log->setObserver([&](const LogEntry &e) {
        if (given || e.thread != owner || !LogCapture::pattern(QStringLiteral("V/OPSession setMedia(#) called")).match(e.text).hasMatch())
            return;
        given = true;
        std::thread t([&] {
            m_session->manageActList(Session::Msg_Volume, 10);
            m_session->manageActList(Session::Msg_Volume, 20);
        });
        t.join();
        waitingAfterGiving = pendingCount(m_session.get());
    });
    m_session->manageActList(Session::Msg_SetMedia, QStringLiteral("/media/a.mp4"));
    m_log->setObserver(nullptr);

    QVERIFY(given);
    QCOMPARE(waitingAfterGiving, 2);
    ORVIC_COMPARE_LINES(frontLines(), QStringList({kLock, kUnlock, sendLine(0), handleLine(0), actLine(0), ackLine()})
                                    + QStringList({kLock, addLine(6), addDoneLine(), kUnlock})
                                    + QStringList({kLock, addLine(6), addDoneLine(), kUnlock})
                                    + QStringList({doneLine(0), kLock, kUnlock})
                                    + receivedLines(6) + receivedLines(6));
    // The open ran between its acknowledge and its done line, the two
    // volumes after it.
    QVERIFY(m_log->containsInOrder({ackLine(), QStringLiteral("V/OPSession setMedia(#) called"),
                                    QStringLiteral("D/OPSession setMedia(#):setmedia::/media/a.mp4 "), doneLine(0)}));
    QVERIFY(m_log->containsInOrder({doneLine(0), actLine(6), ackLine(),
                                    QStringLiteral("D/OPSession setVolume(#):set vol 10 org vol # ismute #"),
                                    doneLine(6), actLine(6), ackLine(),
                                    QStringLiteral("D/OPSession setVolume(#):set vol 20 org vol # ismute #"),
                                    doneLine(6)}));
    for (const LogEntry &e : m_log->entriesMatching(QStringLiteral("D/OPSession actMessage(#):play session actMessage #")))
        QCOMPARE(e.thread, owner);
    expectIdle();
}

void tst_SessionQueue::handleMessageIgnoresParam1_data()
{
    QTest::addColumn<QVariant>("param1");
    QTest::newRow("int 0") << QVariant(0);
    QTest::newRow("int 42") << QVariant(42);
    QTest::newRow("string") << QVariant(QStringLiteral("volume 99"));
    QTest::newRow("invalid") << QVariant();
    QTest::newRow("map") << QVariant(QVariantMap{{QStringLiteral("k"), 1}});
    QTest::newRow("double") << QVariant(-1.5);
}

// handleMessage hands on only param0; the command behaves exactly as with an int 0.
void tst_SessionQueue::handleMessageIgnoresParam1()
{
    QFETCH(QVariant, param1);
    m_session->handleMessage(Session::Msg_Volume, 55, param1);
    ORVIC_COMPARE_LINES(frontLines(), receivedLines(6));
    ORVIC_COMPARE_LINES(m_log->linesFrom(QStringLiteral("QOrvicPlayerSessionPrivate::setVolume(")).mid(0, 2),
                  (QStringList{QStringLiteral("V/OPSession setVolume(#) called"),
                               QStringLiteral("D/OPSession setVolume(#):set vol 55 org vol 0 ismute 1")}));
    expectIdle();
}

void tst_SessionQueue::bookkeepingOnly_data()
{
    QTest::addColumn<int>("id");
    QTest::addColumn<QVariant>("param");
    QTest::newRow("Msg_Stop") << int(Session::Msg_Stop) << QVariant(1);
    QTest::newRow("Msg_ResumePlay") << int(Session::Msg_ResumePlay) << QVariant(qlonglong(5000));
    QTest::newRow("Msg_AudioCodecList") << int(Session::Msg_AudioCodecList) << QVariant(QStringLiteral("aac"));
    QTest::newRow("Msg_VideoCodecList") << int(Session::Msg_VideoCodecList) << QVariant();
    QTest::newRow("Msg_ContainerList") << int(Session::Msg_ContainerList) << QVariant(true);
    QTest::newRow("Msg_Unknown") << int(Session::Msg_Unknown) << QVariant(7);
    QTest::newRow("19 (above Msg_Unknown)") << 19 << QVariant(7);
    QTest::newRow("31 (above Msg_Unknown)") << 31 << QVariant(7);
}

// These ids do the bookkeeping and log, and nothing else: no adaptor
// operation, no engine call, no signal, no state change.
void tst_SessionQueue::bookkeepingOnly()
{
    QFETCH(int, id);
    QFETCH(QVariant, param);
    SessionRecorder recorder(m_session.get());
    const Session::PlayerState state = m_session->state();

    m_session->manageActList(msg(id), param);
    ORVIC_COMPARE_LINES(m_log->lines(), directLines(id));
    QCOMPARE(m_engine->recorder().calls(), QStringList());
    QCOMPARE(recorder.texts(), QStringList());
    QCOMPARE(m_session->state(), state);
    expectIdle();

    // The same from another thread, worked off on the owner thread.
    m_log->clear();
    std::thread t([&] { m_session->manageActList(msg(id), param); });
    t.join();
    QTRY_VERIFY_WITH_TIMEOUT(m_log->contains(doneLine(id)), kWaitMs);
    ORVIC_COMPARE_LINES(m_log->lines(), QStringList({kLock, kUnlock, sendLine(id)}) + receivedLines(id));
    QCOMPARE(m_engine->recorder().calls(), QStringList());
    QCOMPARE(recorder.texts(), QStringList());
    expectIdle();
}

void tst_SessionQueue::dispatchTable_data()
{
    QTest::addColumn<int>("id");
    QTest::addColumn<QVariant>("param");
    QTest::addColumn<QString>("operation");
    // The lines each operation is documented to begin with.
    QTest::addColumn<QStringList>("opening");
    const auto called = [](const char *op) { return QStringList{QStringLiteral("V/OPSession %1(#) called").arg(QLatin1String(op))}; };
    QMediaPlayer::ResumeData resume{};
    QTest::newRow("Msg_SetMedia") << int(Session::Msg_SetMedia) << QVariant(QStringLiteral("/media/b.mp3")) << "setMedia"
                                  << called("setMedia") + QStringList{QStringLiteral("D/OPSession setMedia(#):setmedia::/media/b.mp3 ")};
    QTest::newRow("Msg_PlayBackRate") << int(Session::Msg_PlayBackRate) << QVariant(2.0) << "setPlaybackRate"
                                      << QStringList{QStringLiteral("D/OPSession setPlaybackRate(#):rate:2.000000")};
    QTest::newRow("Msg_Position") << int(Session::Msg_Position) << QVariant(qlonglong(5000)) << "seek" << called("seek");
    QTest::newRow("Msg_Play") << int(Session::Msg_Play) << QVariant() << "play" << called("play");
    QTest::newRow("Msg_Pause") << int(Session::Msg_Pause) << QVariant() << "pause" << called("pause");
    QTest::newRow("Msg_Volume") << int(Session::Msg_Volume) << QVariant(50) << "setVolume"
                                << called("setVolume") + QStringList{QStringLiteral("D/OPSession setVolume(#):set vol 50 org vol 0 ismute 1")};
    QTest::newRow("Msg_Muted") << int(Session::Msg_Muted) << QVariant(true) << "setMuted" << called("setMuted");
    QTest::newRow("Msg_SubtitleNum") << int(Session::Msg_SubtitleNum) << QVariant(1) << "setSubtitleNum" << called("setSubtitleNum");
    QTest::newRow("Msg_AudioStream") << int(Session::Msg_AudioStream) << QVariant(1) << "setAudioStream" << called("setAudioStream");
    QTest::newRow("Msg_SubtitleOnOff") << int(Session::Msg_SubtitleOnOff) << QVariant(false) << "setSubtitleOnOff"
                                       << called("setSubtitleOnOff");
    // setResumeData is empty by design: nothing to see but the queue's own lines.
    QTest::newRow("Msg_setResumeData") << int(Session::Msg_setResumeData) << QVariant::fromValue(resume) << QString()
                                       << QStringList();
    QTest::newRow("Msg_SetVideoOnOff") << int(Session::Msg_SetVideoOnOff) << QVariant(true) << "setVideoOnOff"
                                       << called("setVideoOnOff");
    QTest::newRow("Msg_SetAudioOnOff") << int(Session::Msg_SetAudioOnOff) << QVariant(false) << "setAudioOnOff"
                                       << called("setAudioOnOff");
}

// Each command reaches its adaptor operation, first thing after the acknowledge.
void tst_SessionQueue::dispatchTable()
{
    QFETCH(int, id);
    QFETCH(QVariant, param);
    QFETCH(QString, operation);
    QFETCH(QStringList, opening);
    m_session->manageActList(msg(id), param);
    ORVIC_COMPARE_LINES(frontLines(), directLines(id));
    const QStringList ops = adaptorOperations();
    if (operation.isEmpty()) {
        QCOMPARE(ops, QStringList());
        ORVIC_COMPARE_LINES(m_log->lines(), directLines(id));
        return;
    }
    QVERIFY2(!ops.isEmpty() && ops.first() == operation, qPrintable(ops.join(QLatin1Char(' '))));
    const QString signature = QStringLiteral("QOrvicPlayerSessionPrivate::%1(").arg(operation);
    ORVIC_COMPARE_LINES(m_log->linesFrom(signature).mid(0, opening.size()), opening);
    // Right after the acknowledge, and done before the done line.
    const int ack = m_log->indexOf(ackLine());
    const int done = m_log->indexOf(doneLine(id));
    const QList<LogEntry> entries = m_log->entries();
    int first = -1;
    for (int i = 0; i < entries.size() && first < 0; ++i) {
        if (entries.at(i).function.contains(signature))
            first = i;
    }
    QVERIFY(ack >= 0 && first == ack + 1 && first < done);
}

void tst_SessionQueue::parameterConversion_data()
{
    QTest::addColumn<QVariant>("param");
    QTest::addColumn<int>("volume");
    QTest::newRow("int") << QVariant(25) << 25;
    QTest::newRow("numeric string") << QVariant(QStringLiteral("25")) << 25;
    QTest::newRow("double") << QVariant(25.25) << 25;
    QTest::newRow("long long") << QVariant(qlonglong(30)) << 30;
    QTest::newRow("bool") << QVariant(true) << 1;
    QTest::newRow("text converts to 0") << QVariant(QStringLiteral("loud")) << 0;
    QTest::newRow("invalid converts to 0") << QVariant() << 0;
    QTest::newRow("map converts to 0") << QVariant(QVariantMap()) << 0;
}

void tst_SessionQueue::parameterConversion()
{
    QFETCH(QVariant, param);
    QFETCH(int, volume);
    m_session->manageActList(Session::Msg_Volume, param);
    QCOMPARE(m_log->count(QStringLiteral("D/OPSession setVolume(#):set vol %1 org vol # ismute #").arg(volume)), 1);
}

// Several threads and the owner give thousands of commands at once. Every
// command is carried out exactly once, on the owner thread, and the commands
// of each thread in the order that thread gave them. Each source uses ids of
// its own (bookkeeping-only ones), chosen pseudo-randomly, so its order can be
// read back from the queue's own log lines.
void tst_SessionQueue::stressManyThreads()
{
    const int workers = 4;
    const int perWorker = 1000;
    const int byOwner = 400;
    const QVector<QVector<int>> ids = {
        {5, 10, 13}, {14, 15, 18}, {19, 20, 21}, {22, 23, 24}, {25, 26, 27}};  // owner first
    QVector<QVector<int>> given(workers + 1);
    for (int source = 0; source <= workers; ++source) {
        std::minstd_rand random(unsigned(source + 1));
        const int n = source == 0 ? byOwner : perWorker;
        for (int i = 0; i < n; ++i)
            given[source].append(ids[source][int(random() % 3)]);
    }
    const int total = byOwner + workers * perWorker;

    std::atomic<int> done{0};
    std::atomic<int> offOwner{0};
    QThread *owner = QThread::currentThread();
    m_log->setObserver([&](const LogEntry &e) {
        if (e.text.endsWith(QLatin1String(" check list"))) {
            done.fetch_add(1);
            if (e.thread != owner)
                offOwner.fetch_add(1);
        }
    });

    QSemaphore go;
    std::vector<std::thread> threads;
    for (int w = 1; w <= workers; ++w) {
        threads.emplace_back([&, w] {
            go.acquire();
            for (int id : qAsConst(given[w]))
                m_session->manageActList(msg(id), id);
        });
    }
    go.release(workers);
    for (int id : qAsConst(given[0])) {
        m_session->manageActList(msg(id), id);
        QCoreApplication::processEvents();
    }
    for (std::thread &t : threads)
        t.join();
    QTRY_COMPARE_WITH_TIMEOUT(done.load(), total, 120000);
    m_log->setObserver(nullptr);
    QCOMPARE(offOwner.load(), 0);

    // Read the order of execution back and split it by source.
    QVector<QVector<int>> executed(workers + 1);
    int handled = 0;
    const QRegularExpression act(QStringLiteral("^D/OPSession actMessage\\(\\d+\\):play session actMessage (\\d+)$"));
    for (const LogEntry &e : m_log->entries()) {
        const QRegularExpressionMatch m = act.match(e.text);
        if (!m.hasMatch())
            continue;
        QCOMPARE(e.thread, owner);
        const int id = m.captured(1).toInt();
        for (int source = 0; source <= workers; ++source) {
            if (ids[source].contains(id))
                executed[source].append(id);
        }
        ++handled;
    }
    QCOMPARE(handled, total);
    for (int source = 0; source <= workers; ++source)
        QVERIFY2(executed[source] == given[source], qPrintable(QStringLiteral("source %1").arg(source)));
    // Every command was either signalled or appended, exactly once.
    QCOMPARE(m_log->count(QStringLiteral("D/OPSession manageActList(#):send msg # "))
                 + m_log->count(QStringLiteral("D/OPSession manageActList(#):add list # ")),
             total);
    QCOMPARE(m_log->count(addDoneLine()), m_log->count(QStringLiteral("D/OPSession manageActList(#):add list # ")));
    QCOMPARE(m_log->count(QStringLiteral("D/OPSession handleMessage(#):play session handleMessage #")), total);
    QCOMPARE(m_log->count(ackLine()), total);
    expectIdle();
}

void tst_SessionQueue::messageWaitGateOpen()
{
    m_session->waitMessageDone();
    ORVIC_COMPARE_LINES(m_log->lines(), (QStringList{QStringLiteral("D/OPSession waitMessageDone(#):wait msg lock"),
                                               QStringLiteral("D/OPSession waitMessageDone(#):wait msg unlock")}));
    QVERIFY(d->mMessageWaitLock.tryLock());
    d->mMessageWaitLock.unlock();
}

// enableMessageWait arms the gate; a waiter on another thread passes only when
// the holder lets go. The queue never touches the gate.
void tst_SessionQueue::messageWaitGateArmed()
{
    m_session->enableMessageWait();
    ORVIC_COMPARE_LINES(m_log->lines(), (QStringList{QStringLiteral("D/OPSession enableMessageWait(#):start"),
                                               QStringLiteral("D/OPSession enableMessageWait(#):end")}));
    QVERIFY(!d->mMessageWaitLock.tryLock());

    // Commands go on while the gate is armed.
    m_log->clear();
    m_session->manageActList(Session::Msg_ResumePlay, QVariant());
    ORVIC_COMPARE_LINES(m_log->lines(), directLines(10));
    QVERIFY(!d->mMessageWaitLock.tryLock());

    m_log->clear();
    std::atomic<bool> passed{false};
    std::thread waiter([&] {
        m_session->waitMessageDone();
        passed = true;
    });
    QTRY_VERIFY_WITH_TIMEOUT(m_log->contains(QStringLiteral("D/OPSession waitMessageDone(#):wait msg lock")), kWaitMs);
    // Still held by this thread: the waiter cannot have passed.
    QVERIFY(!passed.load());
    QVERIFY(!m_log->contains(QStringLiteral("D/OPSession waitMessageDone(#):wait msg unlock")));
    d->mMessageWaitLock.unlock();
    waiter.join();
    QVERIFY(passed.load());
    ORVIC_COMPARE_LINES(m_log->lines(), (QStringList{QStringLiteral("D/OPSession waitMessageDone(#):wait msg lock"),
                                               QStringLiteral("D/OPSession waitMessageDone(#):wait msg unlock")}));
    QVERIFY(d->mMessageWaitLock.tryLock());
    d->mMessageWaitLock.unlock();
}

QTEST_GUILESS_MAIN(tst_SessionQueue)
#include "tst_sessionqueue.moc"
