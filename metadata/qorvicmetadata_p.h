// Internal helpers shared by the metadata session's source files. Not exported.
#ifndef QORVICMETADATA_P_H
#define QORVICMETADATA_P_H

#include "qorvicplayersession.h"

#include <QtCore/qbytearray.h>
#include <QtCore/qstring.h>

#include <cstddef>

namespace QOrvicMetaData {

// The one decoding step of every text conversion: the codec is looked up by
// name; an unknown (or empty) name takes the bytes as Latin-1; the result ends
// at the first NUL. `bytes` is zero-terminated; null gives a null string.
QString decodeWithCodec(const QString &codecName, const char *bytes);

// The bytes of a fixed text field up to its NUL or the end of the field,
// whichever comes first: engine and tag fields are not trusted to hold a NUL.
template <std::size_t N>
inline QByteArray fieldBytes(const char (&field)[N])
{
    return QByteArray(field, int(qstrnlen(field, uint(N))));
}

// Block releases: free and null the pointer; the tag block goes with its audio block.
void releaseAudioBlock(QOrvicPlayerSession::PlayerMetaData &meta);
void releaseVideoBlock(QOrvicPlayerSession::PlayerMetaData &meta);
void releaseSubtitleBlock(QOrvicPlayerSession::PlayerMetaData &meta);

} // namespace QOrvicMetaData

#endif // QORVICMETADATA_P_H
