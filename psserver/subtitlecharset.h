// The charset of a subtitle file, decided before its text is parsed: a
// byte-order mark, else valid UTF-8, else the charset detector over the whole
// file (its answer remapped as the library remaps it for tags), else the
// platform's system codec. The text then reaches the client as UTF-8.
#ifndef PSSERVER_SUBTITLECHARSET_H
#define PSSERVER_SUBTITLECHARSET_H

#include <QtCore/QByteArray>
#include <QtCore/QString>

struct CharsetDecision
{
    enum Source { ByteOrderMark, ValidUtf8, Detected, SystemCodec };

    QByteArray codec; // a name QTextCodec knows
    Source source = SystemCodec;
    int markLength = 0; // bytes of the byte-order mark
    QByteArray detectorAnswer; // what the detector said ("" when it had nothing to say or was not asked)
};

namespace subtitlecharset {

// The system codec (vendor item 104 of the platform), "ISO-8859-1" when it
// is empty or cannot be read.
QByteArray systemCodec();

// Decides the charset of `bytes`; `systemCodec` is the last resort.
CharsetDecision decide(const QByteArray &bytes, const QByteArray &systemCodec);

// `bytes` decoded as decided, the byte-order mark dropped.
QString decode(const QByteArray &bytes, const CharsetDecision &decision);

bool isValidUtf8(const QByteArray &bytes);

// Text files hold no NUL bytes (UTF-16 and UTF-32 announce themselves by
// their mark, which is looked at first).
bool looksBinary(const QByteArray &bytes);

const char *sourceName(CharsetDecision::Source source);

} // namespace subtitlecharset

#endif // PSSERVER_SUBTITLECHARSET_H
