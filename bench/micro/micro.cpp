// Micro-benchmarks of the library's own steps: charset detection against
// bare uchardet, the metadata map built from a record, and a command's
// dispatch through the session's queue to a scripted engine.
#include <qorvicmetadatasession.h>
#include <qorvicplayersession.h>

#include <instantpolls.h>
#include <scriptedplatform.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QTextCodec>

#include <benchmark/benchmark.h>
#include <uchardet.h>

#include <cstdlib>
#include <cstring>

namespace {

QByteArray gbkTitle()
{
    return QTextCodec::codecForName("GBK")->fromUnicode(QString::fromUtf8("春天的故事在这里开始"));
}

void detectEncoding(benchmark::State &state)
{
    QOrvicMetaDataSession session(nullptr, nullptr);
    const QByteArray text = gbkTitle();
    for (auto _ : state)
        benchmark::DoNotOptimize(session.detectEncoding(text.constData()));
}
BENCHMARK(detectEncoding);

void bareUchardet(benchmark::State &state)
{
    const QByteArray five = gbkTitle().repeated(5);
    for (auto _ : state) {
        uchardet_t detector = uchardet_new();
        uchardet_handle_data(detector, five.constData(), size_t(five.size()));
        uchardet_data_end(detector);
        benchmark::DoNotOptimize(uchardet_get_charset(detector));
        uchardet_delete(detector);
    }
}
BENCHMARK(bareUchardet);

void fillMetadataMap(benchmark::State &state)
{
    QOrvicMetaDataSession session(nullptr, nullptr);
    QOrvicPlayerSession::PlayerMetaData meta;
    meta.totalTime = 10000;
    meta.trickPlay = true;
    for (auto _ : state) {
        QMap<QString, QVariant> map;
        session.fillMetadataMap(map, meta);
        benchmark::DoNotOptimize(map);
    }
}
BENCHMARK(fillMetadataMap);

// manageActList on the owner's thread down to the engine call and back:
// the queue, the locks, the parameter's conversion and volumeChanged, with
// an engine that answers at once.
void dispatchVolumeCommand(benchmark::State &state)
{
    orvictest::ScriptedEngine engine;
    orvictest::ScriptedPropertyService properties;
    orvictest::InstantPolls polls;
    QOrvicPlayerSession session(QMediaPlayer::Flags{});
    int changes = 0;
    QObject::connect(&session, &QOrvicPlayerSession::volumeChanged, [&changes](int) { ++changes; });
    int volume = 40;
    for (auto _ : state) {
        volume = volume == 40 ? 60 : 40;
        session.manageActList(QOrvicPlayerSession::Msg_Volume, volume);
        if ((changes & 0xfff) == 0) {
            // The scripted engine records every call; keep the record short.
            state.PauseTiming();
            engine.recorder().clear();
            state.ResumeTiming();
        }
    }
    if (changes != int(state.iterations()))
        state.SkipWithError("a command did not reach the engine");
}
BENCHMARK(dispatchVolumeCommand);

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
