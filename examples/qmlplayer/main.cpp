// qmlplayer: a QML MediaPlayer with play/pause, a seek slider, volume, the
// title, the artist and the cover art of the medium given on the command
// line. Like any Qt Quick application it knows only Qt Multimedia; the back
// end is whichever media service Qt picks.
//
//   qmlplayer [--volume 0-100] [--quit-at-end] [--screenshot file.png] medium
//
// It prints the player's events on standard output ("state Playing",
// "status Buffered", "title ...", "artist ...", "cover 640x480",
// "screenshot file.png 640x480", "error ..."). With --screenshot it grabs the
// window one second into playback; with --quit-at-end it exits 0 at the end
// of the medium and 1 on an error or an invalid medium.
#include "coverart.h"
#include "shell.h"

#include <QtCore/QCommandLineParser>
#include <QtCore/QDir>
#include <QtCore/QTextStream>
#include <QtGui/QGuiApplication>
#include <QtQml/QQmlApplicationEngine>
#include <QtQml/QQmlContext>
#include <QtQuick/QQuickWindow>

int main(int argc, char *argv[])
{
    QCoreApplication::setAttribute(Qt::AA_EnableHighDpiScaling);
    QGuiApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("qmlplayer"));

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Plays a medium with QML's MediaPlayer."));
    parser.addHelpOption();
    const QCommandLineOption volumeOption(QStringLiteral("volume"), QStringLiteral("Volume, 0 to 100."),
                                          QStringLiteral("volume"), QStringLiteral("100"));
    const QCommandLineOption quitOption(QStringLiteral("quit-at-end"),
                                        QStringLiteral("Exit at the end of the medium (1 on an error)."));
    const QCommandLineOption screenshotOption(QStringLiteral("screenshot"),
                                              QStringLiteral("Grab the window one second into playback."),
                                              QStringLiteral("file"));
    parser.addOption(volumeOption);
    parser.addOption(quitOption);
    parser.addOption(screenshotOption);
    parser.addPositionalArgument(QStringLiteral("medium"), QStringLiteral("File or URL to play."));
    parser.process(app);

    bool volumeOk = false;
    const int volume = parser.value(volumeOption).toInt(&volumeOk);
    if (parser.positionalArguments().size() != 1 || !volumeOk || volume < 0 || volume > 100) {
        QTextStream(stderr) << parser.helpText() << Qt::flush;
        return 64;
    }
    const QUrl medium = QUrl::fromUserInput(parser.positionalArguments().first(), QDir::currentPath(),
                                            QUrl::AssumeLocalFile);

    Shell shell(medium, volume / 100.0, parser.isSet(quitOption), parser.value(screenshotOption));
    CoverArt cover;
    QQmlApplicationEngine engine;
    engine.addImageProvider(CoverArt::providerId, new CoverArtProvider(&cover));
    engine.rootContext()->setContextProperty(QStringLiteral("shell"), &shell);
    engine.rootContext()->setContextProperty(QStringLiteral("coverArt"), &cover);
    engine.load(QUrl(QStringLiteral("qrc:/main.qml")));

    QQuickWindow *window = engine.rootObjects().isEmpty()
            ? nullptr : qobject_cast<QQuickWindow *>(engine.rootObjects().first());
    QObject *player = window ? window->findChild<QObject *>(QStringLiteral("player")) : nullptr;
    if (!window || !player) {
        QTextStream(stderr) << "qmlplayer: the user interface did not load" << Qt::endl;
        return 1;
    }
    shell.setWindow(window);
    cover.follow(player);
    return app.exec();
}
