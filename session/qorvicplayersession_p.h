// Engine adaptor behind QOrvicPlayerSession, and the engine callback sink.
// Exported for the platform's Qt Multimedia back end and for tests; not part
// of the application interface.
#ifndef QORVICPLAYERSESSION_P_H
#define QORVICPLAYERSESSION_P_H

#include "qorvicplayersession.h"

#include <QtCore/qatomic.h>
#include <QtCore/qmutex.h>
#include <QtCore/qreadwritelock.h>
#include <QtCore/qstring.h>
#include <QtCore/qwaitcondition.h>

#include <atomic>
#include <functional>

#include <playback/spmetadata.h>
#include <playback/spplayer.h>

class QOrvicMetaDataSession;
class MSPCBK_NavQueue;

// An engine object pointer that one thread may replace while another reads
// it: used like a plain pointer, every access is atomic.
template <typename T>
class QOrvicSharedPointerSlot
{
public:
    QOrvicSharedPointerSlot() = default;
    QOrvicSharedPointerSlot(T *p) : m_p(p) {}
    QOrvicSharedPointerSlot &operator=(T *p) { m_p.store(p, std::memory_order_release); return *this; }
    operator T *() const { return m_p.load(std::memory_order_acquire); }
    T *operator->() const { return m_p.load(std::memory_order_acquire); }
    Q_DISABLE_COPY(QOrvicSharedPointerSlot)

private:
    std::atomic<T *> m_p{nullptr};
};

/*!
    \class QOrvicPlayerSessionPrivate
    \brief The engine adaptor behind QOrvicPlayerSession.

    \par Threads

    <ul>
    <li> The operations that use the engine (setMedia(), openMetadata(),
        play(), pause(), stop(), seek(), setPlaybackRate(), setVolume(),
        setMuted(), setAudioStream(), setSubtitleNum(), setSubtitleOnOff(),
        setVideoOnOff(), setAudioOnOff(), getSubtitleAttribute(),
        getAudioAttribute(), getID3Pic()) may be called from any thread. They
        hold the player lock (mPlayerLock, through PlayerLocker), so they run
        one at a time, and emit their signals on the calling thread. The
        session calls them on its owner thread, from the command queue.
    <li> playbackRate(), position() and duration() may be called from any
        thread and never wait for a command: they hold the engine-use lock for
        reading while they call the engine, and release() destroys the engine
        under it for writing.
    <li> checkServer() may be called from any thread. It recovers only when
        it gets the player lock at once and the calling thread is not inside
        a command; otherwise the tick is left to a later one (a stopped
        service is marked, and recoverIfDue() recovers it on the owner
        thread before the next command). The whole
        recovery (reset(), reopen, play, seek, pause) holds the player lock
        and emits on the calling thread.
    <li> init() runs in the session's constructor and inside reset(); reset()
        and release() run under the player lock (the watchdog, the
        destructor). They are not for concurrent use otherwise.
    <li> setState() and storeState() may be called from any thread: a state
        is stored and announced under one lock, so the last stateChanged() is
        the stored state. stateChanged() is emitted with that lock held.
    <li> navQueueCallBack() runs on the engine's threads, called by the
        callback sink, and emits there. The sink lets a callback reach the
        adaptor only while the sink is attached; release() waits for the
        callbacks on their way before it frees what they use, and the sink
        of an abandoned engine is detached for good.
    <li> listLock()/listUnlock() guard the command queue from any thread.
    </ul>

    The stored values that the session's getters read are atomics, or (the
    available ranges) copied under a lock.
*/
class Q_ORVICUTIL_EXPORT QOrvicPlayerSessionPrivate
{
public:
    explicit QOrvicPlayerSessionPrivate(QMediaPlayer::Flags flags);
    ~QOrvicPlayerSessionPrivate();

    // The adaptor behind `session` (for the platform back end and tests).
    static QOrvicPlayerSessionPrivate *get(QOrvicPlayerSession *session) { return session->d; }

    // Command queue locks; `line` is the caller's source line, for the log.
    void listLock(int line);
    void listUnlock(int line);

    // Service and engine lifecycle.
    void init();
    void reset();
    void release();

    // Opening.
    void setMedia(QString url);
    void openMetadata(QString url);
    void openVideoThumbnail(QString url);
    void setResumeData(QMediaPlayer::ResumeData *data);
    // Stores the open medium's audio and video stream counts and announces a
    // change of availability (videoAvailableChanged first, then audio).
    void setStreamCounts(int audio, int video);
    void setStreamCountsFromMetaData();

    // Transport.
    void setState(QOrvicPlayerSession::PlayerState state);
    void play();
    void pause();
    void stop();
    void seek(qint64 position);
    void setPlaybackRate(qreal rate);
    qreal playbackRate() const;
    qint64 position() const;
    qint64 duration() const;
    void resumePlay(qint64 position, qint64 duration);

    // Engine events, posted by the callback sink on engine threads.
    void navQueueCallBack(QOrvicPlayerSession::RespondId id, QVariant value);

    // Watchdog, fed by QOrvicPlayerSession::timeUpdate().
    void checkServer(qint64 position);
    // Runs the recovery that a time update found due but could not run
    // because a command held the engine; called by the command queue on the
    // owner thread between two commands.
    void recoverIfDue();
    // Counts one time update of a playing session on the shared stall counter;
    // true when the position has not moved often enough to mean a stuck service.
    bool countStall(qint64 position);

    // Volume, streams and subtitle switches.
    void setVolume(int volume);
    void setMuted(bool muted);
    void setAudioStream(int stream);
    void setSubtitleNum(int stream);
    void setSubtitleOnOff(bool on);
    void setVideoOnOff(bool on);
    void setAudioOnOff(bool on);
    void getSubtitleAttribute(int index, playback::SPMetaData::SubtitleAttribute &attr);
    void getAudioAttribute(int index, playback::SPMetaData::AudioAttribute &attr);

    QImage getID3Pic();

    // The platform fixes these by number; the names for them come only from
    // this project's Qt overlay, and a device's Qt may spell them otherwise.
    static constexpr int kMetaDataOnlyFlag = 0x8;   // session flag: metadata, no playback
    static constexpr int kAudioStreamInvoke = 0;     // metadataInvoke: one audio stream
    static constexpr int kSubtitleStreamInvoke = 1;  // metadataInvoke: one subtitle stream
    static bool isMetaDataOnly(QMediaPlayer::Flags flags) { return (int(flags) & kMetaDataOnlyFlag) != 0; }

    // Engine text of a fixed-size field (Latin-1, up to its NUL or the end of the field).
    static QString engineText(const char *text, int capacity);

    // Consecutive time updates with an unchanged position, shared by every
    // session of the process.
    static QAtomicInt stallCounter;

    // Pause between two polls of the service status (5 ms on the device);
    // replaceable so that tests need not wait in real time.
    static void (*pollSleep)(unsigned long ms);

    // Hands on each of the seven results of the load-time type registration
    // (index 0 to 6, in registration order); replaceable so that a refused
    // registration, which Qt gives only in rare set-ups, can be brought about.
    static int (*registrationResult)(int index, int typeId);

    // Members, in the adaptor's declaration order.
    QOrvicPlayerSession *q = nullptr;
    // Held by every command that uses the engine (opening, transport, volume,
    // streams, subtitles, picture, stream attributes) and by the watchdog for
    // a whole recovery, so that a recovery never replaces an engine that a
    // command is using. Taken through PlayerLocker.
    QRecursiveMutex mPlayerLock;
    QMutex mMessageWaitLock;
    // A recovery that a time update could not run (see recoverIfDue()).
    QAtomicInteger<bool> mRecoveryDue{false};
    QAtomicInteger<qint64> mRecoveryPosition{0};
    // Threads inside waitMessageDone().
    QAtomicInt mMessageWaiters{0};
    QMutex mListLock;
    QMutex mAckLock;
    // Raised while QOrvicPlayerSession::stop() runs; read without a lock by
    // opening, play and the watchdog, which give way to a running stop.
    QAtomicInteger<bool> mIsStopping{false};
    // Command dispatch: 0 idle, 1 signalled, 2 picked up (guarded by mListLock).
    QAtomicInt mDispatchState{0};
    QOrvicSharedPointerSlot<playback::SPPlayer> mFilePlayer;
    QOrvicSharedPointerSlot<QOrvicMetaDataSession> mMetaSession;
    MSPCBK_NavQueue *mCallBack = nullptr;
    playback::SPMetaData *mSPMetaData = nullptr;
    // Written under mStateLock (setState, storeState); read from any thread.
    std::atomic<QOrvicPlayerSession::PlayerState> mCurrentState{QOrvicPlayerSession::Player_Idle};
    QOrvicPlayerSession::PlayerMetaData mMetaData;
    QMap<QString, QVariant> mMetaDataMap;
    QMediaPlayer::Flags mFlags;
    std::atomic<bool> mMuted{false};
    bool mIsNetwork = false;
    std::atomic<int> mVolume{0};
    QString mCurrentUrl;
    float mPlaybackRate = 1.0f;
    int mPlayerId = 0;
    qint64 mSavedPosition = 0;
    QString mWatchdogUrl;
    QMutex mResetLock;

    // Values that the getters read from any thread while commands and engine
    // threads write them.
    std::atomic<qint64> mDuration{0};
    std::atomic<bool> mSeekable{false};
    std::atomic<int> mVideoStreamNum{0};
    std::atomic<int> mAudioStreamNum{0};
    std::atomic<int> mCurAudioStream{0};
    qint64 mResumePosition = 0;
    int mCurSubtitleNum = 0;
    std::atomic<bool> mSubtitleOn{false};

    // The available ranges: a shared value class, so copied under a lock.
    QMediaTimeRange availableRanges() const;
    void setAvailableRanges(const QMediaTimeRange &ranges);

    // Stores a state without announcing it (a failed open or play), in the
    // same order as the announced ones.
    void storeState(QOrvicPlayerSession::PlayerState state);

    // Holds mPlayerLock for a command and counts the commands that this
    // thread is inside, so that a recovery started from within one of them
    // (a time update from a slot) can tell and leave the engine alone.
    class PlayerLocker
    {
    public:
        enum Mode { Wait, TryLock };
        explicit PlayerLocker(QOrvicPlayerSessionPrivate *d, Mode mode = Wait);
        ~PlayerLocker();
        // False only for TryLock when another thread held the lock.
        bool ownsLock() const { return m_locked; }
        // Whether this thread was already inside a command when it locked.
        bool insideCommand() const { return m_outerDepth > 0; }
        Q_DISABLE_COPY(PlayerLocker)

    private:
        QOrvicPlayerSessionPrivate *m_d;
        bool m_locked;
        int m_outerDepth = 0;
    };

    // Private API of the library's own Qt Multimedia back end, not part of
    // the published interface: runs `use` with the session's current engine
    // player (null while it has none) under the engine lock, so that the
    // player cannot be replaced meanwhile. False, without running `use`,
    // when a command holds the lock: the caller tries again later.
    static bool withEnginePlayer(QOrvicPlayerSession *session,
                                 const std::function<void(playback::SPPlayer *)> &use);

private:
    friend class MSPCBK_NavQueue;

    // Gives up the engine objects of a stuck service without calling them:
    // any call into a stuck engine may never return.
    void abandonEngine();

    // Number of PlayerLocker scopes open; only the holder of mPlayerLock
    // touches it.
    int mCommandDepth = 0;
    // Serialises storing a state with announcing it: engine threads and the
    // command thread report states, and the last announcement must be the
    // stored state.
    QRecursiveMutex mStateLock;
    mutable QMutex mRangesLock;
    QMediaTimeRange mAvailableRanges;
    // Engine readers (position, duration, rate) hold it for reading while
    // they call the engine; release() holds it for writing while it destroys
    // the engine, so that no reader calls a destroyed one.
    mutable QReadWriteLock mEngineUseLock;
    // Sinks of abandoned engines: detached, but a callback that entered
    // before may still be running; release() waits for it before it frees
    // what such a callback uses.
    QList<MSPCBK_NavQueue *> mAbandonedCallBacks;

private:
    Q_DISABLE_COPY(QOrvicPlayerSessionPrivate)
};

// Registers the session's meta types; runs once when the library is loaded.
void qRegisterMediaPlayerMetaTypes();

/*!
    \class MSPCBK_NavQueue
    \brief Engine callback sink: logs each engine event and hands it to the
    adaptor (or emits the session signal itself).

    Called on the engine's threads, possibly several at once. Once detached
    (the engine was released or abandoned) a callback does nothing beyond its
    log line.
*/
class MSPCBK_NavQueue : public playback::SPPlayer::CallBack
{
public:
    explicit MSPCBK_NavQueue(QOrvicPlayerSessionPrivate *adaptor);
    ~MSPCBK_NavQueue() override;

    void durationChanged(long long duration) override;
    void positionChanged(long long position) override;
    void stateChanged(playback::SPPlayer::state_e state) override;
    void volumeChanged(int volume) override;
    void bufferingProgessChanged(int percent) override;
    void streamChanged(playback::SPPlayer::stream_type_e type, int index) override;
    void seekableChanged(bool seekable) override;
    void error(int no) override;
    void speedChanged(double rate) override;
    void prepared() override;
    void playbackFinish() override;
    void aboutToFinish() override;
    void mediaAvailableChanged(playback::SPPlayer::stream_type_e type, int index) override;
    void subtitleChanged(char *text, char type, int length) override;
    void resumeDataChanged(void *data, int length) override;

    // Engine callbacks reach the adaptor only between enter() and leave().
    bool enter();
    void leave();
    // No callback reaches the adaptor from now on; one already on its way
    // is not waited for (the caller may hold locks that it needs).
    void detach();
    // Waits until no callback of another thread is inside the adaptor.
    void waitIdle();

    // Sinks of abandoned engines: an abandoned engine may call its sink at
    // any later time, even after the session has gone, so a detached sink is
    // kept for the rest of the process.
    static void keepForever(MSPCBK_NavQueue *sink);
    // Frees the kept sinks. Only for a process that has destroyed the
    // abandoned engines itself, so that none can call any more: a test
    // harness whose engine is a double it owns. A device never can.
    static void releaseKeptSinks();

private:
    QOrvicPlayerSessionPrivate *mAdaptor;
    QMutex mGateLock;
    QWaitCondition mIdle;
    bool mDetached = false;
    int mInFlight = 0;
};

#endif // QORVICPLAYERSESSION_P_H
