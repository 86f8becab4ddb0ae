#ifndef QORVICVIDEOBUFFER_H
#define QORVICVIDEOBUFFER_H

#include <hostplayback/videoout.h>

#include <QtMultimedia/QAbstractVideoBuffer>
#include <QtMultimedia/QVideoFrame>

#include <memory>
#include <vector>

// A frame in psserver's shared ring, mapped read-only without a copy. The
// ring slot goes back to psserver when Qt drops the last copy of the
// QVideoFrame (and with it this buffer).
class QOrvicVideoBuffer : public QAbstractPlanarVideoBuffer
{
public:
    explicit QOrvicVideoBuffer(std::shared_ptr<const hostplayback::VideoFrame> frame);

    MapMode mapMode() const override { return m_mode; }
    // Every plane at once; the single-plane map of the base class uses it.
    int map(MapMode mode, int *numBytes, int bytesPerLine[4], uchar *data[4]) override;
    void unmap() override { m_mode = NotMapped; }

private:
    std::shared_ptr<const hostplayback::VideoFrame> m_frame;
    MapMode m_mode = NotMapped;
};

namespace qorvicvideo {
// Qt's pixel format of a ring layout, Format_Invalid when Qt has none.
QVideoFrame::PixelFormat pixelFormat(hostplayback::VideoPixelFormat format);
// The layouts psserver can deliver among `formats`, in the same order.
std::vector<hostplayback::VideoPixelFormat> deliverable(const QList<QVideoFrame::PixelFormat> &formats);
// The frame as Qt sees it (no copy), with its start time.
QVideoFrame videoFrame(const std::shared_ptr<const hostplayback::VideoFrame> &frame);
} // namespace qorvicvideo

#endif // QORVICVIDEOBUFFER_H
