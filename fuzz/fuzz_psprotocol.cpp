// psserver's socket protocol and subtitle cues on arbitrary bytes.
//
// Mode 0 (first byte even): the bytes are a stream from a peer, cut into
// arbitrary pieces as a socket delivers them; the same decoder reads calls
// (service side) and replies, events and pongs (client side). Every frame it
// accepts must survive encoding and decoding again unchanged.
// Mode 1: cues for the subtitle scheduler (start, duration, markup text) and
// positions to show them at.
#include "fuzzsupport.h"

#include "psprotocol.h"
#include "subtitlescheduler.h"

#include <QtCore/QBuffer>
#include <QtGui/QImage>

#include <fuzzer/FuzzedDataProvider.h>

namespace {

QByteArray reencoded(const QList<psprotocol::Frame> &frames)
{
    QByteArray bytes;
    for (const psprotocol::Frame &f : frames)
        bytes += psprotocol::encode(f);
    return bytes;
}

QList<psprotocol::Frame> decodeAll(const QByteArray &bytes, bool *ok)
{
    QBuffer device;
    device.setData(bytes);
    device.open(QIODevice::ReadOnly);
    psprotocol::FrameReader reader;
    return reader.read(&device, ok);
}

void fuzzFrames(FuzzedDataProvider &in)
{
    psprotocol::FrameReader reader;
    QList<psprotocol::Frame> frames;
    bool ok = true;
    while (ok && in.remaining_bytes() > 0) {
        const size_t piece = in.ConsumeIntegralInRange<size_t>(1, 4096);
        QBuffer device;
        device.setData(QByteArray::fromStdString(in.ConsumeBytesAsString(piece)));
        device.open(QIODevice::ReadOnly);
        frames += reader.read(&device, &ok);
    }
    // What was accepted encodes to frames that decode to the same bytes again.
    const QByteArray once = reencoded(frames);
    bool okAgain = false;
    const QList<psprotocol::Frame> again = decodeAll(once, &okAgain);
    FUZZ_CHECK(okAgain);
    FUZZ_CHECK(again.size() == frames.size());
    FUZZ_CHECK(reencoded(again) == once);
    for (const psprotocol::Frame &f : frames) {
        // What the two ends take from a frame: the service the call's
        // arguments, the client the event's and the reply's.
        for (const QVariant &argument : f.arguments) {
            argument.toString();
            argument.toLongLong();
            argument.toDouble();
        }
        f.result.toInt();
    }
}

void fuzzSubtitles(FuzzedDataProvider &in)
{
    SubtitleScheduler scheduler;
    QByteArray shown;
    while (in.remaining_bytes() > 0) {
        switch (in.ConsumeIntegralInRange<int>(0, 4)) {
        case 0: {
            const qint64 start = in.ConsumeIntegral<qint64>();
            const qint64 duration = in.ConsumeBool() ? in.ConsumeIntegral<qint64>()
                                                     : in.ConsumeIntegralInRange<qint64>(-1, 10000);
            const QByteArray markup = QByteArray::fromStdString(in.ConsumeRandomLengthString(512));
            const QByteArray plain = SubtitleScheduler::plainTextFromMarkup(markup);
            // Tags go and entities shrink: never longer than the markup.
            FUZZ_CHECK(plain.size() <= markup.size());
            scheduler.add(start, duration, plain);
            break;
        }
        case 1: {
            const qint64 position = in.ConsumeBool() ? in.ConsumeIntegral<qint64>()
                                                     : in.ConsumeIntegralInRange<qint64>(-100, 100000);
            QByteArray text;
            const bool changed = scheduler.update(position, &text);
            if (changed) {
                FUZZ_CHECK(text != shown);
                shown = text;
            }
            FUZZ_CHECK(scheduler.shown() == shown);
            FUZZ_CHECK(scheduler.textAt(position) == shown);
            break;
        }
        case 2:
            scheduler.resetShown();
            shown.clear();
            break;
        case 3:
            scheduler.clear();
            FUZZ_CHECK(scheduler.cueCount() == 0);
            break;
        default:
            scheduler.textAt(in.ConsumeIntegral<qint64>());
            break;
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    orvicfuzz::initQt(argc, argv);
    // The client process has Qt GUI loaded (the session library links it), so
    // the decoder sees GUI value types there too.
    static const QImage gui(1, 1, QImage::Format_RGB888);
    (void)gui;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzedDataProvider in(data, size);
    if (in.ConsumeIntegral<uint8_t>() & 1)
        fuzzSubtitles(in);
    else
        fuzzFrames(in);
    return 0;
}
