// Engine adaptor: opening a medium.
#include "qorvicplayersession_p.h"
#include "qorvicmetadatasession.h"
#include "qorviclogging_p.h"

#include <QtCore/QMutexLocker>

#include <cstring>

namespace {
// Streaming schemes; the engine fetches these itself, so the metadata reader
// is not pointed at them. Compared case-sensitively over the prefix only.
const char *const kNetworkPrefixes[] = {"http:", "https:", "rtmp:", "rtsp:"};

bool hasNetworkPrefix(const QByteArray &url)
{
    bool network = false;
    for (const char *prefix : kNetworkPrefixes) {
        if (std::strncmp(url.constData(), prefix, std::strlen(prefix)) == 0)
            network = true;
    }
    return network;
}

const char kFormatNotSupported[] = "video format not support";
} // namespace

void QOrvicPlayerSessionPrivate::setMedia(QString url)
{
    const PlayerLocker locker(this);
    OPSESSION_LOG("V/OPSession %s(%d) called");
    OPSESSION_LOG("D/OPSession %s(%d):setmedia::%s ", url.toUtf8().constData());
    if (!mFilePlayer) {
        OPSESSION_LOG("D/OPSession %s(%d): setMedia failed. mFilePlayer is null. ");
        return;
    }

    // A busy engine must be brought back to its initial state before it
    // accepts another URL.
    if (mCurrentState > QOrvicPlayerSession::Player_Stop) {
        OPSESSION_LOG("D/OPSession %s(%d):stop start ");
        const int stopped = mFilePlayer->stop();
        OPSESSION_LOG("D/OPSession %s(%d):stop:%d ", stopped);
        const int reset = mFilePlayer->reset();
        OPSESSION_LOG("D/OPSession %s(%d):reset:%d ", reset);
        setState(QOrvicPlayerSession::Player_Preparing);
    }

    setAvailableRanges(QMediaTimeRange());
    // The streams of the previous medium are gone with it; the new medium's
    // are known once its metadata is collected.
    setStreamCounts(0, 0);
    mCurrentUrl = url;
    const QByteArray path = url.toUtf8();

    // Sticky on purpose: once a stream was opened, later media are handled as
    // streams too until the engine is brought up again.
    if (hasNetworkPrefix(path))
        mIsNetwork = true;

    if (!mIsNetwork) {
        OPSESSION_LOG("D/OPSession %s(%d):mSPMetaData: ");
        const int result = mSPMetaData ? mSPMetaData->setUrl(path.constData()) : -1;
        OPSESSION_LOG("D/OPSession %s(%d):setUrl::%d ", result);
    }

    if (mIsStopping.loadAcquire()) {
        OPSESSION_LOG("D/OPSession %s(%d):stop process is doing");
        return;
    }

    mMetaData.totalTime = 0;
    const int opened = mFilePlayer->setUrl(path.constData());
    if (mFilePlayer->setSubUrl(path.constData()) < 0)
        OPSESSION_LOG("D/OPSession %s(%d):setSubUrl error");
    OPSESSION_LOG("D/OPSession %s(%d):open file %s return value %d ", path.constData(), opened);
    if (opened != 0) {
        OPSESSION_LOG("E/OPSession %s(%d):open file fail %d", opened);
        // Stored without an announcement: the error signal tells the client.
        storeState(QOrvicPlayerSession::Player_Stop);
        mCurrentUrl.clear();
        Q_EMIT q->error(2, QString::fromLatin1(kFormatNotSupported));
        return;
    }

    setState(QOrvicPlayerSession::Player_Preparing);
    const int prepared = mFilePlayer->prepare(0, 0);
    if (prepared != 0) {
        OPSESSION_LOG("E/OPSession %s(%d):open file fail %d", prepared);
        // A metadata-only client still wants what the reader could find.
        if (isMetaDataOnly(mFlags)) {
            OPSESSION_LOG("D/OPSession %s(%d):update metadata");
            openMetadata(url);
        }
        mCurrentUrl.clear();
        storeState(QOrvicPlayerSession::Player_Stop);
        Q_EMIT q->error(1, QString::fromLatin1(kFormatNotSupported));
        return;
    }

    setState(QOrvicPlayerSession::Player_Prepared);
    if (!mIsNetwork && mMetaSession)
        mMetaSession->updateAVMetadata(mMetaData);

    // The stop flag is read without the player lock: a stop may have started
    // while the engine was preparing.
    if (mCurrentState == QOrvicPlayerSession::Player_Stop || mIsStopping.loadAcquire()) {
        OPSESSION_LOG("D/OPSession %s(%d):stop process is doing or done");
        return;
    }

    // Streams report metadata, seekability and duration later through the
    // engine's callbacks.
    if (!mIsNetwork) {
        if (mMetaSession)
            mMetaSession->fillMetadataMap(mMetaDataMap, mMetaData);
        Q_EMIT q->metadataChanged(QVariantMap(mMetaDataMap));
        Q_EMIT q->seekableChanged(mMetaData.trickPlay);
        setStreamCountsFromMetaData();
        OPSESSION_LOG("D/OPSession %s(%d):open file emit total time %d isvideo %d is audio %d",
                      int(mMetaData.totalTime), int(q->isVideoAvailable()), int(q->isAudioAvailable()));
        Q_EMIT q->positionChanged(0);
        Q_EMIT q->durationChanged(mFilePlayer->getDuration());
    }

    if (mPlaybackRate != 1.0f)
        mPlaybackRate = 1.0f;
    Q_EMIT q->playbackRateChanged(1.0f);
    mResumePosition = 0;
}

void QOrvicPlayerSessionPrivate::openMetadata(QString url)
{
    OPSESSION_LOG("V/OPSession %s(%d) called");
    // The reader keeps the URL it was given when the medium was set.
    const QByteArray path = url.toUtf8();
    Q_UNUSED(path);
    if (!mMetaSession) {
        OPSESSION_LOG("D/OPSession %s(%d):mMetaSession is null");
        return;
    }
    mMetaSession->updateAVMetadata(mMetaData);
    mMetaSession->fillMetadataMap(mMetaDataMap, mMetaData);
    Q_EMIT q->metadataChanged(QVariantMap(mMetaDataMap));
    setStreamCountsFromMetaData();
}

void QOrvicPlayerSessionPrivate::setStreamCounts(int audio, int video)
{
    const bool hadVideo = mVideoStreamNum != 0;
    const bool hadAudio = mAudioStreamNum != 0;
    mVideoStreamNum = video;
    mAudioStreamNum = audio;
    if (hadVideo != (video != 0))
        Q_EMIT q->videoAvailableChanged(video != 0);
    if (hadAudio != (audio != 0))
        Q_EMIT q->audioAvailableChanged(audio != 0);
}

void QOrvicPlayerSessionPrivate::setStreamCountsFromMetaData()
{
    // A medium without a block has none of those streams. The collection
    // leaves the video block of an earlier medium in place when this one is
    // not a video, so the block counts only for a video medium.
    const int kVideoMedium = 2;
    const int audio = mMetaData.audioAttribute ? mMetaData.audioAttribute->audioStreamNum : 0;
    const int video = mMetaData.videoAttribute && mMetaData.mediaType == kVideoMedium
        ? mMetaData.videoAttribute->videoStreamNum : 0;
    setStreamCounts(audio, video);
}

void QOrvicPlayerSessionPrivate::openVideoThumbnail(QString url)
{
    OPSESSION_LOG("V/OPSession %s(%d) called");
    // Thumbnails are not produced by this engine.
    const QByteArray path = url.toUtf8();
    Q_UNUSED(path);
}

void QOrvicPlayerSessionPrivate::setResumeData(QMediaPlayer::ResumeData *data)
{
    // The engine resumes from the data it reports itself; nothing to hand back.
    Q_UNUSED(data);
}
