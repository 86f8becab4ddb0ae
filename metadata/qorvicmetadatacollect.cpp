// Stream metadata collection: engine queries into the PlayerMetaData record.
#include "qorvicmetadatasession.h"
#include "qorvicmetadata_p.h"
#include "qorviclogging_p.h"

#include <playback/spmetadata.h>
#include <playback/spplayer.h>

#include <cstdlib>
#include <cstring>
#include <initializer_list>

using QOrvicMetaData::fieldBytes;

namespace {
const char kPlayerTarget[] = "mPlayer";
const int kSubtitleStreamType = 3;
const int kTagTextMax = 256;
const size_t kTagCopyLimit = 255;
const size_t kDateCopyLimit = 4;

enum TagFlag { TagAbsent = 0, TagFallbackOrV1 = 1, TagMainV2 = 2 };

bool isStoredMediaType(int kind)
{
    return kind == 1 || kind == 2 || kind == 4;
}

// Asks for one tag under its main key, then under each fallback key; copies
// the first answer with `limit` (the field's last byte stays NUL) and
// returns the flag it earns.
qint32 fetchTag(playback::SPMetaData *reader, const char *mainKey,
                std::initializer_list<const char *> fallbackKeys, char *field, size_t limit)
{
    if (const char *bytes = reader->getMetaString(mainKey)) {
        std::strncpy(field, bytes, limit);
        return reader->isTagV2() ? TagMainV2 : TagFallbackOrV1;
    }
    for (const char *key : fallbackKeys) {
        if (const char *bytes = reader->getMetaString(key)) {
            std::strncpy(field, bytes, limit);
            return TagFallbackOrV1;
        }
    }
    return TagAbsent;
}

void fetchTags(playback::SPMetaData *reader, QOrvicPlayerSession::Id3Info &tags)
{
    tags.titleFlag = fetchTag(reader, "title", {"title_v1"}, tags.title, kTagCopyLimit);
    tags.artistFlag = fetchTag(reader, "artist", {"artist_v1", "TP1_V1"}, tags.artist, kTagCopyLimit);
    tags.albumFlag = fetchTag(reader, "album", {"album_v1", "TAL_V1"}, tags.album, kTagCopyLimit);
    tags.dateFlag = fetchTag(reader, "date", {"date_v1"}, tags.date, kDateCopyLimit);
    tags.commentFlag = fetchTag(reader, "comment", {"comment_v1"}, tags.comment, kTagCopyLimit);
    tags.genreFlag = fetchTag(reader, "genre", {"genre_v1"}, tags.genre, kTagCopyLimit);
}
} // namespace

void QOrvicMetaDataSession::updateAVMetadata(QOrvicPlayerSession::PlayerMetaData &meta)
{
    OPMETA_LOG("V/OPMetaSession %s(%d) called");
    const int kind = mSPMetaData->getMediaType();
    // The engine's kind 3 is not one the session publishes: the previous kind stays.
    if (isStoredMediaType(kind))
        meta.mediaType = kind;
    else if (kind != 3)
        meta.mediaType = 0;

    updateAudioMetadata(meta, 0, 0);
    updateVideoMetadata(meta, 0, 0);
    updateSubtitleMetadata(meta, 0, 0);
    updateTrickPlayFlag(meta);
    updateTotalTime(meta);
}

void QOrvicMetaDataSession::updateAudioMetadata(QOrvicPlayerSession::PlayerMetaData &meta, int stream,
                                                int program)
{
    playback::SPMetaData::AudioAttribute engineAudio;
    std::memset(&engineAudio, 0, sizeof engineAudio);

    // The program count is only reported here.
    const int programs = mSPMetaData->getProgramNum();
    OPMETA_LOG("D/OPMetaSession %s(%d):program num %d", programs);
    QOrvicMetaData::releaseAudioBlock(meta);

    int count = 0;
    if (mFilePlayer && mFilePlayer->getParameter(kPlayerTarget, "get-audio-count", &count, sizeof count) < 0)
        OPMETA_LOG("D/OPMetaSession %s(%d):mFilePlayer get audioTrackNum fail\n");
    if (!mFilePlayer || count == 0) {
        OPMETA_LOG("D/OPMetaSession %s(%d):use mSPMetaData to get audioTrackNum\n");
        count = mSPMetaData->getAudioStreamNum(program);
        if (count == 0) {
            // Without audio the medium's video facts are dropped as well.
            QOrvicMetaData::releaseVideoBlock(meta);
            return;
        }
    }
    if (mSPMetaData->getAudioAttribute(0, stream, engineAudio) == -1) {
        QOrvicMetaData::releaseVideoBlock(meta);
        return;
    }

    auto *audio = static_cast<QOrvicPlayerSession::AudioAttribute *>(
        std::calloc(1, sizeof(QOrvicPlayerSession::AudioAttribute)));
    if (!audio)
        return;
    meta.audioAttribute = audio;
    audio->audioStreamNum = count;
    audio->channel = engineAudio.channel;
    audio->samplingRate = engineAudio.samplingRate;
    audio->bitRate = engineAudio.bitRate;
    std::memcpy(audio->codec, engineAudio.codec, sizeof audio->codec);
    std::memcpy(audio->language, engineAudio.language, sizeof audio->language);
    audio->bitDepth = engineAudio.bitDepth;
    OPMETA_LOG("D/OPMetaSession %s(%d):audio stream num %d, channel %d, sampling rate %d, bit rate %d, "
               "bit depth %d, language %s, codec %s",
               audio->audioStreamNum, audio->channel, audio->samplingRate, audio->bitRate, audio->bitDepth,
               fieldBytes(audio->language).constData(), fieldBytes(audio->codec).constData());

    // The audio block is new, so is its tag block.
    audio->id3Info = static_cast<QOrvicPlayerSession::Id3Info *>(std::malloc(sizeof(QOrvicPlayerSession::Id3Info)));
    if (!audio->id3Info)
        return;
    std::memset(static_cast<void *>(audio->id3Info), 0, sizeof(QOrvicPlayerSession::Id3Info));
    OPMETA_LOG("D/OPMetaSession %s(%d):id3 string max length is %d", kTagTextMax);
    fetchTags(mSPMetaData, *audio->id3Info);
}

void QOrvicMetaDataSession::updateVideoMetadata(QOrvicPlayerSession::PlayerMetaData &meta, int stream,
                                                int /*program: the first program is always asked*/)
{
    OPMETA_LOG("D/OPMetaSession %s(%d):updateVideoMetadata %d", meta.mediaType);
    if (meta.mediaType != 2)
        return;

    playback::SPMetaData::VideoAttribute engineVideo;
    std::memset(&engineVideo, 0, sizeof engineVideo);
    if (mSPMetaData->getProgramNum() == 0)
        return;

    const int count = mSPMetaData->getVideoStreamNum(0);
    if (count == 0 || mSPMetaData->getVideoAttribute(0, stream, engineVideo) == -1) {
        QOrvicMetaData::releaseVideoBlock(meta);
        return;
    }

    if (!meta.videoAttribute) {
        meta.videoAttribute = static_cast<QOrvicPlayerSession::VideoAttribute *>(
            std::calloc(1, sizeof(QOrvicPlayerSession::VideoAttribute)));
        if (!meta.videoAttribute)
            return;
    }
    QOrvicPlayerSession::VideoAttribute &video = *meta.videoAttribute;
    video.videoStreamNum = count;
    video.width = engineVideo.width;
    video.height = engineVideo.height;
    video.videoInfo1 = engineVideo.info1;
    video.frameRate = engineVideo.frameRate;
    video.videoInfo2 = engineVideo.info2;
    std::memcpy(video.codec, engineVideo.codec, sizeof video.codec);
    OPMETA_LOG("D/OPMetaSession %s(%d):width*height %d * %d\n", video.width, video.height);
    // The line has always named the codec without printing it.
    OPMETA_LOG("D/OPMetaSession %s(%d):codec");
}

void QOrvicMetaDataSession::updateSubtitleMetadata(QOrvicPlayerSession::PlayerMetaData &meta, int stream,
                                                   int /*program: the first program is always asked*/)
{
    int count = 0;
    int onoff = 0;
    int current = -1;
    int status = -4;
    if (mFilePlayer) {
        status = mFilePlayer->getParameter(kPlayerTarget, "get-subtitle-count", &count, sizeof count);
        current = mFilePlayer->getCurrentStream(kSubtitleStreamType);
        // The status of the on/off query is what tells whether subtitles show.
        onoff = mFilePlayer->getParameter(kPlayerTarget, "get-subtitle-onoff", &onoff, sizeof onoff);
    }
    if (!mFilePlayer || count == 0) {
        OPMETA_LOG("D/OPMetaSession %s(%d):use mSPMetaData to get subtitleTrackNum\n");
        if (mSPMetaData->getProgramNum() != 0) {
            current = stream;
            status = 0;
            count = mSPMetaData->getSubtitleStreamNum(0);
        }
    }

    // A record with no subtitle stream in it is still kept when nothing failed.
    if (stream == -1 || status < 0 || count < 0) {
        QOrvicMetaData::releaseSubtitleBlock(meta);
        return;
    }
    if (!meta.subtitleAttribute) {
        meta.subtitleAttribute = static_cast<QOrvicPlayerSession::SubtitleAttribute *>(
            std::calloc(1, sizeof(QOrvicPlayerSession::SubtitleAttribute)));
        if (!meta.subtitleAttribute)
            return;
    }
    meta.subtitleAttribute->subtitleNum = count;
    meta.subtitleAttribute->curSubtitleNum = current;
    meta.subtitleAttribute->subtitleOn = onoff != 0;
    OPMETA_LOG_STREAM() << "get subtitle ison" << onoff << stream << count;
}

void QOrvicMetaDataSession::updateTrickPlayFlag(QOrvicPlayerSession::PlayerMetaData &meta)
{
    if (mFilePlayer)
        meta.trickPlay = mFilePlayer->isTrickPlaySupported();
    else
        OPMETA_LOG("D/OPMetaSession %s(%d):updateSubtitleMetadata mFilePlayer is NULL!\n");
}

void QOrvicMetaDataSession::updateTotalTime(QOrvicPlayerSession::PlayerMetaData &meta)
{
    meta.totalTime = mSPMetaData->getDuration();
}
