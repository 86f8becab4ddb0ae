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
    for (int id : ids) {
        if (id < 0) {
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
} // namespace

void QOrvicPlayerSession::actMessage(MessageId msgid, QVariant param0, QVariant param1)
{
    Q_UNUSED(param1);
    OPSESSION_LOG("D/OPSession %s(%d):play session actMessage %d", int(msgid));
    d->mDispatchState.storeRelaxed(2);
    OPSESSION_LOG("D/OPSession %s(%d):recieve signal,ack");
    d->mAckLock.unlock();

    if (!d->mIsStopping.loadAcquire()) {
        switch (msgid) {
        case Msg_SetMedia:
            d->setMedia(convertedParam<QString>(param0));
            break;
        case Msg_PlayBackRate:
            d->setPlaybackRate(convertedParam<float>(param0));
            break;
        case Msg_Position:
            d->seek(convertedParam<qlonglong>(param0));
            break;
        case Msg_Play:
            d->play();
            break;
        case Msg_Pause:
            d->pause();
            break;
        case Msg_Volume:
            d->setVolume(convertedParam<int>(param0));
            break;
        case Msg_Muted:
            d->setMuted(convertedParam<bool>(param0));
            break;
        case Msg_SubtitleNum:
            d->setSubtitleNum(convertedParam<int>(param0));
            break;
        case Msg_AudioStream:
            d->setAudioStream(convertedParam<int>(param0));
            break;
        case Msg_SubtitleOnOff:
            d->setSubtitleOnOff(convertedParam<bool>(param0));
            break;
        case Msg_setResumeData: {
            QMediaPlayer::ResumeData data = convertedParam<QMediaPlayer::ResumeData>(param0);
            d->setResumeData(&data);
            break;
        }
        case Msg_SetVideoOnOff:
            d->setVideoOnOff(convertedParam<bool>(param0));
            break;
        case Msg_SetAudioOnOff:
            d->setAudioOnOff(convertedParam<bool>(param0));
            break;
        case Msg_Stop:            // stopping goes through stop()
        case Msg_ResumePlay:
        case Msg_AudioCodecList:
        case Msg_VideoCodecList:
        case Msg_ContainerList:
        case Msg_Unknown:
        default:
            break;
        }
    }

    OPSESSION_LOG("D/OPSession %s(%d):handle mesage done  %d check list", int(msgid));
    d->listLock(__LINE__);
    if (mPendingList->isEmpty()) {
        d->mDispatchState.storeRelaxed(0);
        d->listUnlock(__LINE__);
        return;
    }
    const QMap<MessageId, QVariant> next = mPendingList->takeFirst();
    d->listUnlock(__LINE__);
    Q_EMIT playSessionMessage(next.firstKey(), next.first(), QVariant(0));
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
    return d->mCurrentState;
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
    return d->mVolume;
}

bool QOrvicPlayerSession::isMuted() const
{
    return d->mMuted;
}

bool QOrvicPlayerSession::isAudioAvailable() const
{
    return d->mAudioStreamNum != 0;
}

bool QOrvicPlayerSession::isVideoAvailable() const
{
    return d->mVideoStreamNum != 0;
}

bool QOrvicPlayerSession::isSeekable() const
{
    return d->mSeekable;
}

QMediaTimeRange QOrvicPlayerSession::availablePlaybackRanges() const
{
    return d->mAvailableRanges;
}

int QOrvicPlayerSession::getCurrentAudioStream() const
{
    return d->mCurAudioStream;
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
    OPSESSION_LOG("D/OPSession %s(%d):wait msg lock");
    d->mMessageWaitLock.lock();
    OPSESSION_LOG("D/OPSession %s(%d):wait msg unlock");
    d->mMessageWaitLock.unlock();
}
