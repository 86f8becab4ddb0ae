// Shared pieces of the metadata tests: a metadata session over scripted
// engine objects, and owners for the heap blocks of the records.
#ifndef ORVICTEST_METADATATESTUTIL_H
#define ORVICTEST_METADATATESTUTIL_H

#include "logcapture.h"
#include "qorvicmetadatasession.h"
#include "scriptedplatform.h"

#include <cstdlib>
#include <cstring>
#include <memory>

namespace orvictest {

// A metadata session over a scripted reader and, unless told otherwise, a
// scripted player; both record into one recorder.
struct MetaRig {
    explicit MetaRig(bool withPlayer = true)
        : reader(QStringLiteral("SpMetadata"), QStringLiteral("default"), &recorder),
          player(QStringLiteral("Qspmediaplayer"), nullptr, &recorder),
          session(&reader, withPlayer ? &player : nullptr)
    {
    }

    CallRecorder recorder;
    ScriptedMetaData reader;
    ScriptedPlayer player;
    QOrvicMetaDataSession session;
};

// Releases the record's blocks when the test leaves, pass or fail.
class MetaDataOwner
{
public:
    MetaDataOwner() = default;
    ~MetaDataOwner() { QOrvicMetaDataSession::releaseMetaData(meta); }

    QOrvicPlayerSession::PlayerMetaData meta;

private:
    Q_DISABLE_COPY(MetaDataOwner)
};

// Zero-filled C heap blocks, as the collection makes them.
template <typename T>
T *callocBlock()
{
    return static_cast<T *>(std::calloc(1, sizeof(T)));
}

template <std::size_t N>
void setField(char (&field)[N], const QByteArray &bytes)
{
    std::memset(field, 0, N);
    std::memcpy(field, bytes.constData(), qMin(std::size_t(bytes.size()), N));
}

inline playback::SPMetaData::AudioAttribute engineAudio(int channel, int rate, int bitRate, const QByteArray &codec,
                                                         const QByteArray &language, int bitDepth)
{
    playback::SPMetaData::AudioAttribute a;
    std::memset(&a, 0, sizeof a);
    a.channel = channel;
    a.samplingRate = rate;
    a.bitRate = bitRate;
    std::memcpy(a.codec, codec.constData(), qMin(std::size_t(codec.size()), sizeof a.codec));
    std::memcpy(a.language, language.constData(), qMin(std::size_t(language.size()), sizeof a.language));
    a.bitDepth = bitDepth;
    return a;
}

inline playback::SPMetaData::VideoAttribute engineVideo(int width, int height, int info1, int frameRate, int info2,
                                                         const QByteArray &codec)
{
    playback::SPMetaData::VideoAttribute v;
    std::memset(&v, 0, sizeof v);
    v.width = width;
    v.height = height;
    v.info1 = info1;
    v.frameRate = frameRate;
    v.info2 = info2;
    std::memcpy(v.codec, codec.constData(), qMin(std::size_t(codec.size()), sizeof v.codec));
    return v;
}

// Empty when the captured lines are exactly `expected` ("#" = a line number),
// otherwise a description of the first difference.
inline QString logMismatch(const LogCapture &log, const QStringList &expected)
{
    const QStringList lines = log.lines();
    for (int i = 0; i < qMax(lines.size(), expected.size()); ++i) {
        if (i >= lines.size())
            return QStringLiteral("missing line %1: \"%2\"").arg(i).arg(expected.at(i));
        if (i >= expected.size())
            return QStringLiteral("extra line %1: \"%2\"").arg(i).arg(lines.at(i));
        if (!LogCapture::pattern(expected.at(i)).match(lines.at(i)).hasMatch())
            return QStringLiteral("line %1 is \"%2\", expected \"%3\"").arg(i).arg(lines.at(i), expected.at(i));
    }
    return QString();
}

#define ORVIC_COMPARE_LOG(log, expected)                                                   \
    do {                                                                                   \
        const QString orvicWhy = orvictest::logMismatch(log, expected);                    \
        QVERIFY2(orvicWhy.isEmpty(), qPrintable(orvicWhy));                                \
    } while (false)

} // namespace orvictest

#endif // ORVICTEST_METADATATESTUTIL_H
