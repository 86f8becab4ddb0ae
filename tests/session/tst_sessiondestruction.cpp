// Destroying a session in the ways that are allowed: deleteLater() from a
// slot of its own signal while a command runs, deleteLater() from another
// thread while a command of that thread is posted, and a plain delete on the
// owner thread with the message-wait gate armed (with and without a thread
// waiting at it). None may touch freed memory or leave a mutex locked.
#include "adaptorharness.h"

#include <QtCore/QPointer>
#include <QtTest/QtTest>

#include <atomic>
#include <thread>

using namespace orvictest;
using S = QOrvicPlayerSession;

namespace {
const QString kMovie = QStringLiteral("/media/movie.mkv");
const QString kLockedMutex = QStringLiteral("QMutex: destroying locked mutex");
const QStringList kRelease = {"stop()", "SPPlayer::destroy", "SPMetaData::destroy"};

// Runs an event loop until what is posted now has been delivered, as an
// application's loop would: posted calls and deferred deletions in the order
// they were posted.
void deliverPosted()
{
    QEventLoop loop;
    QMetaObject::invokeMethod(&loop, &QEventLoop::quit, Qt::QueuedConnection);
    loop.exec();
}
} // namespace

class tst_SessionDestruction : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void deleteLaterFromOwnSignalWhileCommandRuns_data();
    void deleteLaterFromOwnSignalWhileCommandRuns();
    void deleteLaterFromAnotherThreadWithCommandPosted_data();
    void deleteLaterFromAnotherThreadWithCommandPosted();
    void deleteWithMessageWaitGateArmed_data();
    void deleteWithMessageWaitGateArmed();

private:
    // Hands the session over to Qt's deferred deletion: the harness no
    // longer owns it.
    QOrvicPlayerSession *releaseSession();

    std::unique_ptr<AdaptorHarness> h;
};

void tst_SessionDestruction::init()
{
    h.reset(new AdaptorHarness);
    h->useMedium(Medium::LocalVideo);
    // An audible engine, so that volume commands reach it.
    h->alsoForNewPlayers([](ScriptedPlayer *p) { p->script().setDefault("getVolume", 50); });
    h->start();
}

void tst_SessionDestruction::cleanup()
{
    QCOMPARE(closeHarness(h), QString());
}

QOrvicPlayerSession *tst_SessionDestruction::releaseSession()
{
    h->checker.reset();
    h->d = nullptr;
    return h->session.release();
}

void tst_SessionDestruction::deleteLaterFromOwnSignalWhileCommandRuns_data()
{
    QTest::addColumn<bool>("morePending");
    QTest::newRow("last command") << false;
    QTest::newRow("with a command waiting") << true;
}

// The slot asks for deletion in the middle of an open: the open, and a
// command waiting behind it, are carried out; the session goes when the
// event loop next runs, with nothing left locked.
void tst_SessionDestruction::deleteLaterFromOwnSignalWhileCommandRuns()
{
    QFETCH(bool, morePending);
    QOrvicPlayerSession *session = releaseSession();
    QPointer<QOrvicPlayerSession> alive(session);
    bool asked = false;
    QObject::connect(session, &S::stateChanged, session, [&](S::PlayerState state) {
        if (state != S::Player_Preparing || asked)
            return;
        asked = true;
        if (morePending)
            session->manageActList(S::Msg_Volume, QVariant(20));
        session->deleteLater();
    }, Qt::DirectConnection);

    session->manageActList(S::Msg_SetMedia, QVariant(kMovie));
    QVERIFY(asked);
    QVERIFY(alive);
    QCOMPARE(session->state(), S::Player_Prepared);
    QStringList expected = media::localOpenCalls(kMovie);
    if (morePending)
        expected << "setStreamVolume(20)";
    QCOMPARE(h->transportCalls(), expected);

    deliverPosted();
    QVERIFY(!alive);
    QCOMPARE(h->log->count(kLockedMutex), 0);
    QCOMPARE(h->transportCalls(), expected + kRelease);
    QVERIFY(h->log->contains(QStringLiteral("V/OPSession ~QOrvicPlayerSessionPrivate(#) called")));
}

void tst_SessionDestruction::deleteLaterFromAnotherThreadWithCommandPosted_data()
{
    QTest::addColumn<bool>("deleteFirst");
    QTest::newRow("command posted, then deleteLater") << false;
    QTest::newRow("deleteLater, then a command posted") << true;
}

// A client thread posts a command and asks for deletion (or another thread
// asks first). The owner thread delivers in posting order: a command posted
// before the deletion is carried out, one posted after it goes with the
// session, and the acknowledge mutex it held is not left locked.
void tst_SessionDestruction::deleteLaterFromAnotherThreadWithCommandPosted()
{
    QFETCH(bool, deleteFirst);
    QOrvicPlayerSession *session = releaseSession();
    QPointer<QOrvicPlayerSession> alive(session);

    std::thread client([session, deleteFirst] {
        if (deleteFirst)
            session->deleteLater();
        session->manageActList(S::Msg_Volume, QVariant(70));
        if (!deleteFirst)
            session->deleteLater();
    });
    client.join();
    QVERIFY(alive);
    QCOMPARE(h->engine.recorder().count(QStringLiteral("setStreamVolume")), 0);

    deliverPosted();
    QVERIFY(!alive);
    QCOMPARE(h->transportCalls(), deleteFirst ? kRelease : QStringList({"setStreamVolume(70)"}) + kRelease);
    QCOMPARE(h->log->count(QStringLiteral("D/OPSession actMessage(#):play session actMessage 6")), deleteFirst ? 0 : 1);
    QCOMPARE(h->log->count(kLockedMutex), 0);
}

void tst_SessionDestruction::deleteWithMessageWaitGateArmed_data()
{
    QTest::addColumn<bool>("withWaiter");
    QTest::newRow("armed") << false;
    QTest::newRow("armed, a thread waiting") << true;
}

// A plain delete on the owner thread while the gate is armed: the gate is
// opened, a thread waiting at it passes and returns, and no mutex is
// destroyed locked.
void tst_SessionDestruction::deleteWithMessageWaitGateArmed()
{
    QFETCH(bool, withWaiter);
    QOrvicPlayerSession *session = releaseSession();
    session->enableMessageWait();

    std::atomic<bool> waiterAtGate{false};
    std::atomic<bool> passed{false};
    std::thread waiter;
    if (withWaiter) {
        h->log->setObserver([&](const LogEntry &entry) {
            if (entry.text.startsWith(QLatin1String("D/OPSession waitMessageDone(")) && entry.text.endsWith(QLatin1String(":wait msg lock")))
                waiterAtGate = true;
        });
        waiter = std::thread([&] {
            session->waitMessageDone();
            passed = true;
        });
        while (!waiterAtGate.load())
            QThread::yieldCurrentThread();
        QVERIFY(!passed.load());
    }

    delete session;
    if (withWaiter) {
        waiter.join();
        QVERIFY(passed.load());
        QVERIFY(h->log->contains(QStringLiteral("D/OPSession waitMessageDone(#):wait msg unlock")));
    }
    h->log->setObserver(nullptr);
    QCOMPARE(h->log->count(kLockedMutex), 0);
    QVERIFY(h->log->contains(QStringLiteral("V/OPSession ~QOrvicPlayerSessionPrivate(#) called")));
}

QTEST_GUILESS_MAIN(tst_SessionDestruction)
#include "tst_sessiondestruction.moc"
