// The session's command queue on an arbitrary sequence of commands: any
// message id (out of range too), parameters of any QVariant type, given from
// the owner thread, from another thread, and from inside the session's own
// signals while a command runs; stop() and time updates in between; the
// scripted engine answers as the input says. Every command given must be
// carried out exactly once and in order, unless stop() threw it away.
#include "fuzzsupport.h"
#include "instantpolls.h"
#include "scriptedplatform.h"
#include "sessionaccess.h"

#include "qorvicplayersession.h"
#include "qorvicplayersession_p.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QMutex>
#include <QtCore/QMutexLocker>
#include <QtCore/QPointF>
#include <QtCore/QRegularExpression>
#include <QtCore/QUrl>
#include <QtCore/QWaitCondition>

#include <fuzzer/FuzzedDataProvider.h>

#include <functional>
#include <thread>
#include <vector>

using namespace orvictest;
using Session = QOrvicPlayerSession;

namespace {

struct Command
{
    int id;
    QVariant param;
};

QVariant paramFrom(FuzzedDataProvider &in)
{
    switch (in.ConsumeIntegralInRange<int>(0, 11)) {
    case 0:
        return QVariant();
    case 1:
        return in.ConsumeIntegral<int>();
    case 2:
        return QVariant::fromValue(in.ConsumeIntegral<qlonglong>());
    case 3:
        return in.ConsumeFloatingPoint<double>();
    case 4:
        return QVariant::fromValue(in.ConsumeFloatingPoint<float>());
    case 5:
        return in.ConsumeBool();
    case 6:
        return QString::fromStdString(in.ConsumeRandomLengthString(64));
    case 7: // a medium the scripted engine accepts or refuses
        return QStringLiteral("file:///media/%1.mp3").arg(in.ConsumeIntegralInRange<int>(0, 3));
    case 8:
        return QByteArray::fromStdString(in.ConsumeRandomLengthString(32));
    case 9:
        return QVariantList{in.ConsumeIntegral<int>(), QStringLiteral("x")};
    case 10:
        return QPointF(in.ConsumeFloatingPoint<double>(), 1.0);
    default:
        return QUrl(QString::fromStdString(in.ConsumeRandomLengthString(32)));
    }
}

int idFrom(FuzzedDataProvider &in)
{
    // Mostly the session's ids; sometimes ids no client should send.
    if (in.ConsumeIntegralInRange<int>(0, 15) == 0)
        return in.ConsumeIntegralInRange<int>(19, 31);
    return in.ConsumeIntegralInRange<int>(0, 18);
}

void scriptEngine(FuzzedDataProvider &in, ScriptedEngine &engine)
{
    const int prepare = in.ConsumeBool() ? 0 : in.ConsumeIntegralInRange<int>(-3, 3);
    const int state = in.ConsumeIntegralInRange<int>(0, 9);
    const long long duration = in.ConsumeIntegralInRange<long long>(-1, 1LL << 40);
    const long long position = in.ConsumeIntegralInRange<long long>(-1, 1LL << 40);
    const int streams = in.ConsumeIntegralInRange<int>(-1, 4);
    const int status = in.ConsumeBool() ? 0 : -1;
    engine.onNewPlayer([=](ScriptedPlayer *p) {
        p->script().setDefault("prepare", prepare);
        p->script().setDefault("getState", state);
        p->script().setDefault("getDuration", QVariant::fromValue(duration));
        p->script().setDefault("getPosition", QVariant::fromValue(position));
        p->script().setDefault("play", status);
        p->script().setDefault("seekTo", status);
        p->script().setDefault("setSpeed", status);
        p->script().setDefault("changeStream", status);
        p->script().setDefault("getParameter/get-audio-count", streams);
    });
    engine.onNewMetaData([=](ScriptedMetaData *m) {
        m->script().setDefault("getMediaType", 2);
        m->script().setDefault("getProgramNum", 1);
        m->script().setDefault("getAudioStreamNum", streams);
        m->script().setDefault("getVideoStreamNum", 1);
        m->script().setDefault("getSubtitleStreamNum", streams);
        m->script().setDefault("getPicture", -1);
    });
}

// The thread that gives commands from outside the owner thread. One thread
// for the whole run: starting a thread per burst cost more than the burst,
// and the queue sees the same thing either way, a caller that is not its
// owner.
class OtherThread
{
public:
    OtherThread() : m_thread([this] { run(); }) {}

    // Runs `job` on the other thread and returns once it is done.
    void runAndWait(std::function<void()> job)
    {
        QMutexLocker lock(&m_mutex);
        m_job = std::move(job);
        m_changed.wakeAll();
        while (m_job)
            m_changed.wait(&m_mutex);
    }

private:
    [[noreturn]] void run()
    {
        QMutexLocker lock(&m_mutex);
        for (;;) {
            while (!m_job)
                m_changed.wait(&m_mutex);
            // The job runs unlocked: it takes the session's locks, and the
            // owner thread only waits for it to end.
            lock.unlock();
            m_job();
            lock.relock();
            m_job = nullptr;
            m_changed.wakeAll();
        }
    }

    QMutex m_mutex;
    QWaitCondition m_changed;
    std::function<void()> m_job;
    std::thread m_thread; // last: started once the rest is built
};

OtherThread *otherThread;

// Delivers the owner thread's posted events (the queued commands) until
// nothing is in flight or waiting. The session needs no timers and no
// sockets, so the posted events alone move it on; polling the event
// dispatcher for more is time spent on nothing.
bool drain(Session *session)
{
    QOrvicPlayerSessionPrivate *d = QOrvicPlayerSessionPrivate::get(session);
    for (int i = 0; i < 100000; ++i) {
        if (d->mDispatchState.loadAcquire() == 0 && pendingCount(session) == 0)
            return true;
        QCoreApplication::sendPostedEvents();
    }
    return false;
}

const QRegularExpression kCarriedOut(QStringLiteral("^D/OPSession actMessage\\(\\d+\\):play session actMessage (-?\\d+)$"));

QList<int> carriedOutIds(const QStringList &lines)
{
    QList<int> ids;
    for (const QString &line : lines) {
        const QRegularExpressionMatch m = kCarriedOut.match(line);
        if (m.hasMatch())
            ids.append(m.captured(1).toInt());
    }
    return ids;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    orvicfuzz::initQt(argc, argv);
    orvicfuzz::captureLinesContaining(QStringLiteral("play session actMessage "));
    static InstantPolls polls; // the service status polls need not wait
    // Lives for the whole run, like the application object (never joined:
    // libFuzzer leaves its loop by exiting).
    otherThread = new OtherThread;
    return 0;
}

namespace {

// Plays one input against a scripted platform of its own; the commands
// given go to `given`, and `thrownAway` says whether a stop() may have
// dropped some of them.
void runInput(FuzzedDataProvider &in, QList<int> &given, bool &thrownAway)
{
    ScriptedEngine engine;
    ScriptedPropertyService properties;
    ScriptedPlatformControl platform;
    platform.setVendorText(104, "GB18030");
    scriptEngine(in, engine);
    const QMediaPlayer::Flags flags(in.ConsumeBool() ? 0x8 : 0);

    orvicfuzz::takeCapturedLines();
    {
        Session session(flags);
        // Commands given from inside the session's own signals, while a
        // command is being carried out.
        std::vector<Command> reentrant;
        const int reentrantCount = in.ConsumeIntegralInRange<int>(0, 4);
        for (int i = 0; i < reentrantCount; ++i)
            reentrant.push_back(Command{idFrom(in), paramFrom(in)});
        size_t nextReentrant = 0;
        QObject::connect(&session, &Session::stateChanged, &session, [&](Session::PlayerState) {
            if (nextReentrant < reentrant.size()) {
                const Command &c = reentrant[nextReentrant++];
                given.append(c.id);
                session.manageActList(static_cast<Session::MessageId>(c.id), c.param);
            }
        }, Qt::DirectConnection);

        while (in.remaining_bytes() > 0) {
            switch (in.ConsumeIntegralInRange<int>(0, 7)) {
            case 0: { // a burst from another thread, delivered by the owner's loop
                std::vector<Command> burst;
                const int count = in.ConsumeIntegralInRange<int>(1, 8);
                for (int i = 0; i < count; ++i) {
                    burst.push_back(Command{idFrom(in), paramFrom(in)});
                    given.append(burst.back().id);
                }
                otherThread->runAndWait([&session, &burst] {
                    for (const Command &c : burst)
                        session.manageActList(static_cast<Session::MessageId>(c.id), c.param);
                });
                break;
            }
            case 1: { // stop() with whatever is waiting
                const bool idle = drain(&session);
                FUZZ_CHECK(idle);
                if (in.ConsumeBool()) {
                    // Something waiting: a burst queued, then stopped before
                    // the owner's loop delivered it.
                    const Command c{idFrom(in), paramFrom(in)};
                    given.append(c.id);
                    otherThread->runAndWait([&session, &c] {
                        session.manageActList(static_cast<Session::MessageId>(c.id), c.param);
                        session.manageActList(static_cast<Session::MessageId>(c.id), c.param);
                    });
                    given.append(c.id);
                    thrownAway = true;
                }
                session.stop();
                FUZZ_CHECK(pendingCount(&session) == 0);
                break;
            }
            case 2:
                session.timeUpdate(in.ConsumeIntegralInRange<qint64>(-1, 100000));
                break;
            default: {
                const Command c{idFrom(in), paramFrom(in)};
                given.append(c.id);
                session.manageActList(static_cast<Session::MessageId>(c.id), c.param);
                break;
            }
            }
        }
        const bool idle = drain(&session);
        FUZZ_CHECK(idle);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzedDataProvider in(data, size);
    // The watchdog's count of unchanged positions is shared by every session
    // of the process: each input starts from none, so that what an input does
    // depends on its bytes alone.
    QOrvicPlayerSessionPrivate::stallCounter.storeRelease(0);
    QList<int> given;   // ids in the order the queue received them
    bool thrownAway = false;
    runInput(in, given, thrownAway);
    // The engines that recoveries abandoned are gone with the input's
    // engine double, so their sinks, kept for good on a device, can go too:
    // the input then frees all it allocated, and libFuzzer's leak check
    // runs only after an input that really leaks (it walks the whole heap,
    // which took half the target's time when every abandoning input ran it).
    MSPCBK_NavQueue::releaseKeptSinks();
    const QList<int> carried = carriedOutIds(orvicfuzz::takeCapturedLines());
    if (thrownAway) {
        // stop() may have thrown waiting commands away, never added any.
        FUZZ_CHECK(carried.size() <= given.size());
    } else {
        // None lost, none repeated, in the order given.
        FUZZ_CHECK(carried == given);
    }
    return 0;
}
