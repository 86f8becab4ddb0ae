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

// A sink from its gst-launch description; empty: a synchronised fakesink.
GstElement *makeSink(const QByteArray &description);

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
