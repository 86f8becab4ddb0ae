// Pieces shared by the parts of the playback engine (playbinengine*.cpp).
#ifndef PSSERVER_PLAYBINENGINE_P_H
#define PSSERVER_PLAYBINENGINE_P_H

#include <QtCore/QByteArray>
#include <QtCore/QtEndian>

#include <gst/gst.h>

namespace playbinengine {

// playbin's GstPlayFlags.
constexpr int kFlagVideo = 1 << 0;
constexpr int kFlagText = 1 << 2;
constexpr int kFlagNativeVideo = 1 << 6;
constexpr int kFlagDeinterlace = 1 << 9;
constexpr int kFlagSoftColorBalance = 1 << 10;
// The filters playbin puts between the video decoder and the sink besides
// the converters (which kFlagNativeVideo leaves out).
constexpr int kVideoFilterFlags = kFlagDeinterlace | kFlagSoftColorBalance;

// A sink from its gst-launch description; empty: a synchronised fakesink.
GstElement *makeSink(const QByteArray &description);

// Whether anybody sees the video: with `shown` false the decoder's frames go
// to the sink as they are, without the chain of filters before it.
void setVideoFilters(GstElement *playbin, bool shown);

inline qint64 nsToMs(gint64 ns)
{
    return ns / GST_MSECOND;
}

inline QByteArray intBytes(int value)
{
    QByteArray bytes(4, '\0');
    qToLittleEndian<qint32>(value, bytes.data());
    return bytes;
}

} // namespace playbinengine

#endif // PSSERVER_PLAYBINENGINE_P_H
