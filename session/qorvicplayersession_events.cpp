// Engine adaptor: engine events. The engine calls the sink on threads of its
// own; the signals emitted here reach receivers on other threads queued.
#include "qorvicplayersession_p.h"
#include "qorvicmetadatasession.h"
#include "qorviclogging_p.h"

#include <QtCore/QMutexLocker>
#include <QtMultimedia/QMediaMetaData>

#include <algorithm>
#include <cstring>
#include <vector>

namespace {
using Session = QOrvicPlayerSession;

// Size of the engine's resume record, copied whole.
const size_t kResumeDataSize = 4224;
static_assert(sizeof(QMediaPlayer::ResumeData) == kResumeDataSize, "engine resume record");

int resumeDataMetaType()
{
    static const int id = qRegisterMetaType<QMediaPlayer::ResumeData>("QMediaPlayer::ResumeData");
    return id;
}

QMediaPlayer::MediaMessage mediaMessage(int id)
{
    return static_cast<QMediaPlayer::MediaMessage>(id);
}

// The sinks whose callbacks this thread is inside, innermost last: a sink
// waiting for its callbacks to end must not wait for those of its own thread
// (a release started from a slot that a callback called).
thread_local std::vector<const MSPCBK_NavQueue *> t_callBackSinks;

int framesOnThisThread(const MSPCBK_NavQueue *sink)
{
    return int(std::count(t_callBackSinks.cbegin(), t_callBackSinks.cend(), sink));
}

// One engine callback inside the adaptor; does nothing for a detached sink.
class CallBackScope
{
public:
    explicit CallBackScope(MSPCBK_NavQueue *sink)
        : m_sink(sink), m_entered(sink->enter())
    {
        if (m_entered)
            t_callBackSinks.push_back(sink);
    }
    ~CallBackScope()
    {
        if (m_entered) {
            t_callBackSinks.pop_back();
            m_sink->leave();
        }
    }
    explicit operator bool() const { return m_entered; }
    Q_DISABLE_COPY(CallBackScope)

private:
    MSPCBK_NavQueue *m_sink;
    bool m_entered;
};

QMutex keptSinksLock;
QList<MSPCBK_NavQueue *> *keptSinks = nullptr;
} // namespace

// ----------------------------------------------------------- callback sink --

MSPCBK_NavQueue::MSPCBK_NavQueue(QOrvicPlayerSessionPrivate *adaptor)
    : mAdaptor(adaptor)
{
}

MSPCBK_NavQueue::~MSPCBK_NavQueue() = default;

bool MSPCBK_NavQueue::enter()
{
    QMutexLocker locker(&mGateLock);
    if (mDetached)
        return false;
    ++mInFlight;
    return true;
}

void MSPCBK_NavQueue::leave()
{
    QMutexLocker locker(&mGateLock);
    if (--mInFlight == 0)
        mIdle.wakeAll();
}

void MSPCBK_NavQueue::detach()
{
    QMutexLocker locker(&mGateLock);
    mDetached = true;
}

void MSPCBK_NavQueue::waitIdle()
{
    const int own = framesOnThisThread(this);
    QMutexLocker locker(&mGateLock);
    while (mInFlight > own)
        mIdle.wait(&mGateLock);
}

void MSPCBK_NavQueue::keepForever(MSPCBK_NavQueue *sink)
{
    QMutexLocker locker(&keptSinksLock);
    if (!keptSinks)
        keptSinks = new QList<MSPCBK_NavQueue *>;
    keptSinks->append(sink);
}

void MSPCBK_NavQueue::releaseKeptSinks()
{
    QMutexLocker locker(&keptSinksLock);
    if (!keptSinks)
        return;
    qDeleteAll(*keptSinks);
    keptSinks->clear();
}

void MSPCBK_NavQueue::durationChanged(long long duration)
{
    OPSESSION_LOG("D/OPSession %s(%d):durationChanged:%lld ", duration);
    if (const CallBackScope scope{this})
        mAdaptor->navQueueCallBack(Session::Rsp_Duration, QVariant(qlonglong(duration)));
}

void MSPCBK_NavQueue::positionChanged(long long position)
{
    // Positions are read on demand; the engine's reports are not needed.
    Q_UNUSED(position);
}

void MSPCBK_NavQueue::stateChanged(playback::SPPlayer::state_e state)
{
    OPSESSION_LOG("D/OPSession %s(%d):stateChanged:%d ", int(state));
    if (const CallBackScope scope{this})
        mAdaptor->navQueueCallBack(Session::Rsp_State, QVariant(int(state)));
}

void MSPCBK_NavQueue::volumeChanged(int volume)
{
    OPSESSION_LOG("D/OPSession %s(%d):volumeChanged:%d ", volume);
}

void MSPCBK_NavQueue::bufferingProgessChanged(int percent)
{
    OPSESSION_LOG("D/OPSession %s(%d):bufferingProgessChanged:%d ", percent);
    if (const CallBackScope scope{this})
        mAdaptor->navQueueCallBack(Session::Rsp_BufferingProgress, QVariant(percent));
}

void MSPCBK_NavQueue::streamChanged(playback::SPPlayer::stream_type_e type, int index)
{
    OPSESSION_LOG("D/OPSession %s(%d):streamChanged:%d index:%d ", int(type), index);
}

void MSPCBK_NavQueue::seekableChanged(bool seekable)
{
    OPSESSION_LOG("D/OPSession %s(%d):seekableChanged:%d ", int(seekable));
    if (const CallBackScope scope{this})
        mAdaptor->navQueueCallBack(Session::Rsp_Seekable, QVariant(seekable));
}

void MSPCBK_NavQueue::error(int no)
{
    OPSESSION_LOG("D/OPSession %s(%d):error:%d ", no);
    if (const CallBackScope scope{this})
        mAdaptor->navQueueCallBack(Session::Rsp_Error, QVariant(no));
}

void MSPCBK_NavQueue::speedChanged(double rate)
{
    OPSESSION_LOG("D/OPSession %s(%d):speedChanged:%f ", rate);
    if (const CallBackScope scope{this})
        mAdaptor->navQueueCallBack(Session::Rsp_Speed, QVariant(rate));
}

void MSPCBK_NavQueue::prepared()
{
    OPSESSION_LOG("D/OPSession %s(%d):prepared. ");
}

void MSPCBK_NavQueue::playbackFinish()
{
    OPSESSION_LOG("D/OPSession %s(%d):playbackFinish. ");
    if (const CallBackScope scope{this})
        mAdaptor->navQueueCallBack(Session::Rsp_PlaybackFinish, QVariant(0));
}

void MSPCBK_NavQueue::aboutToFinish()
{
    OPSESSION_LOG("D/OPSession %s(%d):aboutToFinish. ");
}

void MSPCBK_NavQueue::mediaAvailableChanged(playback::SPPlayer::stream_type_e type, int index)
{
    OPSESSION_LOG("D/OPSession %s(%d):mediaAvailableChanged:%d index:%d ", int(type), index);
}

void MSPCBK_NavQueue::subtitleChanged(char *text, char type, int length)
{
    const CallBackScope scope{this};
    if (!scope)
        return;
    QOrvicMetaDataSession *metaSession = mAdaptor->mMetaSession;
    if (!text || !metaSession)
        return;
    const auto encoding = static_cast<QOrvicMetaDataSession::SubtStrType_e>(static_cast<unsigned char>(type));
    // The line ends at its end mark, and never past a size the engine gives.
    const QString line = metaSession->SubCharToQstring(text, encoding, length);
    // Lines keep coming while subtitles are hidden; only shown ones are published.
    if (mAdaptor->mSubtitleOn)
        Q_EMIT mAdaptor->q->metaDataChanged(QMediaMetaData::SubTitle, QVariant(line));
}

void MSPCBK_NavQueue::resumeDataChanged(void *data, int length)
{
    Q_UNUSED(length); // the engine's record has a fixed size
    const CallBackScope scope{this};
    if (!data || !scope)
        return;
    QMediaPlayer::ResumeData resume;
    std::memcpy(resume.data, data, kResumeDataSize);
    Q_EMIT mAdaptor->q->mediaMessageChanged(mediaMessage(3), QVariant(resumeDataMetaType(), &resume));
}

// ------------------------------------------------------------ translation --

void QOrvicPlayerSessionPrivate::navQueueCallBack(QOrvicPlayerSession::RespondId id, QVariant value)
{
    bool ok = false;
    switch (id) {
    case Session::Rsp_BufferingProgress: {
        // Buffering travels as media message 0, not as bufferingProgressChanged().
        const int percent = value.toInt(&ok);
        if (ok && percent >= 0)
            Q_EMIT q->mediaMessageChanged(mediaMessage(0), QVariant(percent));
        break;
    }
    case Session::Rsp_PlaybackFinish:
        Q_EMIT q->playbackComplete();
        break;
    case Session::Rsp_Duration: {
        // Read as an int: the engine reports durations in that range.
        const int duration = value.toInt(&ok);
        mDuration.store(qint64(duration));
        if (ok)
            Q_EMIT q->durationChanged(duration);
        break;
    }
    case Session::Rsp_Position: {
        const int position = value.toInt(&ok);
        if (ok && position >= 0)
            Q_EMIT q->positionChanged(position);
        break;
    }
    case Session::Rsp_Seekable: {
        const bool seekable = value.toBool();
        mSeekable.store(seekable);
        Q_EMIT q->seekableChanged(seekable);
        break;
    }
    case Session::Rsp_State:
        // Only the engine's playing state is taken over; the session drives
        // every other state itself.
        if (value.toUInt() == playback::SPPlayer::STATE_PLAYING)
            setState(Session::Player_Play);
        break;
    case Session::Rsp_Speed:
        Q_EMIT q->playbackRateChanged(float(value.toDouble()));
        break;
    case Session::Rsp_Error: {
        const int no = value.toInt(&ok);
        if (!ok)
            break;
        // Checked in this order: 5 and 1032 lie inside the range that means an
        // unsupported file, and 2055 is a notice although it lies there too.
        if (no == 5) {
            Q_EMIT q->mediaMessageChanged(mediaMessage(2), QVariant(QStringLiteral("Seek Fail.")));
        } else if (no == 1032) {
            Q_EMIT q->error(1, QStringLiteral("This format is not supported due to low memory."));
        } else if (no >= 1 && no <= 2330 && no != 2055) {
            Q_EMIT q->error(2, QStringLiteral("file format not support"));
        } else if (no == 2055 || no == 2332 || no == 2333) {
            Q_EMIT q->mediaMessageChanged(mediaMessage(1), QVariant(no));
        } else if (no == 2331) {
            Q_EMIT q->videoAvailableChanged(q->isVideoAvailable());
        } else {
            OPSESSION_LOG("E/OPSession %s(%d):error no:%d", no);
        }
        break;
    }
    default:
        // Not an engine event: nothing to tell.
        break;
    }
}
