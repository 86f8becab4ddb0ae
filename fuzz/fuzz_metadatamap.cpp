// The metadata record and the published map from arbitrary engine answers:
// media kind, stream counts, audio and video records (all bytes, text fields
// without a terminator included), tag strings of every key, trick play,
// subtitle counts, and a cover picture of arbitrary width, height and size.
#include "fuzzsupport.h"
#include "scriptedplatform.h"

#include "qorvicmetadatasession.h"
#include "qorvicplayermetadata.h"

#include <QtMultimedia/qmediametadata.h>

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cstring>
#include <vector>

using namespace orvictest;
using Session = QOrvicPlayerSession;

namespace {

// Every key the collection asks for, main keys and fallbacks.
const char *const kTagKeys[] = {"title", "title_v1", "artist", "artist_v1", "TP1_V1", "album", "album_v1",
                                "TAL_V1", "date", "date_v1", "comment", "comment_v1", "genre", "genre_v1"};

// Pixel bytes a well-behaved engine hands out for a picture: RGB888 rows
// padded to 4 bytes. Larger pictures than this are answered with a buffer
// that is too small, and their pixels are not read.
const qint64 kMaxPictureBytes = 8 << 20;

qint64 pictureBytes(int width, int height)
{
    if (width <= 0 || height <= 0)
        return 0;
    const qint64 stride = (qint64(width) * 3 + 3) & ~qint64(3);
    return stride > kMaxPictureBytes / height ? kMaxPictureBytes + 1 : stride * height;
}

// Fills `out` with `pattern` repeated. The pattern is copied, then the filled
// part doubles with each copy: a byte loop here, instrumented like all of
// the target, cost more than everything the session does with the picture.
void repeatInto(std::vector<unsigned char> &out, const std::vector<uint8_t> &pattern)
{
    if (pattern.empty() || out.empty())
        return;
    size_t filled = std::min(pattern.size(), out.size());
    std::memcpy(out.data(), pattern.data(), filled);
    while (filled < out.size()) {
        const size_t n = std::min(filled, out.size() - filled);
        std::memcpy(out.data() + filled, out.data(), n);
        filled += n;
    }
}

template <typename Record>
Record recordFrom(FuzzedDataProvider &in)
{
    Record r;
    std::memset(&r, 0, sizeof r);
    const std::vector<uint8_t> bytes = in.ConsumeBytes<uint8_t>(sizeof r);
    if (!bytes.empty())
        std::memcpy(&r, bytes.data(), bytes.size());
    return r;
}

struct ScriptedStreams
{
    ScriptedMetaData reader;
    ScriptedPlayer player;
    std::vector<unsigned char> pixels;
    bool pixelsReadable = false;
    int width = 0;
    int height = 0;

    ScriptedStreams(CallRecorder *recorder)
        : reader(QStringLiteral("fuzz"), QString(), recorder),
          player(QStringLiteral("fuzz"), nullptr, recorder)
    {
    }

    void script(FuzzedDataProvider &in)
    {
        Script &r = reader.script();
        r.setDefault("getMediaType", in.ConsumeIntegralInRange<int>(-1, 5));
        r.setDefault("getDuration", QVariant::fromValue(in.ConsumeIntegral<long long>()));
        r.setDefault("getProgramNum", in.ConsumeIntegralInRange<int>(-1, 3));
        r.setDefault("getAudioStreamNum", in.ConsumeIntegral<int>());
        r.setDefault("getVideoStreamNum", in.ConsumeIntegral<int>());
        r.setDefault("getSubtitleStreamNum", in.ConsumeIntegral<int>());
        r.setDefault("getAudioAttribute", in.ConsumeBool() ? -1 : 0);
        r.setDefault("getVideoAttribute", in.ConsumeBool() ? -1 : 0);
        r.setDefault("isTagV2", in.ConsumeBool());
        reader.setAudioAttribute(0, recordFrom<playback::SPMetaData::AudioAttribute>(in));
        reader.setVideoAttribute(0, recordFrom<playback::SPMetaData::VideoAttribute>(in));

        Script &p = player.script();
        p.setDefault("isTrickPlaySupported", in.ConsumeBool());
        p.setDefault("getCurrentStream", in.ConsumeIntegral<int>());
        p.setDefault("getParameter", in.ConsumeBool() ? -1 : 0);
        p.setDefault("getParameter/get-audio-count", in.ConsumeIntegral<int>());

        width = in.ConsumeIntegral<int>();
        height = in.ConsumeIntegral<int>();
        if (in.ConsumeBool()) { // small pictures more often than a 32-bit size would give
            width = in.ConsumeIntegralInRange<int>(-2, 600);
            height = in.ConsumeIntegralInRange<int>(-2, 600);
        }
        r.setDefault("getPicture", in.ConsumeBool() ? -1 : 0);
        const qint64 needed = pictureBytes(width, height);
        pixelsReadable = needed <= kMaxPictureBytes;
        pixels.assign(size_t(pixelsReadable ? needed : 16) + 1, 0);
        const std::vector<uint8_t> fill = in.ConsumeBytes<uint8_t>(size_t(in.ConsumeIntegralInRange<int>(0, 64)));
        repeatInto(pixels, fill);
        playback::SPMetaData::Picture picture;
        std::memset(&picture, 0, sizeof picture);
        picture.data = in.ConsumeBool() ? pixels.data() : nullptr;
        picture.width = width;
        picture.height = height;
        reader.setPicture(picture);

        for (const char *key : kTagKeys) {
            if (in.ConsumeBool())
                reader.setMetaString(key, QByteArray::fromStdString(in.ConsumeRandomLengthString(600)));
        }
    }
};

} // namespace

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    orvicfuzz::initQt(argc, argv);
    static ScriptedPlatformControl platform; // system codec for tag text
    platform.setVendorText(104, "GB18030");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzedDataProvider in(data, size);
    CallRecorder recorder;
    ScriptedStreams engine(&recorder);
    engine.script(in);
    const bool withPlayer = in.ConsumeBool();
    QOrvicMetaDataSession session(&engine.reader, withPlayer ? &engine.player : nullptr);

    Session::PlayerMetaData meta;
    QMap<QString, QVariant> map;
    // A refresh, then the partial refreshes that follow a stream switch, then
    // another full refresh that reuses or releases the blocks.
    for (int round = 0; round < 2; ++round) {
        session.updateAVMetadata(meta);
        session.fillMetadataMap(map, meta);
        FUZZ_CHECK(map.value(QMediaMetaData::Duration).toLongLong() == meta.totalTime);
        FUZZ_CHECK(map.contains(QMediaMetaData::Title) == (meta.audioAttribute && meta.audioAttribute->id3Info));
        FUZZ_CHECK(map.contains(QMediaMetaData::Resolution) == (meta.videoAttribute != nullptr));
        FUZZ_CHECK(map.contains(QMediaMetaData::SubtitleCount) == (meta.subtitleAttribute != nullptr));
        if (meta.audioAttribute) {
            FUZZ_CHECK(map.value(QMediaMetaData::AudioCodec).toString().size() <= 8);
            if (const Session::Id3Info *tags = meta.audioAttribute->id3Info) {
                FUZZ_CHECK(std::strlen(tags->title) <= 255);
                FUZZ_CHECK(std::strlen(tags->date) <= 4);
            }
        }
        if (meta.videoAttribute)
            FUZZ_CHECK(map.value(QMediaMetaData::VideoCodec).toString().size() <= 8);
        const int stream = in.ConsumeIntegral<int>();
        session.updateAudioMetadata(meta, stream, in.ConsumeIntegralInRange<int>(-1, 2));
        session.updateVideoMetadata(meta, stream, 0);
        session.updateSubtitleMetadata(meta, in.ConsumeIntegral<int>(), 0);
        session.fillMetadataMap(map, meta);
    }

    const QImage image = session.updateID3Pic();
    if (!image.isNull()) {
        FUZZ_CHECK(image.width() == engine.width && image.height() == engine.height);
        FUZZ_CHECK(image.format() == QImage::Format_RGB888);
        if (engine.pixelsReadable) {
            // Every pixel row of the engine's buffer, and nothing past it.
            const QImage copy = image.copy();
            FUZZ_CHECK(copy.size() == image.size());
            FUZZ_CHECK(std::memcmp(copy.constScanLine(0), engine.pixels.data(), size_t(engine.width) * 3) == 0);
        }
    }
    QOrvicMetaDataSession::releaseMetaData(meta);
    return 0;
}
