// Plain records as the engine hands them out and as the metadata collection
// keeps them: engine attribute records filled field by field, and zero-filled
// C heap blocks for the session's metadata record.
#ifndef ORVICTEST_ENGINERECORDS_H
#define ORVICTEST_ENGINERECORDS_H

#include <playback/spmetadata.h>

#include <QtCore/QByteArray>

#include <cstdlib>
#include <cstring>

namespace orvictest {

// Zero-filled C heap blocks, as the collection makes them (freed with free()).
template <typename T>
T *callocBlock()
{
    return static_cast<T *>(std::calloc(1, sizeof(T)));
}

// A fixed-size text field: the bytes, cut at the field's size, the rest zero.
template <std::size_t N>
void setField(char (&field)[N], const QByteArray &bytes)
{
    std::memset(field, 0, N);
    std::memcpy(field, bytes.constData(), qMin(std::size_t(bytes.size()), N));
}

inline playback::SPMetaData::AudioAttribute engineAudio(int channel, int rate, int bitRate, const QByteArray &codec,
                                                         const QByteArray &language, int bitDepth)
{
    playback::SPMetaData::AudioAttribute a;
    std::memset(&a, 0, sizeof a);
    a.channel = channel;
    a.samplingRate = rate;
    a.bitRate = bitRate;
    setField(a.codec, codec);
    setField(a.language, language);
    a.bitDepth = bitDepth;
    return a;
}

inline playback::SPMetaData::VideoAttribute engineVideo(int width, int height, int info1, int frameRate, int info2,
                                                         const QByteArray &codec)
{
    playback::SPMetaData::VideoAttribute v;
    std::memset(&v, 0, sizeof v);
    v.width = width;
    v.height = height;
    v.info1 = info1;
    v.frameRate = frameRate;
    v.info2 = info2;
    setField(v.codec, codec);
    return v;
}

} // namespace orvictest

#endif // ORVICTEST_ENGINERECORDS_H
