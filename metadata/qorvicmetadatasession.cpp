#include "qorvicmetadatasession.h"
#include "qorvicmetadata_p.h"

#include <cstdlib>

QOrvicMetaDataSession::QOrvicMetaDataSession(playback::SPMetaData *metaData, playback::SPPlayer *player,
                                             QObject *parent)
    : QObject(parent), mSPMetaData(metaData), mFilePlayer(player)
{
}

QOrvicMetaDataSession::~QOrvicMetaDataSession() = default;

void QOrvicMetaDataSession::releaseMetaData(QOrvicPlayerSession::PlayerMetaData &meta)
{
    QOrvicMetaData::releaseVideoBlock(meta);
    QOrvicMetaData::releaseAudioBlock(meta);
    QOrvicMetaData::releaseSubtitleBlock(meta);
}

namespace QOrvicMetaData {

void releaseAudioBlock(QOrvicPlayerSession::PlayerMetaData &meta)
{
    if (!meta.audioAttribute)
        return;
    // The tag block belongs to the audio block: a refresh builds both anew.
    std::free(meta.audioAttribute->id3Info);
    std::free(meta.audioAttribute);
    meta.audioAttribute = nullptr;
}

void releaseVideoBlock(QOrvicPlayerSession::PlayerMetaData &meta)
{
    std::free(meta.videoAttribute);
    meta.videoAttribute = nullptr;
}

void releaseSubtitleBlock(QOrvicPlayerSession::PlayerMetaData &meta)
{
    std::free(meta.subtitleAttribute);
    meta.subtitleAttribute = nullptr;
}

} // namespace QOrvicMetaData

// The meta-object lives with the class, so that linking the metadata session
// does not drag in every other moc'd class of the library.
#include "moc_qorvicmetadatasession.cpp"
