// Writes seed inputs for the fuzz targets whose input is structured: valid
// psserver frames of every kind (as both ends send them) and subtitle cue
// scripts, and a few command sequences. Usage: orvic-fuzz-seeds OUTDIR
#include "psprotocol.h"

#include <QtCore/QDir>
#include <QtCore/QFile>

#include <cstdio>

namespace {

bool write(const QString &dir, const QString &name, const QByteArray &bytes)
{
    QDir().mkpath(dir);
    QFile f(dir + QLatin1Char('/') + name);
    return f.open(QIODevice::WriteOnly) && f.write(bytes) == bytes.size();
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s OUTDIR\n", argv[0]);
        return 2;
    }
    const QString out = QString::fromLocal8Bit(argv[1]);
    bool ok = true;

    // fuzz_psprotocol, mode 0 (first byte even): a stream of frames.
    const QString proto = out + QStringLiteral("/fuzz_psprotocol");
    using namespace psprotocol;
    const QList<Frame> frames = {
        ping(1), pong(1),
        call(2, pswire::OpOpen, {}),
        call(3, pswire::OpSetUrl, {QStringLiteral("file:///media/movie.mp4")}),
        call(4, pswire::OpPrepare, {0, 0}),
        call(5, pswire::OpSeekTo, {qlonglong(5000)}),
        call(6, pswire::OpSetSpeed, {2.0}),
        call(7, pswire::OpChangeStream, {2, 1}),
        call(8, pswire::OpSetParameter, {QStringLiteral("mPlayer"), QStringLiteral("video-on"), QByteArray("\1\0\0\0", 4)}),
        reply(3, 0), reply(4, -110), reply(9, 0, QByteArray("eng\0", 4)), reply(10, qlonglong(4000)),
        event(pswire::EvPositionChanged, {qlonglong(1200)}),
        event(pswire::EvStateChanged, {4}),
        event(pswire::EvError, {1, -2}),
        event(pswire::EvSubtitleChanged, {QByteArray("Hello <i>there</i>"), qlonglong(1000), qlonglong(2000)}),
        event(pswire::EvSpeedChanged, {2.0}),
    };
    QByteArray all(1, '\0');
    for (int i = 0; i < frames.size(); ++i) {
        const QByteArray bytes = encode(frames.at(i));
        ok = write(proto, QStringLiteral("frame-%1").arg(i, 2, 10, QLatin1Char('0')), QByteArray(1, '\0') + bytes) && ok;
        all += bytes;
    }
    ok = write(proto, QStringLiteral("stream"), all) && ok;
    // Mode 1 (first byte odd): cue scripts for the subtitle scheduler.
    ok = write(proto, QStringLiteral("cues"),
               QByteArray("\x01\x00\x00\x00\x00\x00\x00\x03\xe8\x00\x01<b>Hi &amp; bye</b>\x01\x00\x00\x00\x00\x00\x00\x04\x00",
                          40)) && ok;

    // fuzz_textdecode: settings byte, vendor codec, then the strings.
    const QString text = out + QStringLiteral("/fuzz_textdecode");
    ok = write(text, QStringLiteral("gbk"), QByteArray("\x01\xbd\xc7\xc2\xe4\xd6\xae\xb8\xe8\x00", 10)) && ok;
    ok = write(text, QStringLiteral("cp1251"),
               QByteArray("\x02\xcf\xf0\xe8\xe2\xe5\xf2 \xec\xe8\xf0", 11)) && ok;
    ok = write(text, QStringLiteral("utf16le"), QByteArray("\x04\xff\xfe" "A\0B\0C\0", 9)) && ok;
    ok = write(text, QStringLiteral("utf8"), QByteArray("\x04\xe8\xa7\x92\xe8\x90\xbd abc", 11)) && ok;
    return ok ? 0 : 1;
}
