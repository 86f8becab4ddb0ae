#include "qmediastringdefine.h"

#include <iterator>

namespace {

template <size_t N>
QString lookup(const char *const (&table)[N], unsigned int index, const char *fallback)
{
    return QString::fromLatin1(index < N ? table[index] : fallback);
}

// The engine's sub-variants of one codec family share one display name.
const char *const videoCodecs[] = {
    "none", "unknown", "mpeg 1/2", "mpeg 1/2", "mpeg4", "h.264", "vc1", "mjpeg", "rv"
};

const char *const audioCodecs[] = {
    "none", "unknown", "mpeg1/2", "mpeg1/2", "mpeg1/2", "mpeg2", "ac3", "truehd", "pcm", "wma",
    "aac", "aac", "aac", "dts", "ogg", "cook", "flac", "ape", "dts", "dts", "alac"
};

// Indexed by id + 1, so that the engine's -1 (all ones) lands on "und".
const char *const languages[] = {
    "und", "eng", "spa", "por", "rus", "ara", "gre", "tha", "ger", "ita", "fre",
    "vie", "per", "zho-CH", "zho-TW", "kor", "jis", "dan", "dut", "nor"
};

static_assert(std::size(videoCodecs) == 9, "video ids 0..8");
static_assert(std::size(audioCodecs) == 21, "audio ids 0..20");
static_assert(std::size(languages) == 20, "language ids -1..18");

} // namespace

QMediaStringDefine::QMediaStringDefine() = default;
QMediaStringDefine::~QMediaStringDefine() = default;

QString QMediaStringDefine::getVideoCodecString(unsigned int id)
{
    return lookup(videoCodecs, id, "none");
}

QString QMediaStringDefine::getAudioCodecString(unsigned int id)
{
    return lookup(audioCodecs, id, "none");
}

QString QMediaStringDefine::getLanguageString(unsigned int id)
{
    return lookup(languages, id + 1u, "und");
}
