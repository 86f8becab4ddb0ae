// Synchronous questions of a client about one stream of the opened medium.
#include "qorvicplayersession.h"
#include "qorvicplayersession_p.h"
#include "qorviclogging_p.h"

#include <cstring>

namespace {
int audioStreamInfoMetaType()
{
    static const int id = qRegisterMetaType<QMediaPlayer::AudioStreamInfo>("QMediaPlayer::AudioStreamInfo");
    return id;
}

int subtitleInfoMetaType()
{
    static const int id = qRegisterMetaType<QMediaPlayer::SubtitleInfo>("QMediaPlayer::SubtitleInfo");
    return id;
}
} // namespace

QVariant QOrvicPlayerSession::metadataInvoke(QMediaPlayer::MetadataInvoke id, QVariant param)
{
    OPSESSION_LOG("D/OPSession %s(%d):metadatainvoke id %d", int(id));
    using Adaptor = QOrvicPlayerSessionPrivate;
    const int question = int(id);
    if (question != Adaptor::kAudioStreamInvoke && question != Adaptor::kSubtitleStreamInvoke)
        return QVariant(0);
    bool ok = false;
    const int index = param.toInt(&ok);
    if (!ok)
        return QVariant(0);

    // Whatever the engine leaves in the zero-filled records is the answer,
    // also when it fails: empty texts rather than no record.
    if (question == Adaptor::kSubtitleStreamInvoke) {
        playback::SPMetaData::SubtitleAttribute attribute;
        std::memset(&attribute, 0, sizeof attribute);
        d->getSubtitleAttribute(index, attribute);
        QMediaPlayer::SubtitleInfo info{};
        info.language = Adaptor::engineText(attribute.language, sizeof attribute.language);
        return QVariant(subtitleInfoMetaType(), &info);
    }

    playback::SPMetaData::AudioAttribute attribute;
    std::memset(&attribute, 0, sizeof attribute);
    // Value-initialised: the leading int is 0 whatever the platform's record
    // declares for it, since nothing here fills it.
    QMediaPlayer::AudioStreamInfo info{};
    d->getAudioAttribute(index, attribute);
    info.codec = Adaptor::engineText(attribute.codec, sizeof attribute.codec);
    info.language = Adaptor::engineText(attribute.language, sizeof attribute.language);
    return QVariant(audioStreamInfoMetaType(), &info);
}
