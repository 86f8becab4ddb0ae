#include "subtitlecharset.h"

#include "charsetremap.h"

#include <spplfctrl/spplatformcontrol.h>

#include <QtCore/QTextCodec>

#include <uchardet.h>

#include <cstring>

namespace {

const char kLatin1[] = "ISO-8859-1";
const int kSystemCodecItem = 104;
const int kSystemCodecSize = 20;

struct Mark
{
    const char *bytes;
    int length;
    const char *codec;
};

// UTF-32 LE before UTF-16 LE: FF FE 00 00 begins with the UTF-16 LE mark.
const Mark kMarks[] = {
    {"\xEF\xBB\xBF", 3, "UTF-8"},
    {"\xFF\xFE\x00\x00", 4, "UTF-32LE"},
    {"\x00\x00\xFE\xFF", 4, "UTF-32BE"},
    {"\xFF\xFE", 2, "UTF-16LE"},
    {"\xFE\xFF", 2, "UTF-16BE"},
};

QByteArray detectorAnswer(const QByteArray &bytes)
{
    uchardet_t detector = uchardet_new();
    if (!detector)
        return QByteArray();
    QByteArray answer;
    if (uchardet_handle_data(detector, bytes.constData(), size_t(bytes.size())) == 0) {
        uchardet_data_end(detector);
        answer = QByteArray(uchardet_get_charset(detector));
    }
    uchardet_delete(detector);
    return answer;
}

} // namespace

namespace subtitlecharset {

QByteArray systemCodec()
{
    char buffer[kSystemCodecSize] = {};
    spplfctrl::SPPlatformControl *platform = spplfctrl::SPPlatformControl::GetInstance();
    if (!platform)
        return kLatin1;
    const int status = platform->Vendor_Data_Read_String(kSystemCodecItem, kSystemCodecSize, buffer);
    spplfctrl::SPPlatformControl::ReleaseInstance(platform);
    const QByteArray name(buffer, int(qstrnlen(buffer, kSystemCodecSize)));
    return status != 0 || name.isEmpty() ? QByteArray(kLatin1) : name;
}

bool isValidUtf8(const QByteArray &bytes)
{
    const auto *p = reinterpret_cast<const unsigned char *>(bytes.constData());
    const auto *end = p + bytes.size();
    while (p < end) {
        const unsigned char c = *p;
        if (c < 0x80) {
            ++p;
            continue;
        }
        int length;
        uint code;
        if (c >= 0xC2 && c <= 0xDF) {
            length = 2;
            code = c & 0x1F;
        } else if (c >= 0xE0 && c <= 0xEF) {
            length = 3;
            code = c & 0x0F;
        } else if (c >= 0xF0 && c <= 0xF4) {
            length = 4;
            code = c & 0x07;
        } else {
            return false;
        }
        if (end - p < length)
            return false;
        for (int i = 1; i < length; ++i) {
            if ((p[i] & 0xC0) != 0x80)
                return false;
            code = (code << 6) | (p[i] & 0x3F);
        }
        // Overlong forms, surrogates and code points past U+10FFFF.
        if ((length == 3 && code < 0x800) || (length == 4 && (code < 0x10000 || code > 0x10FFFF))
            || (code >= 0xD800 && code <= 0xDFFF))
            return false;
        p += length;
    }
    return true;
}

bool looksBinary(const QByteArray &bytes)
{
    return bytes.contains('\0');
}

CharsetDecision decide(const QByteArray &bytes, const QByteArray &systemCodec)
{
    CharsetDecision decision;
    for (const Mark &mark : kMarks) {
        if (bytes.size() >= mark.length && std::memcmp(bytes.constData(), mark.bytes, size_t(mark.length)) == 0) {
            decision.codec = mark.codec;
            decision.source = CharsetDecision::ByteOrderMark;
            decision.markLength = mark.length;
            return decision;
        }
    }
    if (isValidUtf8(bytes)) {
        decision.codec = "UTF-8";
        decision.source = CharsetDecision::ValidUtf8;
        return decision;
    }
    decision.detectorAnswer = detectorAnswer(bytes);
    const QByteArray answer = decision.detectorAnswer.isEmpty() ? QByteArray(orviccharset::kUnknown)
                                                                : decision.detectorAnswer;
    const char *remapped = orviccharset::remappedCodec(answer.constData());
    const QByteArray codec = remapped ? QByteArray(remapped) : answer;
    if (codec != orviccharset::kUnknown && QTextCodec::codecForName(codec)) {
        decision.codec = codec;
        decision.source = CharsetDecision::Detected;
        return decision;
    }
    decision.codec = QTextCodec::codecForName(systemCodec) ? systemCodec : QByteArray(kLatin1);
    decision.source = CharsetDecision::SystemCodec;
    return decision;
}

QString decode(const QByteArray &bytes, const CharsetDecision &decision)
{
    QTextCodec *codec = QTextCodec::codecForName(decision.codec);
    const QByteArray text = bytes.mid(decision.markLength);
    if (!codec)
        return QString::fromLatin1(text);
    return codec->toUnicode(text);
}

const char *sourceName(CharsetDecision::Source source)
{
    switch (source) {
    case CharsetDecision::ByteOrderMark:
        return "byte-order mark";
    case CharsetDecision::ValidUtf8:
        return "valid UTF-8";
    case CharsetDecision::Detected:
        return "detected";
    case CharsetDecision::SystemCodec:
        return "system codec";
    }
    return "?";
}

} // namespace subtitlecharset
