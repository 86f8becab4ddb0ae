// Detector answers remapped to the codecs the device's fonts and codec set
// serve. Shared by the library's tag and subtitle conversions and by the
// PC playback service, which decides the charset of subtitle files: both
// must read the same bytes as the same text. Plain C++, no Qt.
#ifndef ORVIC_CHARSETREMAP_H
#define ORVIC_CHARSETREMAP_H

namespace orviccharset {

// The detector's answer when it has nothing to say; the system codec decides then.
constexpr const char kUnknown[] = "unknown";

// The codec to use for `detected`, compared literally, first match wins; null
// when the answer is used unchanged (also for "unknown", which the caller
// resolves to its system codec).
const char *remappedCodec(const char *detected);

} // namespace orviccharset

#endif // ORVIC_CHARSETREMAP_H
