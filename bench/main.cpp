// orvic-bench: the session on the PC platform measured against Qt's stock
// GStreamer player and against the floors it is built on.
//
//   orvic-bench run --media DIR --out DIR [--smoke]
//   orvic-bench worker SET PLAYER URL TAG REPS   (started by run)
#include "runner.h"
#include "workers.h"

#include <QtGui/QGuiApplication>

#include <cstdio>
#include <cstring>

namespace {

int usage()
{
    std::fprintf(stderr, "usage: orvic-bench run --media DIR --out DIR [--smoke]\n"
                         "       orvic-bench worker SET PLAYER URL TAG REPS\n");
    return 2;
}

int worker(int argc, char **argv)
{
    // The stock player wants a GUI application (offscreen here); the session
    // gets the same.
    QGuiApplication app(argc, argv);
    const QStringList a = app.arguments();
    if (a.size() != 7)
        return usage();
    orvicbench::WorkerArgs args;
    args.set = a.at(2);
    args.player = a.at(3);
    args.url = a.at(4);
    args.tag = a.at(5);
    args.reps = a.at(6).toInt();
    using Set = int (*)(const orvicbench::WorkerArgs &);
    const struct { const char *name; Set run; } sets[] = {
        {"open", orvicbench::runOpen},           {"transport", orvicbench::runTransport},
        {"command", orvicbench::runCommand},     {"detect", orvicbench::runDetect},
        {"recovery", orvicbench::runRecovery},   {"concurrent", orvicbench::runConcurrent},
        {"memory", orvicbench::runMemory},
    };
    for (const auto &set : sets) {
        if (args.set == QLatin1String(set.name))
            return set.run(args);
    }
    return usage();
}

} // namespace

int main(int argc, char **argv)
{
    if (argc >= 2 && std::strcmp(argv[1], "worker") == 0)
        return worker(argc, argv);
    if (argc < 2 || std::strcmp(argv[1], "run") != 0)
        return usage();
    QCoreApplication app(argc, argv);
    orvicbench::RunOptions options;
    const QStringList a = app.arguments();
    for (int i = 2; i < a.size(); ++i) {
        if (a.at(i) == QLatin1String("--smoke"))
            options.smoke = true;
        else if (a.at(i) == QLatin1String("--media") && i + 1 < a.size())
            options.mediaDir = a.at(++i);
        else if (a.at(i) == QLatin1String("--out") && i + 1 < a.size())
            options.outDir = a.at(++i);
        else
            return usage();
    }
    if (options.mediaDir.isEmpty() || options.outDir.isEmpty())
        return usage();
    return orvicbench::runBenchmarks(options);
}
