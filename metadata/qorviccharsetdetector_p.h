// Internal: the character-set detector behind QOrvicMetaDataSession::detect.
// A thin table over the five libuchardet calls the session makes, so that a
// test can watch exactly what the detector is handed. Not exported.
#ifndef QORVICCHARSETDETECTOR_P_H
#define QORVICCHARSETDETECTOR_P_H

#include <uchardet.h>

#include <cstddef>

struct QOrvicCharsetDetector
{
    uchardet_t (*create)();
    int (*handleData)(uchardet_t detector, const char *data, size_t length);
    void (*dataEnd)(uchardet_t detector);
    const char *(*charset)(uchardet_t detector);
    void (*destroy)(uchardet_t detector);

    // The detector in use (libuchardet unless another one was installed).
    static const QOrvicCharsetDetector &current();
    static const QOrvicCharsetDetector &libuchardet();
    // Installs `detector` (not owned; it must outlive its use), nullptr
    // restores libuchardet. Returns the previously installed table.
    static const QOrvicCharsetDetector *install(const QOrvicCharsetDetector *detector);
};

#endif // QORVICCHARSETDETECTOR_P_H
