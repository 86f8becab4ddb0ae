// Cover pictures decoded with libavcodec and scaled with libswscale into the
// RGB888 rows that a QImage of format RGB888 expects (padded to 4 bytes).
#include "metadatareader.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/frame.h>
#include <libavutil/imgutils.h>
#include <libswscale/swscale.h>
}

#include <cstring>
#include <memory>

namespace hostplatform {
namespace metadatareader {

namespace {

// swscale's vector code may store a little past the last row.
constexpr size_t kRowSlack = 64;

struct CodecContextFree {
    void operator()(AVCodecContext *c) const { avcodec_free_context(&c); }
};
struct PacketFree {
    void operator()(AVPacket *p) const { av_packet_free(&p); }
};
struct FrameFree {
    void operator()(AVFrame *f) const { av_frame_free(&f); }
};
struct ScaleFree {
    void operator()(SwsContext *s) const { sws_freeContext(s); }
};

bool startsWith(const std::vector<unsigned char> &data, const char *magic, size_t offset = 0)
{
    const size_t n = strlen(magic);
    return data.size() >= offset + n && memcmp(data.data() + offset, magic, n) == 0;
}

// The picture's own signature, not the MIME type a tagger wrote beside it.
AVCodecID codecBySignature(const std::vector<unsigned char> &data)
{
    if (data.size() >= 3 && data[0] == 0xFF && data[1] == 0xD8 && data[2] == 0xFF)
        return AV_CODEC_ID_MJPEG;
    if (startsWith(data, "\x89PNG\r\n\x1a\n"))
        return AV_CODEC_ID_PNG;
    if (startsWith(data, "GIF87a") || startsWith(data, "GIF89a"))
        return AV_CODEC_ID_GIF;
    if (startsWith(data, "BM"))
        return AV_CODEC_ID_BMP;
    if (startsWith(data, "RIFF") && startsWith(data, "WEBP", 8))
        return AV_CODEC_ID_WEBP;
    return AV_CODEC_ID_NONE;
}

// JPEG decodes to the full-range "yuvj" formats, which swscale wants named
// as their plain counterparts plus a range flag.
AVPixelFormat withoutJpegRange(AVPixelFormat format, bool &fullRange)
{
    fullRange = true;
    switch (format) {
    case AV_PIX_FMT_YUVJ420P:
        return AV_PIX_FMT_YUV420P;
    case AV_PIX_FMT_YUVJ422P:
        return AV_PIX_FMT_YUV422P;
    case AV_PIX_FMT_YUVJ444P:
        return AV_PIX_FMT_YUV444P;
    case AV_PIX_FMT_YUVJ440P:
        return AV_PIX_FMT_YUV440P;
    case AV_PIX_FMT_YUVJ411P:
        return AV_PIX_FMT_YUV411P;
    default:
        fullRange = false;
        return format;
    }
}

std::unique_ptr<AVFrame, FrameFree> decodeFrame(const EncodedPicture &picture)
{
    std::unique_ptr<AVFrame, FrameFree> none;
    const AVCodecID id = picture.codecId != AV_CODEC_ID_NONE ? AVCodecID(picture.codecId)
                                                             : codecBySignature(picture.bytes);
    const AVCodec *codec = avcodec_find_decoder(id);
    if (!codec || picture.bytes.empty() || picture.bytes.size() > size_t(INT32_MAX) - AV_INPUT_BUFFER_PADDING_SIZE)
        return none;
    std::unique_ptr<AVCodecContext, CodecContextFree> context(avcodec_alloc_context3(codec));
    std::unique_ptr<AVPacket, PacketFree> packet(av_packet_alloc());
    std::unique_ptr<AVFrame, FrameFree> frame(av_frame_alloc());
    if (!context || !packet || !frame)
        return none;
    context->max_pixels = kMaxPicturePixels;
    context->thread_count = 1;
    if (avcodec_open2(context.get(), codec, nullptr) < 0)
        return none;
    if (av_new_packet(packet.get(), int(picture.bytes.size())) < 0)
        return none;
    memcpy(packet->data, picture.bytes.data(), picture.bytes.size());
    packet->flags |= AV_PKT_FLAG_KEY;
    if (avcodec_send_packet(context.get(), packet.get()) < 0)
        return none;
    avcodec_send_packet(context.get(), nullptr); // drain: one picture, no more input
    if (avcodec_receive_frame(context.get(), frame.get()) < 0 || frame->width <= 0 || frame->height <= 0)
        return none;
    return frame;
}

} // namespace

Size fitWithin(int width, int height, int limit)
{
    if (limit <= 0 || (width <= limit && height <= limit))
        return Size{width, height};
    // Scale by the longer side; round, but never below one pixel.
    if (width >= height) {
        const int h = int((int64_t(height) * limit + width / 2) / width);
        return Size{limit, h > 0 ? h : 1};
    }
    const int w = int((int64_t(width) * limit + height / 2) / height);
    return Size{w > 0 ? w : 1, limit};
}

bool decodePicture(const EncodedPicture &picture, int sizeLimit, RgbImage &image)
{
    const std::unique_ptr<AVFrame, FrameFree> frame = decodeFrame(picture);
    if (!frame)
        return false;
    const Size target = fitWithin(frame->width, frame->height, sizeLimit);
    bool fullRange = false;
    const AVPixelFormat source = withoutJpegRange(AVPixelFormat(frame->format), fullRange);
    std::unique_ptr<SwsContext, ScaleFree> scaler(sws_getContext(frame->width, frame->height, source, target.width,
                                                                 target.height, AV_PIX_FMT_RGB24, SWS_AREA,
                                                                 nullptr, nullptr, nullptr));
    if (!scaler)
        return false;
    if (fullRange) {
        const int *coefficients = sws_getCoefficients(SWS_CS_DEFAULT);
        sws_setColorspaceDetails(scaler.get(), coefficients, 1, coefficients, 1, 0, 1 << 16, 1 << 16);
    }
    const int stride = (target.width * 3 + 3) & ~3;
    image.pixels.assign(size_t(stride) * size_t(target.height) + kRowSlack, 0);
    uint8_t *planes[4] = {image.pixels.data(), nullptr, nullptr, nullptr};
    const int strides[4] = {stride, 0, 0, 0};
    const int rows = sws_scale(scaler.get(), frame->data, frame->linesize, 0, frame->height, planes, strides);
    if (rows != target.height)
        return false;
    image.pixels.resize(size_t(stride) * size_t(target.height));
    image.width = target.width;
    image.height = target.height;
    return true;
}

} // namespace metadatareader
} // namespace hostplatform
