#include "charsetremap.h"

#include <cstring>

namespace {

struct CharsetMapping {
    const char *detected;
    const char *codec;
};

// The left column is compared exactly as it stands, underscores and all.
const CharsetMapping charsetMappings[] = {
    {"EUC-TW", "GB18030"},
    {"HZ-GB-2312", "GB18030"},
    {"ISO_8859_2", "windows-1250"},
    {"IBM852", "windows-1250"},
    {"MAC-CENTRALEUROPE", "windows-1250"},
    {"ISO-8859-3", "ISO_8859_1"},
    {"ISO-8859-4", "windows-1252"},
    {"ISO-8859-9", "windows-1252"},
    {"ISO-8859-5", "windows-1251"},
    {"KOIR-R", "windows-1251"},
    {"MAC-CYRILLIC", "windows-1251"},
    {"IBM855", "windows-1251"},
    {"ISO-8859-6", "windows-1256"},
    {"ISO-8859-7", "windows-1253"},
    {"ISO-8859-8", "windows-1255"},
    {"UHC", "EUC-KR"},
    {"VISCII", "windows-1258"},
};

} // namespace

namespace orviccharset {

const char *remappedCodec(const char *detected)
{
    if (!detected)
        return nullptr;
    for (const CharsetMapping &mapping : charsetMappings) {
        if (std::strcmp(detected, mapping.detected) == 0)
            return mapping.codec;
    }
    return nullptr;
}

} // namespace orviccharset
