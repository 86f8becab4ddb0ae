// detectEncoding on tag-sized texts against bare uchardet fed the same five
// copies of each text.
#include "benchcore.h"
#include "workers.h"

#include <qorvicmetadatasession.h>

#include <QtCore/QByteArray>
#include <QtCore/QTextCodec>
#include <QtCore/QVector>

#include <ctime>
#include <uchardet.h>

namespace orvicbench {

namespace {

// Tag-sized texts in the legacy encodings tags come in.
QVector<QByteArray> tagTexts()
{
    const struct { const char *codec; const char *text; } texts[] = {
        {"GBK", "春天的故事在这里开始"},
        {"windows-1251", "Тихая ночь над рекой"},
        {"Shift_JIS", "東京の夜空に輝く星"},
        {"UTF-8", "Привет, 世界: a title in UTF-8"},
        {"windows-1252", "Café del Mar – Volumen Uno"},
    };
    QVector<QByteArray> result;
    for (const auto &t : texts) {
        QTextCodec *codec = QTextCodec::codecForName(t.codec);
        result.append(codec ? codec->fromUnicode(QString::fromUtf8(t.text)) : QByteArray(t.text));
    }
    return result;
}

// The detector's own work: the five copies are made beforehand.
QByteArray bareDetect(const QByteArray &fiveCopies)
{
    uchardet_t detector = uchardet_new();
    uchardet_handle_data(detector, fiveCopies.constData(), size_t(fiveCopies.size()));
    uchardet_data_end(detector);
    const QByteArray charset(uchardet_get_charset(detector));
    uchardet_delete(detector);
    return charset;
}

// CPU time of this thread in ms: the work is pure computation, and on a
// shared machine the wall clock would also count the time others ran.
double threadCpuMs()
{
    timespec ts{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return double(ts.tv_sec) * 1e3 + double(ts.tv_nsec) / 1e6;
}

} // namespace

int runDetect(const WorkerArgs &args)
{
    const QVector<QByteArray> texts = tagTexts();
    QVector<QByteArray> fiveCopies;
    for (const QByteArray &text : texts)
        fiveCopies.append(text.repeated(5));
    QOrvicMetaDataSession session(nullptr, nullptr);
    // Calls per sample: enough for a sample to last a few ms of CPU time.
    const int rounds = 100;
    const int calls = rounds * texts.size();
    qint64 sink = 0; // keeps the results alive
    for (int rep = -2; rep < args.reps; ++rep) {
        double t0 = threadCpuMs();
        for (int r = 0; r < rounds; ++r) {
            for (const QByteArray &text : texts)
                sink += session.detectEncoding(text.constData()).size();
        }
        const double ours = (threadCpuMs() - t0) * 1000.0 / calls;
        t0 = threadCpuMs();
        for (int r = 0; r < rounds; ++r) {
            for (const QByteArray &copies : fiveCopies)
                sink += bareDetect(copies).size();
        }
        const double bare = (threadCpuMs() - t0) * 1000.0 / calls;
        if (rep < 0)
            continue;
        emitSample(QStringLiteral("detect/ours"), ours);
        emitSample(QStringLiteral("detect/uchardet"), bare);
    }
    if (sink == 0)
        emitNote(QStringLiteral("detect: no charset named at all"));
    return sink > 0 ? 0 : 1;
}

} // namespace orvicbench
