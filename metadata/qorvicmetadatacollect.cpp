// placeholder: filled in by the metadata work
#include "qorvicmetadatasession.h"
void QOrvicMetaDataSession::updateAVMetadata(QOrvicPlayerSession::PlayerMetaData &) {}
void QOrvicMetaDataSession::updateAudioMetadata(QOrvicPlayerSession::PlayerMetaData &, int, int) {}
void QOrvicMetaDataSession::updateVideoMetadata(QOrvicPlayerSession::PlayerMetaData &, int, int) {}
void QOrvicMetaDataSession::updateSubtitleMetadata(QOrvicPlayerSession::PlayerMetaData &, int, int) {}
void QOrvicMetaDataSession::updateTrickPlayFlag(QOrvicPlayerSession::PlayerMetaData &) {}
void QOrvicMetaDataSession::updateTotalTime(QOrvicPlayerSession::PlayerMetaData &) {}
QImage QOrvicMetaDataSession::updateID3Pic() { return QImage(); }
