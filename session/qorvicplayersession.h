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

    explicit QOrvicPlayerSession(QMediaPlayer::Flags flags, QObject *parent = nullptr);
    ~QOrvicPlayerSession() override;

    void manageActList(MessageId msgid, QVariant param);
    void actMessage(MessageId msgid, QVariant param0, QVariant param1);
    void stop();

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
    QImage getID3Pic() const;

    QVariant metadataInvoke(QMediaPlayer::MetadataInvoke id, QVariant param);
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
    void setVideoOutput(QObject *output);
    void enableMessageWait();
    void waitMessageDone();
    void handleMessage(QOrvicPlayerSession::MessageId msgid, QVariant param0, QVariant param1);

private:
    friend class QOrvicPlayerSessionPrivate;
    QOrvicPlayerSessionPrivate *d;
    QList<QMap<MessageId, QVariant>> *mPendingList;

    Q_DISABLE_COPY(QOrvicPlayerSession)
};

#include "qorvicplayermetadata.h"

#endif // QORVICPLAYERSESSION_H
