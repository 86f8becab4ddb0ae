#include "qorvicvideobuffer.h"

using hostplayback::VideoPixelFormat;

namespace {
const struct {
    VideoPixelFormat host;
    QVideoFrame::PixelFormat qt;
} kFormats[] = {
    // The 32-bit RGB formats are Qt's on a little-endian machine (the PC).
    {VideoPixelFormat::BGRx, QVideoFrame::Format_RGB32},
    {VideoPixelFormat::BGRA, QVideoFrame::Format_ARGB32},
    {VideoPixelFormat::RGBx, QVideoFrame::Format_BGR32},
    {VideoPixelFormat::I420, QVideoFrame::Format_YUV420P},
    {VideoPixelFormat::YV12, QVideoFrame::Format_YV12},
    {VideoPixelFormat::NV12, QVideoFrame::Format_NV12},
    {VideoPixelFormat::NV21, QVideoFrame::Format_NV21},
    {VideoPixelFormat::UYVY, QVideoFrame::Format_UYVY},
    {VideoPixelFormat::YUY2, QVideoFrame::Format_YUYV},
};
} // namespace

QOrvicVideoBuffer::QOrvicVideoBuffer(std::shared_ptr<const hostplayback::VideoFrame> frame)
    : QAbstractPlanarVideoBuffer(NoHandle),
      m_frame(std::move(frame))
{
}

int QOrvicVideoBuffer::map(MapMode mode, int *numBytes, int bytesPerLine[4], uchar *data[4])
{
    // The ring is psserver's: read-only here.
    if (mode != ReadOnly || m_mode != NotMapped)
        return 0;
    m_mode = mode;
    const hostplayback::VideoFrameLayout &layout = m_frame->layout();
    uchar *base = const_cast<uchar *>(m_frame->data());
    if (numBytes)
        *numBytes = int(layout.size);
    for (int p = 0; p < layout.planes && p < 4; ++p) {
        bytesPerLine[p] = layout.strides[p];
        data[p] = base + layout.offsets[p];
    }
    return layout.planes;
}

namespace qorvicvideo {

QVideoFrame::PixelFormat pixelFormat(VideoPixelFormat format)
{
    for (const auto &entry : kFormats) {
        if (entry.host == format)
            return entry.qt;
    }
    return QVideoFrame::Format_Invalid;
}

std::vector<VideoPixelFormat> deliverable(const QList<QVideoFrame::PixelFormat> &formats)
{
    std::vector<VideoPixelFormat> result;
    for (QVideoFrame::PixelFormat format : formats) {
        for (const auto &entry : kFormats) {
            if (entry.qt == format)
                result.push_back(entry.host);
        }
    }
    return result;
}

QVideoFrame videoFrame(const std::shared_ptr<const hostplayback::VideoFrame> &frame)
{
    const hostplayback::VideoFrameLayout &layout = frame->layout();
    QVideoFrame video(new QOrvicVideoBuffer(frame), QSize(layout.width, layout.height),
                      pixelFormat(layout.format));
    if (frame->ptsNs() >= 0)
        video.setStartTime(frame->ptsNs() / 1000); // µs
    return video;
}

} // namespace qorvicvideo
