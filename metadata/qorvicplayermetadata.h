// Plain records of the opened medium, nested in QOrvicPlayerSession.
// They are trivially copyable: a copy shares the heap blocks it points to.
// The blocks are C heap blocks (calloc/malloc, released with free) owned by
// the PlayerMetaData that points to them.
#ifndef QORVICPLAYERMETADATA_H
#define QORVICPLAYERMETADATA_H

#include <QtCore/qmetatype.h>

#include <type_traits>

struct QOrvicPlayerSession::Id3Info {
    qint32 reserved = 0;
    qint32 titleFlag = 0;
    qint32 artistFlag = 0;
    qint32 albumFlag = 0;
    qint32 genreFlag = 0;
    qint32 dateFlag = 0;
    qint32 commentFlag = 0;
    char title[256] = {};
    char artist[256] = {};
    char album[256] = {};
    char genre[256] = {};
    char date[5] = {};
    char comment[256] = {};
};

struct QOrvicPlayerSession::AudioAttribute {
    qint32 audioStreamNum = 0;
    qint32 channel = 0;
    qint32 samplingRate = 0;
    qint32 bitRate = 0;
    char codec[8] = {};
    char language[8] = {};
    Id3Info *id3Info = nullptr;
    qint32 bitDepth = 0;
};

struct QOrvicPlayerSession::VideoAttribute {
    qint32 videoStreamNum = 0;
    qint32 width = -1;
    qint32 height = -1;
    qint32 videoInfo1 = 0;
    qint32 frameRate = 0;
    qint32 videoInfo2 = 0;
    char codec[8] = {};
};

struct QOrvicPlayerSession::SubtitleAttribute {
    qint32 subtitleNum = 0;
    qint32 curSubtitleNum = 0;
    bool subtitleOn = false;
    qint32 reserved[3] = {};
    char language[8] = {};
};

struct QOrvicPlayerSession::PlayerMetaData {
    qint32 mediaType = 0;
    qint32 reserved = 0;
    qint64 totalTime = 0;
    bool trickPlay = false;
    VideoAttribute *videoAttribute = nullptr;
    AudioAttribute *audioAttribute = nullptr;
    SubtitleAttribute *subtitleAttribute = nullptr;
};

static_assert(std::is_trivially_copyable<QOrvicPlayerSession::PlayerMetaData>::value, "plain record");
static_assert(std::is_trivially_copyable<QOrvicPlayerSession::AudioAttribute>::value, "plain record");
static_assert(std::is_trivially_copyable<QOrvicPlayerSession::VideoAttribute>::value, "plain record");
static_assert(std::is_trivially_copyable<QOrvicPlayerSession::SubtitleAttribute>::value, "plain record");
static_assert(std::is_trivially_copyable<QOrvicPlayerSession::Id3Info>::value, "plain record");
static_assert(sizeof(QOrvicPlayerSession::Id3Info) == 7 * 4 + 5 * 256 + 5 + 3, "tag block layout");

Q_DECLARE_METATYPE(QOrvicPlayerSession::PlayerMetaData)
Q_DECLARE_METATYPE(QOrvicPlayerSession::AudioAttribute)
Q_DECLARE_METATYPE(QOrvicPlayerSession::VideoAttribute)
Q_DECLARE_METATYPE(QOrvicPlayerSession::SubtitleAttribute)

#endif // QORVICPLAYERMETADATA_H
