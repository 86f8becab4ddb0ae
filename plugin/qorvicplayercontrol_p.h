// Shared by the player control's call side and its event side.
#ifndef QORVICPLAYERCONTROL_P_H
#define QORVICPLAYERCONTROL_P_H

#include "qorvicsessionhost.h"

#include <QtCore/QFileInfo>
#include <QtCore/QString>
#include <QtCore/QUrl>
#include <QtMultimedia/QMediaPlayer>

namespace QOrvicPlayerControlPrivate {

inline bool isNetworkUrl(const QString &url)
{
    // The session tells network media apart by these prefixes.
    return url.startsWith(QLatin1String("http:")) || url.startsWith(QLatin1String("https:"))
            || url.startsWith(QLatin1String("rtmp:")) || url.startsWith(QLatin1String("rtsp:"));
}

inline bool isPlaylistUrl(const QUrl &url)
{
    const QString suffix = QFileInfo(url.path()).suffix().toLower();
    return suffix == QLatin1String("m3u") || suffix == QLatin1String("m3u8") || suffix == QLatin1String("pls");
}

inline bool isRunning(QOrvicPlayerSession::PlayerState s)
{
    return s >= QOrvicPlayerSession::Player_Play && s <= QOrvicPlayerSession::Player_SB;
}

// The statuses of a loaded medium that the player has started: its play or
// pause took effect.
inline bool isStarted(QMediaPlayer::MediaStatus status)
{
    return status == QMediaPlayer::BufferedMedia || status == QMediaPlayer::BufferingMedia;
}

// What a started medium shows: buffered unless a network stream's buffer is
// known to be part full (-1: the engine never reported a level).
inline QMediaPlayer::MediaStatus startedStatus(int bufferProgress)
{
    return bufferProgress < 0 || bufferProgress == 100 ? QMediaPlayer::BufferedMedia : QMediaPlayer::BufferingMedia;
}

constexpr char kOpenFailed[] = "Could not open the medium: its format is not supported or it is damaged";
constexpr char kPlayFailed[] = "Could not play the medium: its format is not supported or it is damaged";
constexpr char kDecodeFailed[] = "Playback stopped: the medium could not be read or decoded";
constexpr char kStreamBroke[] = "Playback stopped: the network stream broke off or could not be read";
constexpr char kServiceGaveUp[] = "The playback service failed twice on this medium; it was restarted, "
                              "but the medium was not reopened";
constexpr char kServiceMissing[] = "The playback service psserver could not be started";
} // namespace QOrvicPlayerControlPrivate

#endif // QORVICPLAYERCONTROL_P_H
