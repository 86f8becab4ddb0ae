// Engine adaptor behind QOrvicPlayerSession, and the engine callback sink.
// Exported for the platform's Qt Multimedia back end and for tests; not part
// of the application interface.
#ifndef QORVICPLAYERSESSION_P_H
#define QORVICPLAYERSESSION_P_H

#include "qorvicplayersession.h"

#include <QtCore/qatomic.h>
#include <QtCore/qmutex.h>
#include <QtCore/qstring.h>

#include <playback/spmetadata.h>
#include <playback/spplayer.h>

class QOrvicMetaDataSession;
class MSPCBK_NavQueue;

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
    QRecursiveMutex mPlayerLock;
    QMutex mMessageWaitLock;
    QMutex mListLock;
    QMutex mAckLock;
    // Raised while QOrvicPlayerSession::stop() runs; read without a lock by
    // opening and play, which give way to a running stop.
    QAtomicInteger<bool> mIsStopping{false};
    // Command dispatch: 0 idle, 1 signalled, 2 picked up (guarded by mListLock).
    QAtomicInt mDispatchState{0};
    playback::SPPlayer *mFilePlayer = nullptr;
    QOrvicMetaDataSession *mMetaSession = nullptr;
    MSPCBK_NavQueue *mCallBack = nullptr;
    playback::SPMetaData *mSPMetaData = nullptr;
    QOrvicPlayerSession::PlayerState mCurrentState = QOrvicPlayerSession::Player_Idle;
    QOrvicPlayerSession::PlayerMetaData mMetaData;
    QMap<QString, QVariant> mMetaDataMap;
    QMediaPlayer::Flags mFlags;
    bool mMuted = false;
    bool mIsNetwork = false;
    int mVolume = 0;
    QString mCurrentUrl;
    float mPlaybackRate = 1.0f;
    int mPlayerId = 0;
    qint64 mSavedPosition = 0;
    QString mWatchdogUrl;
    QMutex mResetLock;

    qint64 mDuration = 0;
    bool mSeekable = false;
    int mVideoStreamNum = 0;
    int mAudioStreamNum = 0;
    int mCurAudioStream = 0;
    QMediaTimeRange mAvailableRanges;
    qint64 mResumePosition = 0;
    int mCurSubtitleNum = 0;
    bool mSubtitleOn = false;

private:
    Q_DISABLE_COPY(QOrvicPlayerSessionPrivate)
};

// Registers the session's meta types; runs once when the library is loaded.
void qRegisterMediaPlayerMetaTypes();

// Engine callback sink: logs each engine event and hands it to the adaptor
// (or emits the session signal itself). Called on the engine's threads.
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

private:
    QOrvicPlayerSessionPrivate *mAdaptor;
};

#endif // QORVICPLAYERSESSION_P_H
