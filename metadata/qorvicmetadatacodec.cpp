// Text encoding of tag and subtitle bytes: charset detection, the device's
// system codec and the conversions to QString.
#include "qorvicmetadatasession.h"
#include "qorvicmetadata_p.h"
#include "qorviccharsetdetector_p.h"
#include "qorviclogging_p.h"
#include "charsetremap.h"

#include <spplfctrl/spplatformcontrol.h>

#include <QtCore/qtextcodec.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace {
const char kLatin1[] = "ISO-8859-1";
const char kUtf8[] = "UTF8";
const int kSystemCodecItem = 104;
const int kSystemCodecSize = 20;
// Short tag strings carry little statistical weight: the detector sees them
// this many times over.
const int kDetectorRepeat = 5;
const int kUtf16SubtitleUnits = 1024;

struct FreeDeleter {
    void operator()(void *block) const { std::free(block); }
};
using CBuffer = std::unique_ptr<char, FreeDeleter>;

// One GetInstance paired with one ReleaseInstance.
class PlatformControl
{
public:
    PlatformControl() : m_instance(spplfctrl::SPPlatformControl::GetInstance()) {}
    ~PlatformControl() { release(); }

    bool isNull() const { return !m_instance; }

    void release()
    {
        if (m_instance)
            spplfctrl::SPPlatformControl::ReleaseInstance(m_instance);
        m_instance = nullptr;
    }

    // Reads the system codec item; `name` gets its text up to the first zero
    // byte or the end of the item. Non-zero is the platform's error code; a
    // missing singleton counts as a failed read.
    int readSystemCodec(QByteArray *name) const
    {
        char buffer[kSystemCodecSize] = {};
        if (!m_instance)
            return -1;
        const int status = m_instance->Vendor_Data_Read_String(kSystemCodecItem, kSystemCodecSize, buffer);
        *name = QByteArray(buffer, int(qstrnlen(buffer, kSystemCodecSize)));
        return status;
    }

private:
    spplfctrl::SPPlatformControl *m_instance;

    Q_DISABLE_COPY(PlatformControl)
};

// Runs one detector from creation to deletion.
class Detector
{
public:
    explicit Detector(const QOrvicCharsetDetector &ops) : m_ops(ops), m_handle(ops.create()) {}
    ~Detector()
    {
        if (m_handle)
            m_ops.destroy(m_handle);
    }

    bool handleData(const char *data, size_t length)
    {
        return m_handle && m_ops.handleData(m_handle, data, length) == 0;
    }

    QByteArray charset()
    {
        m_ops.dataEnd(m_handle);
        return QByteArray(m_ops.charset(m_handle));
    }

private:
    const QOrvicCharsetDetector &m_ops;
    uchardet_t m_handle;

    Q_DISABLE_COPY(Detector)
};

size_t safeLength(const char *text)
{
    return text ? std::strlen(text) : 0;
}
} // namespace

namespace QOrvicMetaData {

QString decodeWithCodec(const QString &codecName, const char *bytes)
{
    if (!bytes)
        return QString();
    QTextCodec *codec = QTextCodec::codecForName(codecName.toUtf8());
    if (!codec)
        return QString::fromLatin1(bytes);
    QString text = codec->toUnicode(bytes);
    const int nul = text.indexOf(QChar(0));
    if (nul >= 0)
        text.truncate(nul);
    return text;
}

} // namespace QOrvicMetaData

QString QOrvicMetaDataSession::getSysCodec()
{
    QByteArray name;
    PlatformControl platform;
    if (platform.readSystemCodec(&name) != 0 || name.isEmpty())
        return QString::fromLatin1(kLatin1);
    return QString::fromUtf8(name);
}

QString QOrvicMetaDataSession::detect(const char *data, int length)
{
    // Every caller guards against empty text; a length of 0 would leave the
    // repetition nothing to repeat.
    if (!data || length <= 0)
        return QString();
    CBuffer buffer(length <= INT_MAX / kDetectorRepeat
                       ? static_cast<char *>(std::malloc(size_t(length) * kDetectorRepeat))
                       : nullptr);
    if (!buffer) {
        OPMETA_LOG("D/OPMetaSession %s(%d):data is null");
        return QString();
    }
    const size_t size = size_t(length) * kDetectorRepeat;
    for (size_t offset = 0; size - offset >= size_t(length); offset += size_t(length))
        std::memcpy(buffer.get() + offset, data, size_t(length));

    Detector detector(QOrvicCharsetDetector::current());
    if (!detector.handleData(buffer.get(), size)) {
        OPMETA_LOG("D/OPMetaSession %s(%d):Handle data error");
        return QString();
    }
    QByteArray charset = detector.charset();
    if (charset.isEmpty())
        charset = orviccharset::kUnknown;
    OPMETA_LOG("D/OPMetaSession %s(%d):the result of ucharset is:%s", charset.constData());
    const QString codec = detectResultMapping(QString::fromLatin1(charset));
    OPMETA_LOG("D/OPMetaSession %s(%d):use the codec after mapping is:");
    return codec;
}

QString QOrvicMetaDataSession::detectResultMapping(QString detected)
{
    // An answer with a NUL inside matches no name of the table.
    const char *codec = detected.contains(QChar(0)) ? nullptr
                                                    : orviccharset::remappedCodec(detected.toLatin1().constData());
    if (codec)
        return QString::fromLatin1(codec);
    if (detected == QLatin1String(orviccharset::kUnknown))
        return getSysCodec();
    return detected;
}

QString QOrvicMetaDataSession::detectEncoding(const char *text)
{
    if (!text || !*text)
        return getSysCodec();
    QString codec = getSysCodec();
    const size_t size = std::strlen(text) + 1;
    CBuffer copy(static_cast<char *>(std::malloc(size)));
    if (copy) {
        const int written = std::snprintf(copy.get(), size, "%s", text);
        if (written > 0)
            codec = detect(copy.get(), written);
    }
    return codec;
}

QString QOrvicMetaDataSession::detectEncoding(const char *a, const char *b, const char *c)
{
    // A null string joins as an empty one.
    const char *first = a ? a : "";
    const char *second = b ? b : "";
    const char *third = c ? c : "";
    const size_t size = safeLength(a) + safeLength(b) + safeLength(c) + 1;
    CBuffer joined(static_cast<char *>(std::malloc(size)));
    QString codec = getSysCodec();
    if (!joined)
        return codec;
    const int written = std::snprintf(joined.get(), size, "%s%s%s", first, second, third);
    if (written > 0)
        codec = detect(joined.get(), written);
    return codec;
}

QString QOrvicMetaDataSession::fromCharToQstring(const char *text)
{
    if (!text || !*text)
        return QString();

    QByteArray systemCodec;
    {
        PlatformControl platform;
        if (platform.isNull()) {
            OPMETA_LOG("E/OPMetaSession %s(%d):fromCharToQstring SPPlatformControl::GetInstance() NULL");
            return QString();
        }
        const int status = platform.readSystemCodec(&systemCodec);
        if (status != 0) {
            OPMETA_LOG("E/OPMetaSession %s(%d):SPPlatformControl Vendor_Data_Read_String readData error %d ",
                       status);
            systemCodec.clear();
        }
    }

    // A configured system codec only switches detection on; the detector decides.
    if (!systemCodec.isEmpty())
        return QOrvicMetaData::decodeWithCodec(detect(text, int(std::strlen(text))), text);
    OPMETA_LOG("D/OPMetaSession %s(%d):fromCharToQstring syscodec is NULL,use ISO-8859-1");
    return QOrvicMetaData::decodeWithCodec(QString::fromLatin1(kLatin1), text);
}

QString QOrvicMetaDataSession::SubCharToQstring(const char *text, SubtStrType_e type)
{
    return SubCharToQstring(text, type, 0);
}

QString QOrvicMetaDataSession::SubCharToQstring(const char *text, SubtStrType_e type, int length)
{
    if (!text)
        return QString();
    // A byte text of known size is copied up to that size (and its first NUL),
    // so that decoding, which runs to a NUL, stays inside what the engine gave.
    QByteArray bounded;
    if (length > 0 && type != SubtStr_Utf16LE && type != SubtStr_Utf16BE) {
        bounded = QByteArray(text, int(qstrnlen(text, uint(length))));
        text = bounded.constData();
    }
    switch (type) {
    case SubtStr_Latin1:
        return QOrvicMetaData::decodeWithCodec(QString::fromLatin1(kLatin1), text);
    case SubtStr_Utf8:
        return QOrvicMetaData::decodeWithCodec(QString::fromLatin1(kUtf8), text);
    case SubtStr_Utf16LE:
    case SubtStr_Utf16BE: {
        // Assembled on the stack: subtitle lines arrive on the engine's thread
        // many times a second. Only whole units within a given size are read.
        const int limit = length > 0 ? qMin(length / 2, kUtf16SubtitleUnits) : kUtf16SubtitleUnits;
        ushort units[kUtf16SubtitleUnits];
        const uchar *bytes = reinterpret_cast<const uchar *>(text);
        const bool littleEndian = type == SubtStr_Utf16LE;
        int count = 0;
        for (; count < limit; ++count) {
            const uchar first = bytes[2 * count];
            const uchar second = bytes[2 * count + 1];
            if (first == 0 && second == 0)
                break;
            units[count] = littleEndian ? ushort(first | second << 8) : ushort(first << 8 | second);
        }
        // The units as they are: a leading byte-order mark is text of the
        // line like any other unit, the declared order already applied.
        return QString(reinterpret_cast<const QChar *>(units), count);
    }
    }

    OPMETA_LOG("D/OPMetaSession %s(%d):not match string type,using defalut language\n");
    QByteArray systemCodec;
    PlatformControl platform;
    if (platform.readSystemCodec(&systemCodec) != 0 || systemCodec.isEmpty())
        return QOrvicMetaData::decodeWithCodec(QString::fromLatin1(kLatin1), text);
    // The declared-but-unknown line is the system codec's: no detection here.
    return QOrvicMetaData::decodeWithCodec(QString::fromUtf8(systemCodec), text);
}
