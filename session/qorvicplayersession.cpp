// Public session object and its command queue.
#include "qorvicplayersession.h"
#include "qorvicplayersession_p.h"
#include "qorviclogging_p.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QMutexLocker>
#include <QtCore/QThread>

#include <cutils/properties.h>

extern const char orvicBuildStamp[];

namespace {
const char kLibraryVersion[] = "1.1.1603";
}

void qRegisterMediaPlayerMetaTypes()
{
    const int ids[] = {
        qRegisterMetaType<QOrvicPlayerSession::MessageId>("QOrvicPlayerSession::MessageId"),
        qRegisterMetaType<QOrvicPlayerSession::PlayerState>("QOrvicPlayerSession::PlayerState"),
        qRegisterMetaType<QOrvicPlayerSession::PlayerMetaData>("QOrvicPlayerSession::PlayerMetaData"),
        qRegisterMetaType<QOrvicPlayerSession::AudioAttribute>("QOrvicPlayerSession::AudioAttribute"),
        qRegisterMetaType<QOrvicPlayerSession::VideoAttribute>("QOrvicPlayerSession::VideoAttribute"),
        qRegisterMetaType<QOrvicPlayerSession::SubtitleAttribute>("QOrvicPlayerSession::SubtitleAttribute"),
        QMetaType::registerNormalizedTypedef(QMetaObject::normalizedType("QVariantMap"), QMetaType::QVariantMap),
    };
    // The platform's media message travels through queued mediaMessageChanged().
    qRegisterMetaType<QMediaPlayer::MediaMessage>("QMediaPlayer::MediaMessage");
    for (int index = 0; index < int(sizeof ids / sizeof ids[0]); ++index) {
        if (QOrvicPlayerSessionPrivate::registrationResult(index, ids[index]) < 0) {
            OPSESSION_LOG("D/OPSession %s(%d):qRegisterMetaType error");
            break;
        }
    }
}

namespace {
// Runs when the library is loaded, before any session exists.
struct MetaTypeRegistration {
    MetaTypeRegistration() { qRegisterMediaPlayerMetaTypes(); }
} metaTypeRegistration;
} // namespace

QOrvicPlayerSession::QOrvicPlayerSession(QMediaPlayer::Flags flags, QObject *parent)
    : QObject(parent),
      d(new QOrvicPlayerSessionPrivate(flags)),
      mPendingList(nullptr)
{
    OPSESSION_LOG("D%s(%d):VenkoPlayerlib version num:%s", kLibraryVersion);
    OPSESSION_LOG("D%s(%d):VenkoPlayerlib version info:%s", orvicBuildStamp);
    if (__system_properties_init() != 0)
        OPSESSION_LOG("E/OPSession %s(%d):system properties init failed!");
    connect(this, &QOrvicPlayerSession::playSessionMessage,
            this, &QOrvicPlayerSession::handleMessage, Qt::AutoConnection);
    mPendingList = new QList<QMap<MessageId, QVariant>>;
    d->q = this;
    d->init();
}

QOrvicPlayerSession::~QOrvicPlayerSession()
{
    // A command signalled from another thread and never picked up still holds
    // the acknowledge mutex; its posted delivery goes with this object.
    if (d->mDispatchState.loadAcquire() == 1)
        d->mAckLock.unlock();
    // An armed message-wait gate is opened, and whoever waits at it is let
    // through before the gate goes, so that nobody is left blocked on, or
    // woken inside, a destroyed mutex.
    // Either this takes the free gate, or it was armed by enableMessageWait()
    // (on any thread); both ways it ends unlocked.
    d->mMessageWaitLock.tryLock();
    d->mMessageWaitLock.unlock();
    while (d->mMessageWaiters.loadAcquire() != 0)
        QThread::yieldCurrentThread();
    delete d;
    delete mPendingList;
}

void QOrvicPlayerSession::manageActList(MessageId msgid, QVariant param)
{
    d->listLock(__LINE__);
    if (mPendingList->isEmpty() && d->mDispatchState.loadRelaxed() == 0) {
        // The acknowledge mutex stays locked until the receiving side picks
        // the command up (possibly on another thread).
        d->mAckLock.lock();
        d->mDispatchState.storeRelaxed(1);
        d->listUnlock(__LINE__);
        OPSESSION_LOG("D/OPSession %s(%d):send msg %d ", int(msgid));
        Q_EMIT playSessionMessage(msgid, param, QVariant(0));
        return;
    }
    QMap<MessageId, QVariant> entry;
    entry.insert(msgid, param);
    OPSESSION_LOG("D/OPSession %s(%d):add list %d ", int(msgid));
    mPendingList->append(entry);
    OPSESSION_LOG("D/OPSession %s(%d):add list  done");
    d->listUnlock(__LINE__);
}

void QOrvicPlayerSession::handleMessage(QOrvicPlayerSession::MessageId msgid, QVariant param0, QVariant param1)
{
    Q_UNUSED(param1); // the second parameter handed on is always an int 0
    OPSESSION_LOG("D/OPSession %s(%d):play session handleMessage %d", int(msgid));
    QVariant value = std::move(param0);
    actMessage(msgid, value, QVariant(0));
}

namespace {
template <typename T>
T convertedParam(const QVariant &param)
{
    QVariant v = param;
    if (v.userType() != qMetaTypeId<T>())
        v.convert(qMetaTypeId<T>());
    return v.value<T>();
}

// Hands one command to its adaptor operation.
void carryOut(QOrvicPlayerSessionPrivate *d, QOrvicPlayerSession::MessageId msgid, const QVariant &param)
{
    switch (msgid) {
    case QOrvicPlayerSession::Msg_SetMedia:
        d->setMedia(convertedParam<QString>(param));
        break;
    case QOrvicPlayerSession::Msg_PlayBackRate:
        d->setPlaybackRate(convertedParam<float>(param));
        break;
    case QOrvicPlayerSession::Msg_Position:
        d->seek(convertedParam<qlonglong>(param));
        break;
    case QOrvicPlayerSession::Msg_Play:
        d->play();
        break;
    case QOrvicPlayerSession::Msg_Pause:
        d->pause();
        break;
    case QOrvicPlayerSession::Msg_Volume:
        d->setVolume(convertedParam<int>(param));
        break;
    case QOrvicPlayerSession::Msg_Muted:
        d->setMuted(convertedParam<bool>(param));
        break;
    case QOrvicPlayerSession::Msg_SubtitleNum:
        d->setSubtitleNum(convertedParam<int>(param));
        break;
    case QOrvicPlayerSession::Msg_AudioStream:
        d->setAudioStream(convertedParam<int>(param));
        break;
    case QOrvicPlayerSession::Msg_SubtitleOnOff:
        d->setSubtitleOnOff(convertedParam<bool>(param));
        break;
    case QOrvicPlayerSession::Msg_setResumeData: {
        QMediaPlayer::ResumeData data = convertedParam<QMediaPlayer::ResumeData>(param);
        d->setResumeData(&data);
        break;
    }
    case QOrvicPlayerSession::Msg_SetVideoOnOff:
        d->setVideoOnOff(convertedParam<bool>(param));
        break;
    case QOrvicPlayerSession::Msg_SetAudioOnOff:
        d->setAudioOnOff(convertedParam<bool>(param));
        break;
    case QOrvicPlayerSession::Msg_Stop:   // stopping goes through stop()
    case QOrvicPlayerSession::Msg_ResumePlay:
    case QOrvicPlayerSession::Msg_AudioCodecList:
    case QOrvicPlayerSession::Msg_VideoCodecList:
    case QOrvicPlayerSession::Msg_ContainerList:
    case QOrvicPlayerSession::Msg_Unknown:
    default:
        break;
    }
}

// A waiting command is started by emitting playSessionMessage from inside
// actMessage; on the owner thread that delivers it at once, into a nested
// actMessage. Were every nested call to start the next command itself, a long
// pending list would nest one stack frame chain per command. Instead the
// nested call recognises the hand-over made on its own thread and leaves the
// next pending-list check to the caller's loop: same order, same lines, flat
// stack.
struct HandOver {
    const QOrvicPlayerSession *session;
    bool taken;
};
thread_local HandOver *t_handOver = nullptr;

class HandOverScope
{
public:
    explicit HandOverScope(HandOver *current) : m_saved(t_handOver) { t_handOver = current; }
    ~HandOverScope() { t_handOver = m_saved; }
    Q_DISABLE_COPY(HandOverScope)

private:
    HandOver *m_saved;
};
} // namespace

void QOrvicPlayerSession::actMessage(MessageId msgid, QVariant param0, QVariant param1)
{
    Q_UNUSED(param1);
    HandOver *const handOver = t_handOver;
    const bool startedByCaller = handOver && handOver->session == this && !handOver->taken;
    if (startedByCaller)
        handOver->taken = true;
    {
        // Whatever this command emits is not that hand-over.
        const HandOverScope none(nullptr);
        OPSESSION_LOG("D/OPSession %s(%d):play session actMessage %d", int(msgid));
        // Only a command signalled by manageActList holds the acknowledge
        // mutex; one started from the pending list does not.
        const bool signalled = d->mDispatchState.fetchAndStoreOrdered(2) == 1;
        // Read before the acknowledge is released: a stop() waiting for it
        // could otherwise finish, and lower the flag, before this command is
        // told apart as one delivered during the stop.
        const bool stopping = d->mIsStopping.loadAcquire();
        OPSESSION_LOG("D/OPSession %s(%d):recieve signal,ack");
        if (signalled)
            d->mAckLock.unlock();

        if (!stopping) {
            d->recoverIfDue();
            carryOut(d, msgid, param0);
        }

        OPSESSION_LOG("D/OPSession %s(%d):handle mesage done  %d check list", int(msgid));
    }
    if (startedByCaller)
        return;

    // Start the waiting commands one after the other, or mark the queue idle.
    for (;;) {
        d->listLock(__LINE__);
        if (mPendingList->isEmpty()) {
            d->mDispatchState.storeRelaxed(0);
            d->listUnlock(__LINE__);
            return;
        }
        const QMap<MessageId, QVariant> next = mPendingList->takeFirst();
        d->listUnlock(__LINE__);

        HandOver handOver{this, false};
        {
            const HandOverScope scope(&handOver);
            Q_EMIT playSessionMessage(next.firstKey(), next.first(), QVariant(0));
        }
        // Not carried out here and now (queued to the owner thread, when this
        // runs elsewhere): the receiving side checks the list when it is done.
        if (!handOver.taken)
            return;
    }
}

void QOrvicPlayerSession::stop()
{
    d->mIsStopping.storeRelease(true);

    // Wait until a command that was signalled but not yet picked up has been
    // acknowledged. On the owner thread the pick-up needs the event loop that
    // this call is blocking, so the posted command is delivered here instead:
    // it is acknowledged and, the stopping flag being raised, skipped.
    if (QThread::currentThread() == thread()) {
        while (!d->mAckLock.tryLock()) {
            QCoreApplication::sendPostedEvents(this, QEvent::MetaCall);
            if (d->mAckLock.tryLock())
                break;
            QThread::yieldCurrentThread();
        }
    } else {
        d->mAckLock.lock();
    }
    d->mAckLock.unlock();

    d->listLock(__LINE__);
    mPendingList->clear();
    d->listUnlock(__LINE__);

    d->stop();
    d->mIsStopping.storeRelease(false);
}

qint64 QOrvicPlayerSession::duration() const
{
    return d->duration();
}

QOrvicPlayerSession::PlayerState QOrvicPlayerSession::state() const
{
    return d->mCurrentState.load();
}

qint64 QOrvicPlayerSession::position() const
{
    return d->position();
}

float QOrvicPlayerSession::playbackRate() const
{
    return float(d->playbackRate());
}

int QOrvicPlayerSession::volume() const
{
    return d->mVolume.load();
}

bool QOrvicPlayerSession::isMuted() const
{
    return d->mMuted.load();
}

bool QOrvicPlayerSession::isAudioAvailable() const
{
    return d->mAudioStreamNum.load() != 0;
}

bool QOrvicPlayerSession::isVideoAvailable() const
{
    return d->mVideoStreamNum.load() != 0;
}

bool QOrvicPlayerSession::isSeekable() const
{
    return d->mSeekable.load();
}

QMediaTimeRange QOrvicPlayerSession::availablePlaybackRanges() const
{
    return d->availableRanges();
}

int QOrvicPlayerSession::getCurrentAudioStream() const
{
    return d->mCurAudioStream.load();
}

QImage QOrvicPlayerSession::getID3Pic() const
{
    return d->getID3Pic();
}

void QOrvicPlayerSession::timeUpdate(qint64 position)
{
    d->checkServer(position);
}

void QOrvicPlayerSession::setVideoOutput(QObject *output)
{
    Q_UNUSED(output);
}

void QOrvicPlayerSession::enableMessageWait()
{
    OPSESSION_LOG("D/OPSession %s(%d):start");
    d->mMessageWaitLock.lock();
    OPSESSION_LOG("D/OPSession %s(%d):end");
}

void QOrvicPlayerSession::waitMessageDone()
{
    // Counted, so that the destructor can let a waiter through before the
    // gate goes.
    d->mMessageWaiters.ref();
    OPSESSION_LOG("D/OPSession %s(%d):wait msg lock");
    d->mMessageWaitLock.lock();
    OPSESSION_LOG("D/OPSession %s(%d):wait msg unlock");
    d->mMessageWaitLock.unlock();
    d->mMessageWaiters.deref();
}
