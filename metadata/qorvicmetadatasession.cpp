#include "qorvicmetadatasession.h"

#include <cstdlib>

QOrvicMetaDataSession::QOrvicMetaDataSession(playback::SPMetaData *metaData, playback::SPPlayer *player,
                                             QObject *parent)
    : QObject(parent), mSPMetaData(metaData), mFilePlayer(player)
{
}

QOrvicMetaDataSession::~QOrvicMetaDataSession() = default;

void QOrvicMetaDataSession::releaseMetaData(QOrvicPlayerSession::PlayerMetaData &meta)
{
    if (meta.videoAttribute) {
        std::free(meta.videoAttribute);
        meta.videoAttribute = nullptr;
    }
    if (meta.audioAttribute) {
        std::free(meta.audioAttribute->id3Info);
        std::free(meta.audioAttribute);
        meta.audioAttribute = nullptr;
    }
    if (meta.subtitleAttribute) {
        std::free(meta.subtitleAttribute);
        meta.subtitleAttribute = nullptr;
    }
}
