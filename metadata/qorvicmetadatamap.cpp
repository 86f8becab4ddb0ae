// placeholder: filled in by the metadata work
#include "qorvicmetadatasession.h"
void QOrvicMetaDataSession::fillMetadataMap(QMap<QString, QVariant> &map, QOrvicPlayerSession::PlayerMetaData) { map.clear(); }
