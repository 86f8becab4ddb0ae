#ifndef QORVICPLAYERSESSION_H
#define QORVICPLAYERSESSION_H

#include "qorvicutilglobal.h"

#include <QtCore/qlist.h>
#include <QtCore/qmap.h>
#include <QtCore/qobject.h>
#include <QtCore/qvariant.h>
#include <QtGui/qimage.h>
#include <QtMultimedia/qmediaplayer.h>
#include <QtMultimedia/qmediatimerange.h>

// The interface below uses the device's additions to QMediaPlayer. The
// device's Qt Multimedia headers declare them, and so does the PC build's
// overlay of the stock headers, which must come first on the include path.
// The check looks for the additions themselves, not for a macro that only
// the overlay or this project's own build defines: a client built against
// the installed package in either mode sees them, and a stock header that
// won the include guard is named here instead of failing at the first use.
namespace QOrvicPlayerSessionHeaderCheck {
template <typename...>
struct MakeVoid
{
    typedef void type;
};
template <typename T, typename = void>
struct HasDeviceAdditions
{
    static constexpr bool value = false;
};
template <typename T>
struct HasDeviceAdditions<T, typename MakeVoid<typename T::MediaMessage, typename T::MetadataInvoke>::type>
{
    static constexpr bool value = true;
};
static_assert(HasDeviceAdditions<QMediaPlayer>::value,
              "QMediaPlayer lacks the device additions: the device Qt Multimedia headers "
              "(or the host overlay) must come first on the include path");
} // namespace QOrvicPlayerSessionHeaderCheck

class QOrvicPlayerSessionPrivate;

/*!
    \class QOrvicPlayerSession
    \brief One media player session on the device's playback engine.

    \par Threads

    The thread that creates the session (or that it is moved to) is its
    <em>owner thread</em>. Every command is carried out there, so a session that
    is given commands from other threads needs an event loop running on its
    owner thread. Apart from the exceptions named at each function, every
    public function may be called from any thread.

    Signals come from three kinds of thread:
    <ul>
    <li> the owner thread, for what a command does;
    <li> the thread that calls stop() or timeUpdate(), for what the stop or a
        watchdog recovery does (a recovery reopens the medium and may announce
        every signal that an open and play announce);
    <li> the engine's own threads, for engine events: durationChanged(),
        seekableChanged(), stateChanged() with \c Player_Play,
        playbackComplete(), playbackRateChanged(), mediaMessageChanged()
        (buffering, engine notices, failed seeks, resume data), error(),
        videoAvailableChanged() and metaDataChanged() with subtitle text.
    </ul>
    Receivers that live in other threads get them queued, as usual with
    Qt::AutoConnection. A slot connected with Qt::DirectConnection runs on
    the emitting thread; while stateChanged() is being emitted the session
    holds its state lock, so such a slot must not wait for another thread
    that announces a state.

    \par Destruction

    deleteLater() is always safe: from any thread, and from a slot connected
    to one of the session's own signals, also while a command runs. Commands
    posted before it are carried out first; commands still waiting when the
    session goes are dropped.

    A plain \c delete is allowed only on the owner thread, outside the
    session's own signal emissions, and once no other thread calls into the
    session any more (stop the timer that calls timeUpdate() and any thread
    that reads the getters first). An armed message-wait gate is opened by the
    destructor, and a thread waiting in waitMessageDone() returns.
*/
class Q_ORVICUTIL_EXPORT QOrvicPlayerSession : public QObject
{
    Q_OBJECT

public:
    enum PlayerState {
        Player_Idle = 0,
        Player_Initialized = 1,
        Player_Stop = 2,
        Player_Preparing = 3,
        Player_Prepared = 4,
        Player_Play = 5,
        Player_FF = 6,
        Player_FB = 7,
        Player_SF = 8,
        Player_SB = 9,
        Player_Pause = 10
    };
    Q_ENUM(PlayerState)

    enum MessageId {
        Msg_SetMedia = 0,
        Msg_PlayBackRate = 1,
        Msg_Position = 2,
        Msg_Play = 3,
        Msg_Pause = 4,
        Msg_Stop = 5,
        Msg_Volume = 6,
        Msg_Muted = 7,
        Msg_SubtitleNum = 8,
        Msg_AudioStream = 9,
        Msg_ResumePlay = 10,
        Msg_SubtitleOnOff = 11,
        Msg_setResumeData = 12,
        Msg_AudioCodecList = 13,
        Msg_VideoCodecList = 14,
        Msg_ContainerList = 15,
        Msg_SetVideoOnOff = 16,
        Msg_SetAudioOnOff = 17,
        Msg_Unknown = 18
    };
    Q_ENUM(MessageId)

    // Kind of an engine event handed from the callback sink to the adaptor.
    enum RespondId {
        Rsp_BufferingProgress = 1,
        Rsp_PlaybackFinish = 2,
        Rsp_Duration = 3,
        Rsp_Position = 4,
        Rsp_Seekable = 5,
        Rsp_State = 6,
        Rsp_Speed = 7,
        Rsp_Error = 8
    };

    // Plain records of the opened medium (defined in qorvicplayermetadata.h).
    struct Id3Info;
    struct AudioAttribute;
    struct VideoAttribute;
    struct SubtitleAttribute;
    struct PlayerMetaData;

    /*!
        Creates the session with \a flags (the metadata-only flag, 0x8, makes
        a session that reads metadata and never plays) and brings the engine
        up: blocks the calling thread, which becomes the owner thread, until
        the playback service runs. Emits stateChanged(Player_Initialized) on that thread.
    */
    explicit QOrvicPlayerSession(QMediaPlayer::Flags flags, QObject *parent = nullptr);
    /*!
        Releases the engine (the service keeps running). See the class
        description for where and when a session may be destroyed.
    */
    ~QOrvicPlayerSession() override;

    /*!
        Queues the command \a msgid with \a param. Any thread, also from a
        slot while a command runs. Returns at once; on the owner thread with
        no command in flight the command is carried out before it returns.
        Commands run one at a time on the owner thread, in the order given
        (commands of one thread keep their order), and each emits its signals
        there.
    */
    void manageActList(MessageId msgid, QVariant param);
    /*!
        Carries out one handed-over command and then the waiting ones. Called
        by handleMessage() on the owner thread; not for clients.
    */
    void actMessage(MessageId msgid, QVariant param0, QVariant param1);
    /*!
        Drops the waiting commands and stops the engine. Any thread; it waits
        for a command or a watchdog recovery that is running to end, and
        commands delivered meanwhile are skipped. Emits
        stateChanged(Player_Preparing), mediaMessageChanged(0, 100) when the
        engine was busy, and stateChanged(Player_Stop) on the calling thread.
    */
    void stop();

    /*!
        \name Getters
        Any thread, emit nothing, and never wait for a running command:
        state(), volume(), isMuted(), isAudioAvailable(), isVideoAvailable(),
        isSeekable(), availablePlaybackRanges() and getCurrentAudioStream()
        read stored values. duration(), position() and playbackRate() ask the
        engine in the states where it knows the answer; they may wait for an
        engine that is being released, and never call a released one.
    */
    qint64 duration() const;
    PlayerState state() const;
    qint64 position() const;
    float playbackRate() const;
    int volume() const;
    bool isMuted() const;
    bool isAudioAvailable() const;
    bool isVideoAvailable() const;
    bool isSeekable() const;
    QMediaTimeRange availablePlaybackRanges() const;
    int getCurrentAudioStream() const;
    /*!
        The embedded picture of the opened medium. Any thread; waits for a
        running command or recovery to end. Emits nothing.
    */
    QImage getID3Pic() const;

    /*!
        Answers a question about one audio or subtitle stream. Any thread;
        waits for a running command or recovery to end. Emits nothing.
    */
    QVariant metadataInvoke(QMediaPlayer::MetadataInvoke id, QVariant param);
    /*!
        The watchdog's clock: the client's periodic position. Any thread (a
        timer thread is usual). When the service has stopped or stalled, the
        recovery (restart, reopen, play, seek, pause) runs on the calling
        thread and emits its signals there. A recovery never replaces an
        engine that a command is using: while a command or a stop runs, or
        when called from a slot inside a command, the tick leaves the
        recovery to a later one; a stopped service found then is recovered by
        the command queue on the owner thread before its next command.
    */
    void timeUpdate(qint64 position);

Q_SIGNALS:
    void durationChanged(qint64 duration);
    void positionChanged(qint64 position);
    void stateChanged(QOrvicPlayerSession::PlayerState state);
    void metaDataChanged(const QString &key, const QVariant &value);
    void metadataChanged(QVariantMap metadata);
    void volumeChanged(int volume);
    void mutedStateChanged(bool muted);
    void audioAvailableChanged(bool audioAvailable);
    void videoAvailableChanged(bool videoAvailable);
    void bufferingProgressChanged(int percentFilled);
    void playbackRateChanged(float);
    void playbackComplete();
    void seekableChanged(bool);
    void error(int error, const QString &errorString);
    void playSessionMessage(QOrvicPlayerSession::MessageId msgid, QVariant param0, QVariant param1);
    void mediaMessageChanged(QMediaPlayer::MediaMessage messageid, QVariant msgInfo);

public Q_SLOTS:
    /*! Does nothing. Any thread. */
    void setVideoOutput(QObject *output);
    /*! Arms the message-wait gate. Any thread; blocks while it is armed already. */
    void enableMessageWait();
    /*!
        Waits until the message-wait gate is not armed. Any thread other than
        the one holding the gate. Destroying the session lets a waiter through.
    */
    void waitMessageDone();
    /*!
        Receives a handed-over command (connected to playSessionMessage()).
        Owner thread only; not for clients.
    */
    void handleMessage(QOrvicPlayerSession::MessageId msgid, QVariant param0, QVariant param1);

private:
    friend class QOrvicPlayerSessionPrivate;
    QOrvicPlayerSessionPrivate *d;
    QList<QMap<MessageId, QVariant>> *mPendingList;

    Q_DISABLE_COPY(QOrvicPlayerSession)
};

#include "qorvicplayermetadata.h"

#endif // QORVICPLAYERSESSION_H
