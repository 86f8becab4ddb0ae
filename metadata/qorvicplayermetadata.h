/*!
    \file qorvicplayermetadata.h
    \brief Plain records of the opened medium, nested in QOrvicPlayerSession.

    The records are trivially copyable: a copy shares the heap blocks it
    points to. The blocks are C heap blocks (calloc/malloc, released with
    free) owned by the PlayerMetaData that points to them. All four are
    registered Qt meta types, so they travel in a QVariant.

    \par Threads
    The records have no lock of their own. The session fills and reads its
    record on its own thread under its player mutex; a client that receives
    a copy reads it on its thread, and the heap blocks it points to stay
    valid only until the session's next metadata refresh or its release.
*/
#ifndef QORVICPLAYERMETADATA_H
#define QORVICPLAYERMETADATA_H

#include <QtCore/qmetatype.h>

#include <type_traits>

/*!
    \brief Tag texts of the medium as raw bytes, in whatever character set the
    tag used; QOrvicMetaDataSession decodes them when it builds the map.

    Each text is NUL-terminated (at most 255 bytes copied, 4 for the year).
    Each flag tells the state of its text: 0 the tag is absent, 1 found under
    a fallback key or in an older tag, 2 found in a newer tag (then the bytes
    are UTF-8).
*/
struct QOrvicPlayerSession::Id3Info {
    qint32 reserved = 0;     //!< Not written; stays 0.
    qint32 titleFlag = 0;    //!< State of #title.
    qint32 artistFlag = 0;   //!< State of #artist.
    qint32 albumFlag = 0;    //!< State of #album.
    qint32 genreFlag = 0;    //!< State of #genre.
    qint32 dateFlag = 0;     //!< State of #date.
    qint32 commentFlag = 0;  //!< State of #comment.
    char title[256] = {};    //!< Title bytes.
    char artist[256] = {};   //!< Artist bytes.
    char album[256] = {};    //!< Album bytes.
    char genre[256] = {};    //!< Genre bytes.
    char date[5] = {};       //!< Year, at most four characters.
    char comment[256] = {};  //!< Comment bytes.
};

/*!
    \brief Attributes of the described audio stream and the medium's tag
    texts.
*/
struct QOrvicPlayerSession::AudioAttribute {
    qint32 audioStreamNum = 0;   //!< Number of audio streams in the medium.
    qint32 channel = 0;          //!< Channel count of the described stream.
    qint32 samplingRate = 0;     //!< Sampling rate.
    qint32 bitRate = 0;          //!< Bit rate.
    char codec[8] = {};          //!< Codec text from the engine, NUL-terminated.
    char language[8] = {};       //!< Language text from the engine, NUL-terminated.
    Id3Info *id3Info = nullptr;  //!< Tag texts; heap block owned by this record.
    qint32 bitDepth = 0;         //!< Bits per sample.
};

/*!
    \brief Attributes of the medium's video stream. A default-constructed
    value has width and height -1; a zero-filled heap block has 0 and 0.
*/
struct QOrvicPlayerSession::VideoAttribute {
    qint32 videoStreamNum = 0;   //!< Number of video streams in the first program.
    qint32 width = -1;           //!< Picture width in pixels.
    qint32 height = -1;          //!< Picture height in pixels.
    qint32 videoInfo1 = 0;       //!< Engine value, copied unchanged.
    qint32 frameRate = 0;        //!< Frame rate in the engine's unit.
    qint32 videoInfo2 = 0;       //!< Engine value, copied unchanged.
    char codec[8] = {};          //!< Codec text from the engine, NUL-terminated.
};

/*!
    \brief Subtitle streams of the medium and the current switch state.
*/
struct QOrvicPlayerSession::SubtitleAttribute {
    qint32 subtitleNum = 0;      //!< Number of subtitle streams.
    qint32 curSubtitleNum = 0;   //!< Index of the current subtitle stream.
    bool subtitleOn = false;     //!< Whether subtitles are shown.
    qint32 reserved[3] = {};     //!< Not written; stays zero.
    char language[8] = {};       //!< Subtitle language text, when a client fills it.
};

/*!
    \brief Root record of the opened medium, one per session.

    Each attribute pointer is a heap block owned by this record, or null when
    the medium has no such information.
*/
struct QOrvicPlayerSession::PlayerMetaData {
    qint32 mediaType = 0;        //!< Kind of medium from the metadata reader: 0 none, 2 video, 1 and 4 other kinds.
    qint32 reserved = 0;         //!< Not written; stays 0.
    qint64 totalTime = 0;        //!< Total duration in the engine's unit.
    bool trickPlay = false;      //!< Whether the player allows trick play.
    VideoAttribute *videoAttribute = nullptr;       //!< Video record, or null.
    AudioAttribute *audioAttribute = nullptr;       //!< Audio record with the tags, or null.
    SubtitleAttribute *subtitleAttribute = nullptr; //!< Subtitle record, or null.
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
