// orvic-play: plays a medium through QOrvicPlayerSession in a terminal.
#include "interrupts.h"
#include "orvicplay.h"

#include <QtCore/QCommandLineParser>
#include <QtCore/QCoreApplication>
#include <QtCore/QLoggingCategory>

#if ORVIC_HOST_VIDEO
#include "videowindow.h"

#include <QtWidgets/QApplication>
#endif

#include <cstdio>
#include <cstring>
#include <memory>

namespace {
const int kUsageError = 64;
} // namespace

int main(int argc, char *argv[])
{
    // A window needs a GUI application, which needs a display: only then.
    bool window = false;
    for (int i = 1; i < argc; ++i)
        window = window || std::strcmp(argv[i], "--window") == 0;
#if ORVIC_HOST_VIDEO
    std::unique_ptr<QCoreApplication> application(window ? new QApplication(argc, argv)
                                                         : new QCoreApplication(argc, argv));
#else
    std::unique_ptr<QCoreApplication> application(new QCoreApplication(argc, argv));
#endif
    QCoreApplication &app = *application;
    QCoreApplication::setApplicationName(QStringLiteral("orvic-play"));

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Plays a medium through the Orvic player session and shows its states, metadata,\n"
        "progress, errors, media messages and subtitles.\n\n"
        "Keys while playing in a terminal: space pause/play, left/right seek -/+5 s,\n"
        "down/up seek -/+30 s, [ ] rate down/up, + - volume, m mute, a next audio stream,\n"
        "s next subtitle stream, t subtitles on/off, q quit."));
    parser.addHelpOption();
    parser.addPositionalArgument(QStringLiteral("media"), QStringLiteral("File path or URL to play."));
    const QCommandLineOption metadataOnly(QStringLiteral("metadata-only"),
                                          QStringLiteral("Open a metadata-only session, print the metadata and exit."));
    const QCommandLineOption json(QStringLiteral("json"), QStringLiteral("One JSON object per event on stdout."));
    const QCommandLineOption cover(QStringLiteral("cover"), QStringLiteral("Save the embedded picture as PNG."),
                                   QStringLiteral("file.png"));
    const QCommandLineOption start(QStringLiteral("start"), QStringLiteral("Start position in milliseconds."),
                                   QStringLiteral("ms"));
    const QCommandLineOption rate(QStringLiteral("rate"), QStringLiteral("Playback rate."), QStringLiteral("rate"));
    const QCommandLineOption volume(QStringLiteral("volume"), QStringLiteral("Volume 0-100."), QStringLiteral("n"));
    const QCommandLineOption systemCodec(QStringLiteral("system-codec"),
                                         QStringLiteral("System codec (vendor item 104) for this run, e.g. GB18030."),
                                         QStringLiteral("name"));
    const QCommandLineOption verbose(QStringLiteral("verbose"), QStringLiteral("Show the library's own log lines."));
    const QCommandLineOption subtitles(QStringLiteral("subtitles"),
                                       QStringLiteral("Subtitles on from the start (embedded ones or files beside the medium)."));
    const QCommandLineOption windowOption(QStringLiteral("window"),
                                          QStringLiteral("Show the video in a window (PC platform)."));
    parser.addOptions({metadataOnly, json, cover, start, rate, volume, systemCodec, verbose, subtitles, windowOption});
    parser.process(app);

    const QStringList positional = parser.positionalArguments();
    if (positional.size() != 1) {
        std::fprintf(stderr, "orvic-play: give exactly one FILE or URL (see --help)\n");
        return kUsageError;
    }

    PlayOptions options;
    options.media = positional.first();
    options.metadataOnly = parser.isSet(metadataOnly);
    options.json = parser.isSet(json);
    options.coverFile = parser.value(cover);
    options.subtitles = parser.isSet(subtitles);
    options.interactive = Terminal::isInteractive() && !options.json;
    bool ok = true;
    if (parser.isSet(start)) {
        options.startMs = parser.value(start).toLongLong(&ok);
        if (!ok || options.startMs < 0) {
            std::fprintf(stderr, "orvic-play: --start takes milliseconds\n");
            return kUsageError;
        }
    }
    if (parser.isSet(rate)) {
        options.rate = parser.value(rate).toFloat(&ok);
        if (!ok) {
            std::fprintf(stderr, "orvic-play: --rate takes a number\n");
            return kUsageError;
        }
    }
    if (parser.isSet(volume)) {
        options.volume = parser.value(volume).toInt(&ok);
        if (!ok || options.volume < 0 || options.volume > 100) {
            std::fprintf(stderr, "orvic-play: --volume takes 0-100\n");
            return kUsageError;
        }
    }
    // The host platform control reads vendor item 104 from the environment.
    if (parser.isSet(systemCodec))
        qputenv("ORVIC_SYSTEM_CODEC", parser.value(systemCodec).toUtf8());
    if (!parser.isSet(verbose))
        QLoggingCategory::setFilterRules(QStringLiteral("default.debug=false"));

    // Ctrl-C and termination end the program at any moment, also while the
    // session's constructor waits for the playback service.
    interrupts::install();
    int exitCode = 0;
    {
        OrvicPlay player(options);
        QObject::connect(&player, &OrvicPlay::finished, &app, [&app]() { app.exit(0); }, Qt::QueuedConnection);
#if ORVIC_HOST_VIDEO
        std::unique_ptr<VideoWindow> videoWindow;
        if (window) {
            videoWindow = std::make_unique<VideoWindow>(QStringLiteral("orvic-play: ") + options.media);
            QObject::connect(&player, &OrvicPlay::aboutToOpen, videoWindow.get(), &VideoWindow::check);
            QObject::connect(&player, &OrvicPlay::ticked, videoWindow.get(), &VideoWindow::check);
            QObject::connect(videoWindow.get(), &VideoWindow::closed, &player, [&player]() { player.quit(0); });
            videoWindow->show(player.session());
        }
#else
        if (window) {
            std::fprintf(stderr, "orvic-play: --window needs the PC platform's video output\n");
            return kUsageError;
        }
#endif
        QMetaObject::invokeMethod(&player, [&player]() { player.start(); }, Qt::QueuedConnection);
        interrupts::enterEventLoop(&player, [&player]() { player.quit(interrupts::kInterruptedExitCode); });
        app.exec();
        interrupts::leaveEventLoop();
        exitCode = player.exitCode();
    }
    interrupts::uninstall();
    return exitCode;
}
