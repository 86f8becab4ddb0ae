// Text decoding of tag and subtitle bytes: charset detection over one and
// three strings, the system codec switch and every subtitle string type, on
// arbitrary bytes of arbitrary length under arbitrary system codec settings.
//
// Input: a settings byte, the vendor codec text, then three byte strings.
#include "fuzzsupport.h"
#include "scriptedplatform.h"

#include "qorvicmetadatasession.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <cstring>
#include <string>

using orvictest::CallRecorder;
using orvictest::ScriptedMetaData;
using orvictest::ScriptedPlatformControl;

namespace {

// Codec names the device's vendor data may hold, and some it should not.
const char *const kSystemCodecs[] = {
    "", "GB18030", "windows-1251", "windows-1252", "UTF-8", "UTF8", "ISO-8859-1", "ISO_8859_1", "BIG5",
    "SHIFT_JIS", "KOI8-R", "EUC-KR", "windows-1250", "UTF-16", "UTF-16BE", "UTF-32", "no-such-codec",
    "ISO_8859_2"};

struct Fixture
{
    ScriptedPlatformControl platform;
    CallRecorder recorder;
    ScriptedMetaData reader{QStringLiteral("fuzz"), QString(), &recorder};
    QOrvicMetaDataSession session{&reader, nullptr};
};

Fixture *fixture;

// The bytes with room for a terminator of whatever unit the reader uses: the
// subtitle types read up to a NUL byte or a zero 16-bit unit.
std::string terminated(const std::string &bytes)
{
    std::string out = bytes;
    out.append(4, '\0');
    return out;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    orvicfuzz::initQt(argc, argv);
    fixture = new Fixture;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzedDataProvider in(data, size);
    const uint8_t settings = in.ConsumeIntegral<uint8_t>();
    // Vendor item 104: a known codec name, or arbitrary bytes (at most the 20
    // the item holds), or an unreadable item.
    QByteArray systemCodec;
    if (settings & 0x80)
        systemCodec = QByteArray::fromStdString(in.ConsumeRandomLengthString(24));
    else
        systemCodec = kSystemCodecs[settings % (sizeof kSystemCodecs / sizeof *kSystemCodecs)];
    fixture->platform.setVendorText(104, systemCodec);
    fixture->platform.setReadStatus((settings & 0x40) ? -5 : 0);

    const std::string a = terminated(in.ConsumeRandomLengthString(4096));
    const std::string b = terminated(in.ConsumeRandomLengthString(1024));
    const std::string c = terminated(in.ConsumeRemainingBytesAsString());
    QOrvicMetaDataSession &s = fixture->session;

    const int lengthA = int(std::strlen(a.c_str()));
    // detect() on the whole string, and on a prefix of arbitrary length.
    s.detect(a.c_str(), lengthA);
    s.detect(a.data(), int(a.size()));
    FUZZ_CHECK(s.detect(a.c_str(), 0).isNull());

    const QString one = s.detectEncoding(a.c_str());
    const QString three = s.detectEncoding(a.c_str(), b.c_str(), c.c_str());
    if (lengthA == 0)
        FUZZ_CHECK(one == s.getSysCodec());
    if (lengthA == 0 && b[0] == '\0' && c[0] == '\0')
        FUZZ_CHECK(three == s.getSysCodec());

    const QString converted = s.fromCharToQstring(a.c_str());
    if (lengthA == 0)
        FUZZ_CHECK(converted.isNull());

    // Latin-1 decodes byte for byte up to the NUL.
    FUZZ_CHECK(s.SubCharToQstring(a.c_str(), QOrvicMetaDataSession::SubtStr_Latin1).size() == lengthA);
    s.SubCharToQstring(a.c_str(), QOrvicMetaDataSession::SubtStr_Utf8);
    // UTF-16 stops at a zero unit and never passes 1024 units.
    for (auto type : {QOrvicMetaDataSession::SubtStr_Utf16LE, QOrvicMetaDataSession::SubtStr_Utf16BE}) {
        const QString text = s.SubCharToQstring(a.c_str(), type);
        FUZZ_CHECK(text.size() <= 1024);
        FUZZ_CHECK(text.size() <= int(a.size() / 2));
    }
    // Undeclared types: the system codec's path.
    const auto other = static_cast<QOrvicMetaDataSession::SubtStrType_e>(4 + (settings & 0x0f));
    s.SubCharToQstring(b.c_str(), other);
    FUZZ_CHECK(s.SubCharToQstring(nullptr, other).isNull());
    return 0;
}
