// The PC metadata reader on arbitrary file bytes: the medium is probed
// (libavformat), its ID3 tags read (TagLib) and its cover decoded and scaled
// (libavcodec, libswscale), then every answer the session asks for is read.
// The bytes are read from memory through the reader's own entry point for
// that, the same code that reads a file after setUrl(): no scratch file is
// written and read back for every input.
#include "fuzzsupport.h"

#include <metadatareader.h>

#include <cstring>

namespace {

using hostplatform::metadatareader::FileMetaData;

// Keeps the pixel reads from being optimised away.
volatile unsigned sink;

const char *const kTagKeys[] = {"title", "title_v1", "artist", "artist_v1", "TP1_V1", "album", "album_v1",
                                "TAL_V1", "date", "date_v1", "comment", "comment_v1", "genre", "genre_v1",
                                "no-such-key", ""};

} // namespace

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    orvicfuzz::initQt(argc, argv);
    hostplatform::metadatareader::installTagStringHandlers();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    // A reader per input: what one input allocates is freed within it, so
    // libFuzzer keeps checking every input for leaks (a reader kept across
    // inputs holds the last medium's facts, which looks like a leak to it
    // and makes it give the leak checks up).
    FileMetaData fileReader;
    FileMetaData *const reader = &fileReader;
    const int status = reader->setBytes(data, size);
    const int kind = reader->getMediaType();
    FUZZ_CHECK(kind == 0 || kind == 1 || kind == 2 || kind == 4);
    if (status != 0)
        FUZZ_CHECK(kind == 0);
    reader->getDuration();
    const int programs = reader->getProgramNum();
    FUZZ_CHECK(programs >= 0);
    for (int program = -1; program <= 1; ++program) {
        const int audio = reader->getAudioStreamNum(program);
        const int video = reader->getVideoStreamNum(program);
        FUZZ_CHECK(audio >= 0 && video >= 0 && reader->getSubtitleStreamNum(program) >= 0);
        for (int stream = -1; stream <= audio; ++stream) {
            playback::SPMetaData::AudioAttribute a;
            std::memset(&a, 0, sizeof a);
            if (reader->getAudioAttribute(program, stream, a) != -1) {
                FUZZ_CHECK(stream >= 0 && stream < audio);
                FUZZ_CHECK(std::memchr(a.codec, 0, sizeof a.codec) && std::memchr(a.language, 0, sizeof a.language));
            }
        }
        for (int stream = -1; stream <= video; ++stream) {
            playback::SPMetaData::VideoAttribute v;
            std::memset(&v, 0, sizeof v);
            if (reader->getVideoAttribute(program, stream, v) != -1) {
                FUZZ_CHECK(stream >= 0 && stream < video);
                FUZZ_CHECK(std::memchr(v.codec, 0, sizeof v.codec));
            }
        }
    }
    for (const char *key : kTagKeys) {
        if (const char *text = reader->getMetaString(key))
            FUZZ_CHECK(std::strlen(text) < (1u << 24));
        reader->isTagV2();
    }
    for (int index : {0, 1, -1}) {
        for (int limit : {512, 1}) {
            playback::SPMetaData::Picture picture;
            std::memset(&picture, 0, sizeof picture);
            if (reader->getPicture(picture, index, limit) == -1)
                continue;
            FUZZ_CHECK(picture.data && picture.width > 0 && picture.height > 0);
            if (limit > 0)
                FUZZ_CHECK(picture.width <= limit && picture.height <= limit);
            // Every byte of the padded RGB888 rows a QImage reads.
            const size_t stride = (size_t(picture.width) * 3 + 3) & ~size_t(3);
            unsigned sum = 0;
            for (size_t i = 0; i < stride * size_t(picture.height); ++i)
                sum += picture.data[i];
            sink = sum;
        }
    }
    return 0;
}
