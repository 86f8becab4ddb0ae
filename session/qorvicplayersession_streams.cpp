// Engine adaptor: volume, muting, stream and subtitle switches, and the single
// stream attributes asked for by metadataInvoke().
#include "qorvicplayersession_p.h"
#include "qorvicmetadatasession.h"
#include "qorviclogging_p.h"

#include <QtCore/QMutexLocker>
#include <QtMultimedia/QMediaMetaData>

namespace {
// Engine stream types of changeStream().
const int kAudioStreamType = 1;
const int kSubtitleStreamType = 3;
const unsigned int kMaxVolume = 100;
} // namespace

QString QOrvicPlayerSessionPrivate::engineText(const char *text, int capacity)
{
    return QString::fromLatin1(text, int(qstrnlen(text, uint(capacity))));
}

void QOrvicPlayerSessionPrivate::setVolume(int volume)
{
    const PlayerLocker locker(this);
    OPSESSION_LOG("V/OPSession %s(%d) called");
    if (!mFilePlayer) {
        OPSESSION_LOG("D/OPSession %s(%d):mFilePlayer is null");
        return;
    }
    OPSESSION_LOG("D/OPSession %s(%d):set vol %d org vol %d ismute %d", volume, mVolume.load(), int(mMuted.load()));
    // Compared unsigned, so negative volumes are refused with the too large ones.
    if (volume == mVolume || unsigned(volume) > kMaxVolume)
        return;
    mVolume = volume;
    // While muted the engine stays silent; the volume applies when unmuting.
    if (!mMuted) {
        const int result = mFilePlayer->setStreamVolume(volume);
        OPSESSION_LOG("D/OPSession %s(%d):setStreamVolume %d", result);
    }
    Q_EMIT q->volumeChanged(volume);
}

void QOrvicPlayerSessionPrivate::setMuted(bool muted)
{
    const PlayerLocker locker(this);
    OPSESSION_LOG("V/OPSession %s(%d) called");
    if (!mFilePlayer) {
        OPSESSION_LOG("D/OPSession %s(%d):mFilePlayer is null");
        return;
    }
    OPSESSION_LOG("D/OPSession %s(%d):old mute %d new mute %d", int(mMuted.load()), int(muted));
    if (muted == mMuted)
        return;
    mMuted = muted;
    int result = 0;
    if (muted) {
        OPSESSION_LOG("D/OPSession %s(%d):set muted %d", 0);
        result = mFilePlayer->setStreamVolume(0);
    } else {
        result = mFilePlayer->setStreamVolume(mVolume);
    }
    OPSESSION_LOG("D/OPSession %s(%d):setStreamVolume %d", result);
    Q_EMIT q->mutedStateChanged(muted);
}

void QOrvicPlayerSessionPrivate::setAudioStream(int stream)
{
    // Held throughout: the audio block that the metadata map is built from is rebuilt.
    const PlayerLocker locker(this);
    OPSESSION_LOG("V/OPSession %s(%d) called");
    if (!mFilePlayer) {
        OPSESSION_LOG("D/OPSession %s(%d):mFilePlayer is null");
        return;
    }
    // Media are told apart by their video block here: a medium without one is
    // refused even when it carries audio.
    if (!mMetaData.videoAttribute) {
        OPSESSION_LOG("E/OPSession %s(%d):has not audio stream");
        Q_EMIT q->error(1, QStringLiteral("has not audio stream"));
        return;
    }
    const int result = mFilePlayer->changeStream(kAudioStreamType, stream);
    if (result != 0) {
        OPSESSION_LOG("E/OPSession %s(%d):PE_FILE_ChangeAudioStream error %d", result);
        return;
    }
    mCurAudioStream = stream;

    playback::SPMetaData::AudioAttribute attribute{};
    if (!mSPMetaData || mSPMetaData->getAudioAttribute(0, stream, attribute) != 0)
        return;
    Q_EMIT q->metaDataChanged(QMediaMetaData::AudioStream, QVariant(stream));
    Q_EMIT q->metaDataChanged(QMediaMetaData::AudioCodec,
                              QVariant(engineText(attribute.codec, sizeof attribute.codec)));
    Q_EMIT q->metaDataChanged(QMediaMetaData::Language,
                              QVariant(engineText(attribute.language, sizeof attribute.language)));
    // The map is refreshed for later readers; the single keys above are the announcement.
    if (mMetaSession) {
        mMetaSession->updateAudioMetadata(mMetaData, stream, 0);
        mMetaSession->fillMetadataMap(mMetaDataMap, mMetaData);
    }
}

void QOrvicPlayerSessionPrivate::setSubtitleNum(int stream)
{
    const PlayerLocker locker(this);
    OPSESSION_LOG("V/OPSession %s(%d) called");
    if (!mFilePlayer) {
        OPSESSION_LOG("D/OPSession %s(%d):mFilePlayer is null");
        return;
    }
    OPSESSION_LOG("D/OPSession %s(%d):mCurSubtitleNum:%d ", mCurSubtitleNum);
    if (!mMetaData.subtitleAttribute)
        return;
    const int result = mFilePlayer->changeStream(kSubtitleStreamType, stream);
    if (result != 0) {
        OPSESSION_LOG("E/OPSession %s(%d):PE_FILE_ChangeSupicStream error %d", result);
        return;
    }
    mCurSubtitleNum = stream;
    Q_EMIT q->metaDataChanged(QMediaMetaData::SubtitleId, QVariant(stream));

    if (mMetaSession)
        mMetaSession->updateSubtitleMetadata(mMetaData, stream, 0);
    // The engine may not report the switch yet; the session's own view wins.
    if (mMetaData.subtitleAttribute) {
        mMetaData.subtitleAttribute->subtitleOn = mSubtitleOn;
        mMetaData.subtitleAttribute->curSubtitleNum = mCurSubtitleNum;
    }
    if (mMetaSession)
        mMetaSession->fillMetadataMap(mMetaDataMap, mMetaData);
    OPSESSION_LOG("D/OPSession %s(%d):setsubtitlenum:%d ", mMetaDataMap.value(QMediaMetaData::SubtitleId).toInt());
    Q_EMIT q->metadataChanged(QVariantMap(mMetaDataMap));
}

void QOrvicPlayerSessionPrivate::setSubtitleOnOff(bool on)
{
    const PlayerLocker locker(this);
    OPSESSION_LOG("V/OPSession %s(%d) called");
    if (!mFilePlayer) {
        OPSESSION_LOG("D/OPSession %s(%d):mFilePlayer is null");
        return;
    }
    const bool value = on;
    if (mFilePlayer->setParameter("mPlayer", "set-subtitle-onoff", &value, 1) != 0) {
        OPSESSION_LOG("E/OPSession %s(%d):setSubtitleOnOff isOn: %d failed!!", int(on));
        return;
    }
    mSubtitleOn = on;
    // A medium without subtitle block has nothing to record the switch in.
    if (mMetaData.subtitleAttribute)
        mMetaData.subtitleAttribute->subtitleOn = on;
    if (mMetaSession)
        mMetaSession->fillMetadataMap(mMetaDataMap, mMetaData);
    Q_EMIT q->metaDataChanged(QMediaMetaData::SubtitleOnOff, QVariant(on));
    Q_EMIT q->metadataChanged(QVariantMap(mMetaDataMap));
    OPSESSION_LOG("D/OPSession %s(%d):setSubtitleOnOff isOn: %d dPERet!(%d)", int(on), 0);
}

void QOrvicPlayerSessionPrivate::setVideoOnOff(bool on)
{
    const PlayerLocker locker(this);
    OPSESSION_LOG("V/OPSession %s(%d) called");
    if (!mFilePlayer) {
        OPSESSION_LOG("D/OPSession %s(%d):mFilePlayer is null");
        return;
    }
    const bool value = on;
    if (mFilePlayer->setParameter("mDecoder", "set-video-onoff", &value, 1) != 0)
        OPSESSION_LOG("E/OPSession %s(%d):setVideoOnOff isOn: %d failed!!", int(on));
}

void QOrvicPlayerSessionPrivate::setAudioOnOff(bool on)
{
    const PlayerLocker locker(this);
    OPSESSION_LOG("V/OPSession %s(%d) called");
    if (!mFilePlayer) {
        OPSESSION_LOG("D/OPSession %s(%d):mFilePlayer is null");
        return;
    }
    const bool value = on;
    if (mFilePlayer->setParameter("mDecoder", "set-audio-onoff", &value, 1) != 0)
        OPSESSION_LOG("E/OPSession %s(%d):setAudioOnOff isOn: %d failed!!", int(on));
}

void QOrvicPlayerSessionPrivate::getSubtitleAttribute(int index, playback::SPMetaData::SubtitleAttribute &attr)
{
    const PlayerLocker locker(this);
    OPSESSION_LOG("V/OPSession %s(%d) called");
    if (!mFilePlayer) {
        OPSESSION_LOG("D/OPSession %s(%d):mFilePlayer is null");
        return;
    }
    const int result = mFilePlayer->getSubtitleLanguage(index, attr.language);
    OPSESSION_LOG("D/OPSession %s(%d):language:%s",
                  engineText(attr.language, sizeof attr.language).toLatin1().constData());
    if (result != 0)
        OPSESSION_LOG("E/OPSession %s(%d):error");
}

void QOrvicPlayerSessionPrivate::getAudioAttribute(int index, playback::SPMetaData::AudioAttribute &attr)
{
    const PlayerLocker locker(this);
    OPSESSION_LOG("V/OPSession %s(%d) called");
    // Answered by the metadata reader; the player is not needed.
    const int result = mSPMetaData ? mSPMetaData->getAudioAttribute(0, index, attr) : -1;
    if (result != 0)
        OPSESSION_LOG("E/OPSession %s(%d):error");
}
