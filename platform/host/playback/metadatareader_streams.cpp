// Stream attributes, duration, container tags and attached pictures through
// libavformat: it answers synchronously in the calling thread, from the
// container headers and a few packets, without building a pipeline.
#include "metadatareader.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/dict.h>
#include <libavutil/log.h>
#include <libavutil/time.h>
}

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <mutex>
#include <vector>

namespace hostplatform {
namespace metadatareader {

namespace {

// A hostile or oddly muxed file must not keep the caller (the session's
// opening path) waiting: libavformat polls this and gives up past the deadline.
constexpr int64_t kProbeDeadlineUs = 4 * 1000 * 1000;

struct Deadline {
    int64_t until;
};

int deadlinePassed(void *opaque)
{
    return av_gettime_relative() > static_cast<const Deadline *>(opaque)->until;
}

struct FormatCloser {
    void operator()(AVFormatContext *context) const { avformat_close_input(&context); }
};
using FormatContextPtr = std::unique_ptr<AVFormatContext, FormatCloser>;

// A medium in memory, read through libavformat's I/O callbacks.
struct MemoryReader {
    const unsigned char *data;
    int64_t size;
    int64_t position;
};

int readMemory(void *opaque, uint8_t *buffer, int wanted)
{
    MemoryReader *m = static_cast<MemoryReader *>(opaque);
    const int64_t left = m->size - m->position;
    if (left <= 0 || wanted <= 0)
        return AVERROR_EOF;
    const int n = int(std::min<int64_t>(left, wanted));
    memcpy(buffer, m->data + m->position, size_t(n));
    m->position += n;
    return n;
}

int64_t seekMemory(void *opaque, int64_t offset, int whence)
{
    MemoryReader *m = static_cast<MemoryReader *>(opaque);
    whence &= ~AVSEEK_FORCE;
    if (whence == AVSEEK_SIZE)
        return m->size;
    int64_t base = 0;
    if (whence == SEEK_CUR)
        base = m->position;
    else if (whence == SEEK_END)
        base = m->size;
    else if (whence != SEEK_SET)
        return AVERROR(EINVAL);
    // Past the end is allowed (reads there find the end), as with a file.
    if ((offset > 0 && base > INT64_MAX - offset) || base + offset < 0)
        return AVERROR(EINVAL);
    m->position = base + offset;
    return m->position;
}

// A medium in memory names no other file: a playlist's or reference file's
// entries are refused instead of being opened.
int refuseNestedOpen(AVFormatContext *, AVIOContext **, const char *, int, AVDictionary **)
{
    return AVERROR(EPERM);
}

// The I/O context of a medium in memory; freed after the format context that
// reads through it is closed.
class MemoryInput
{
public:
    MemoryInput(const unsigned char *data, size_t size) : mReader{data, int64_t(size), 0}
    {
        constexpr int kBufferSize = 32 * 1024;
        unsigned char *buffer = static_cast<unsigned char *>(av_malloc(kBufferSize));
        if (!buffer)
            return;
        mContext = avio_alloc_context(buffer, kBufferSize, 0, &mReader, readMemory, nullptr, seekMemory);
        if (!mContext)
            av_free(buffer);
    }
    ~MemoryInput()
    {
        if (mContext) {
            av_freep(&mContext->buffer);
            avio_context_free(&mContext);
        }
    }
    MemoryInput(const MemoryInput &) = delete;
    MemoryInput &operator=(const MemoryInput &) = delete;

    AVIOContext *context() const { return mContext; }

private:
    MemoryReader mReader;
    AVIOContext *mContext = nullptr;
};

// Damaged files make libavformat complain at length on stderr; the caller
// learns of failures through the results. A level someone chose stays.
void quietLibavLog()
{
    static std::once_flag once;
    std::call_once(once, [] {
        if (av_log_get_level() == AV_LOG_INFO)
            av_log_set_level(AV_LOG_ERROR);
    });
}

std::string clipped(const char *text)
{
    std::string s(text ? text : "");
    if (s.size() > 7)
        s.resize(7);
    return s;
}

std::string streamLanguage(const AVStream *stream)
{
    const AVDictionaryEntry *e = av_dict_get(stream->metadata, "language", nullptr, 0);
    return clipped(e ? e->value : nullptr);
}

int clampToInt(int64_t value)
{
    if (value < 0)
        return 0;
    return value > INT32_MAX ? INT32_MAX : int(value);
}

int channelCount(const AVCodecParameters *par)
{
#if LIBAVCODEC_VERSION_INT >= AV_VERSION_INT(59, 24, 100)
    return par->ch_layout.nb_channels;
#else
    return par->channels;
#endif
}

int bitDepth(const AVCodecParameters *par)
{
    if (par->bits_per_raw_sample > 0)
        return par->bits_per_raw_sample;
    // PCM and similar codecs have a fixed sample width; lossy codecs have none.
    return av_get_bits_per_sample(par->codec_id);
}

AudioStream audioStream(const AVFormatContext *context, const AVStream *stream)
{
    const AVCodecParameters *par = stream->codecpar;
    AudioStream a;
    a.channels = channelCount(par);
    a.sampleRate = par->sample_rate;
    a.bitRate = clampToInt(par->bit_rate);
    // A single-stream file (MP3) often states its rate only for the whole file.
    if (a.bitRate == 0 && context->nb_streams == 1)
        a.bitRate = clampToInt(context->bit_rate);
    a.bitDepth = bitDepth(par);
    a.codec = shortCodecName(par->codec_id);
    a.language = streamLanguage(stream);
    return a;
}

VideoStream videoStream(const AVStream *stream)
{
    const AVCodecParameters *par = stream->codecpar;
    VideoStream v;
    v.width = par->width;
    v.height = par->height;
    v.bitRate = clampToInt(par->bit_rate);
    AVRational rate = stream->avg_frame_rate;
    if (rate.num <= 0 || rate.den <= 0)
        rate = stream->r_frame_rate;
    if (rate.num > 0 && rate.den > 0) {
        const double fps = av_q2d(rate);
        v.frameRate = int(std::lround(fps));
        v.frameRateMilli = clampToInt(std::llround(fps * 1000.0));
    }
    v.codec = shortCodecName(par->codec_id);
    return v;
}

bool isCoverPicture(const AVStream *stream)
{
    return (stream->disposition & AV_DISPOSITION_ATTACHED_PIC) != 0;
}

// Demuxers of single still images: "image2", "jpeg_pipe", "png_pipe", ...
bool isImageFormat(const AVInputFormat *format)
{
    const char *name = format->name;
    const size_t n = strlen(name);
    return strcmp(name, "image2") == 0 || (n > 5 && strcmp(name + n - 5, "_pipe") == 0);
}

long long durationMs(const AVFormatContext *context)
{
    if (context->duration != AV_NOPTS_VALUE && context->duration > 0)
        return av_rescale(context->duration, 1000, AV_TIME_BASE);
    long long longest = 0;
    for (unsigned i = 0; i < context->nb_streams; ++i) {
        const AVStream *s = context->streams[i];
        if (s->duration != AV_NOPTS_VALUE && s->duration > 0)
            longest = std::max<long long>(longest, av_rescale_q(s->duration, s->time_base, AVRational{1, 1000}));
    }
    return longest;
}

// Container tags under the reader's main keys, which are also libavformat's
// generic tag names; some containers (Ogg) keep them on the audio stream.
void containerTags(const AVFormatContext *context, const AVStream *firstAudio, MediaFacts &facts)
{
    static const char *const keys[] = {"title", "artist", "album", "date", "comment", "genre"};
    for (const char *key : keys) {
        const AVDictionaryEntry *e = av_dict_get(context->metadata, key, nullptr, 0);
        if ((!e || !*e->value) && firstAudio)
            e = av_dict_get(firstAudio->metadata, key, nullptr, 0);
        if (e && *e->value)
            facts.tags[key] = TagText{e->value, true};
    }
}

// Learning the parameters decodes a little of each stream, cover pictures
// included: the same pixel limit as for our own cover decoding keeps a forged
// picture header from costing gigabytes. Failing to learn every parameter
// still leaves what the headers said.
void findStreamInfo(AVFormatContext *context)
{
    std::vector<AVDictionary *> options(context->nb_streams, nullptr);
    for (AVDictionary *&o : options)
        av_dict_set_int(&o, "max_pixels", kMaxPicturePixels, 0);
    avformat_find_stream_info(context, options.data());
    for (AVDictionary *&o : options)
        av_dict_free(&o);
}

int mediaKind(const AVFormatContext *context, const MediaFacts &facts)
{
    if (!facts.video.empty())
        return isImageFormat(context->iformat) ? MediaKindPicture : MediaKindVideo;
    if (!facts.audio.empty())
        return MediaKindAudio;
    return MediaKindNone;
}

} // namespace

std::string shortCodecName(int codecId)
{
    // Families whose libavcodec names are too long or too detailed for an
    // 8-byte field; everything else is libavcodec's own short name.
    static const struct {
        const char *prefix;
        const char *text;
    } families[] = {
        {"pcm_", "pcm"},         {"adpcm_", "adpcm"},   {"wma", "wma"},
        {"mpeg1video", "mpeg1"}, {"mpeg2video", "mpeg2"}, {"aac_latm", "aac"},
    };
    const char *name = avcodec_get_name(AVCodecID(codecId));
    for (const auto &f : families) {
        if (strncmp(name, f.prefix, strlen(f.prefix)) == 0)
            return f.text;
    }
    return clipped(name);
}

// A medium libavformat has opened: its format context, the I/O context of a
// medium in memory, and the deadline both work under.
struct OpenedMedium
{
    Deadline deadline;
    // Declared before the format context: freed after it is closed.
    std::unique_ptr<MemoryInput> memory;
    FormatContextPtr context;
};

void OpenedMediumDeleter::operator()(OpenedMedium *medium) const
{
    delete medium;
}

int openMedium(const MediaSource &source, OpenedMediumPtr &opened)
{
    quietLibavLog();
    OpenedMediumPtr medium(new OpenedMedium);
    medium->deadline.until = av_gettime_relative() + kProbeDeadlineUs;
    if (source.inMemory()) {
        medium->memory.reset(new MemoryInput(source.data, source.size));
        if (!medium->memory->context())
            return StatusNotMedia;
    }
    AVFormatContext *raw = avformat_alloc_context();
    if (!raw)
        return StatusNotMedia;
    raw->interrupt_callback.callback = deadlinePassed;
    raw->interrupt_callback.opaque = &medium->deadline;
    if (medium->memory) {
        raw->pb = medium->memory->context();
        raw->io_open = refuseNestedOpen;
    }
    AVDictionary *options = nullptr;
    // A local playlist or reference file must not make us open anything else.
    av_dict_set(&options, "protocol_whitelist", "file", 0);
    // A still image is the file itself, never a numbered sequence ("%d").
    av_dict_set(&options, "pattern_type", "none", 0);
    // "file:" keeps a colon in the name from being read as a protocol.
    const std::string url = medium->memory ? std::string() : "file:" + source.path;
    const int result = avformat_open_input(&raw, url.c_str(), nullptr, &options);
    av_dict_free(&options);
    if (result < 0)
        return StatusNotMedia; // avformat_open_input freed the context
    medium->context.reset(raw);
    opened = std::move(medium);
    return StatusOk;
}

bool headerDecidesStatus(const OpenedMedium &medium)
{
    const AVFormatContext *context = medium.context.get();
    // Formats that find their streams in the packets only learn them while
    // the parameters are read.
    if (context->ctx_flags & AVFMTCTX_NOHEADER)
        return false;
    // Reading the parameters adds no stream to such a format and takes none
    // away; a stream whose codec is probed stays audio, video or subtitle.
    for (unsigned i = 0; i < context->nb_streams; ++i) {
        const AVStream *s = context->streams[i];
        switch (s->codecpar->codec_type) {
        case AVMEDIA_TYPE_AUDIO:
        case AVMEDIA_TYPE_SUBTITLE:
            return true;
        case AVMEDIA_TYPE_VIDEO:
            if (!isCoverPicture(s))
                return true;
            break;
        default:
            break;
        }
    }
    return false;
}

int readStreams(OpenedMedium &medium, MediaFacts &facts)
{
    AVFormatContext *const context = medium.context.get();
    findStreamInfo(context);

    const AVStream *firstAudio = nullptr;
    for (unsigned i = 0; i < context->nb_streams; ++i) {
        const AVStream *s = context->streams[i];
        switch (s->codecpar->codec_type) {
        case AVMEDIA_TYPE_AUDIO:
            facts.audio.push_back(audioStream(context, s));
            if (!firstAudio)
                firstAudio = s;
            break;
        case AVMEDIA_TYPE_VIDEO:
            if (isCoverPicture(s)) {
                const AVPacket &pic = s->attached_pic;
                if (pic.data && pic.size > 0)
                    facts.pictures.push_back(EncodedPicture{
                        std::vector<unsigned char>(pic.data, pic.data + pic.size), int(s->codecpar->codec_id)});
            } else {
                facts.video.push_back(videoStream(s));
            }
            break;
        case AVMEDIA_TYPE_SUBTITLE:
            ++facts.subtitles;
            break;
        default:
            break;
        }
    }
    if (facts.audio.empty() && facts.video.empty() && facts.subtitles == 0)
        return StatusNotMedia;
    facts.programs = 1;
    facts.mediaKind = mediaKind(context, facts);
    facts.durationMs = durationMs(context);
    containerTags(context, firstAudio, facts);
    return StatusOk;
}

int probeStreams(const MediaSource &source, MediaFacts &facts)
{
    OpenedMediumPtr medium;
    const int opened = openMedium(source, medium);
    return opened == StatusOk ? readStreams(*medium, facts) : opened;
}

} // namespace metadatareader
} // namespace hostplatform
