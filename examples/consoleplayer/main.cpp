// consoleplayer: the smallest useful QMediaPlayer application. It plays one
// medium to its end and prints what the player reports, one line per event:
//
//   state PlayingState
//   status BufferedMedia
//   duration 3000
//   position 1000
//   title <text>
//   artist <text>
//   album <text>
//   error ResourceError <text>
//
// It knows nothing but Qt Multimedia: whichever media service back end Qt
// picks (QT_MULTIMEDIA_PREFERRED_PLUGINS) does the playing.
//
// Exit codes: 0 at the end of the medium, 1 when the player reports an error
// or an invalid medium, 2 when no media service is available, 64 for a bad
// command line.
#include <QtCore/QCommandLineParser>
#include <QtCore/QCoreApplication>
#include <QtCore/QFileInfo>
#include <QtCore/QMetaEnum>
#include <QtCore/QTextStream>
#include <QtCore/QUrl>
#include <QtMultimedia/QMediaMetaData>
#include <QtMultimedia/QMediaPlayer>

#include <cstdio>

namespace {

// QMediaPlayer declares its enumerations with Q_ENUMS: look them up by name.
QString enumName(const char *enumeration, int value)
{
    const QMetaObject &mo = QMediaPlayer::staticMetaObject;
    const QMetaEnum e = mo.enumerator(mo.indexOfEnumerator(enumeration));
    const char *key = e.valueToKey(value);
    return key ? QString::fromLatin1(key) : QString::number(value);
}

// Leaves the event loop with `code` once it runs: a back end may report an
// error from inside setMedia(), before exec() has started. The first outcome
// stands: an error followed by the end of the medium still exits 1.
void finish(int code)
{
    static bool finished = false;
    if (finished)
        return;
    finished = true;
    QMetaObject::invokeMethod(QCoreApplication::instance(), [code] { QCoreApplication::exit(code); },
                              Qt::QueuedConnection);
}

// The artist as the back ends report it: the album artist first, then the
// track's contributing artist, then the author.
QString artistOf(const QMediaPlayer &player)
{
    for (const QString &key : {QMediaMetaData::AlbumArtist, QMediaMetaData::ContributingArtist,
                               QMediaMetaData::Author}) {
        const QVariant value = player.metaData(key);
        const QString text = value.type() == QVariant::StringList ? value.toStringList().join(", ")
                                                                   : value.toString();
        if (!text.isEmpty())
            return text;
    }
    return QString();
}

class ConsolePlayer : public QObject
{
public:
    ConsolePlayer(QMediaPlayer &player, QTextStream &out)
        : m_player(player), m_out(out)
    {
        connect(&player, &QMediaPlayer::stateChanged, this, [this](QMediaPlayer::State state) {
            print(QStringLiteral("state"), enumName("State", state));
        });
        connect(&player, &QMediaPlayer::mediaStatusChanged, this, &ConsolePlayer::onStatus);
        connect(&player, &QMediaPlayer::durationChanged, this, [this](qint64 duration) {
            print(QStringLiteral("duration"), QString::number(duration));
        });
        connect(&player, &QMediaPlayer::positionChanged, this, [this](qint64 position) {
            print(QStringLiteral("position"), QString::number(position));
        });
        connect(&player, qOverload<>(&QMediaObject::metaDataChanged), this, &ConsolePlayer::onMetaData);
        connect(&player, qOverload<QMediaPlayer::Error>(&QMediaPlayer::error), this,
                [this](QMediaPlayer::Error error) {
            print(QStringLiteral("error"), enumName("Error", error) + QLatin1Char(' ') + m_player.errorString());
            finish(1);
        });
    }

private:
    void print(const QString &what, const QString &text)
    {
        m_out << what << ' ' << text << Qt::endl;
    }

    void onStatus(QMediaPlayer::MediaStatus status)
    {
        print(QStringLiteral("status"), enumName("MediaStatus", status));
        if (status == QMediaPlayer::EndOfMedia)
            finish(0);
        else if (status == QMediaPlayer::InvalidMedia)
            finish(1);
    }

    // Prints each text when it first appears or changes.
    void onMetaData()
    {
        const QList<QPair<QString, QString>> texts = {
            {QStringLiteral("title"), m_player.metaData(QMediaMetaData::Title).toString()},
            {QStringLiteral("artist"), artistOf(m_player)},
            {QStringLiteral("album"), m_player.metaData(QMediaMetaData::AlbumTitle).toString()},
        };
        for (const auto &t : texts) {
            if (!t.second.isEmpty() && m_shown.value(t.first) != t.second) {
                m_shown.insert(t.first, t.second);
                print(t.first, t.second);
            }
        }
    }

    QMediaPlayer &m_player;
    QTextStream &m_out;
    QHash<QString, QString> m_shown;
};

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("consoleplayer"));

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Plays a medium with QMediaPlayer and prints its events."));
    parser.addHelpOption();
    const QCommandLineOption volumeOption(QStringLiteral("volume"), QStringLiteral("Volume, 0 to 100."),
                                          QStringLiteral("volume"), QStringLiteral("100"));
    const QCommandLineOption intervalOption(QStringLiteral("interval"),
                                            QStringLiteral("Milliseconds between position lines."),
                                            QStringLiteral("ms"), QStringLiteral("1000"));
    parser.addOption(volumeOption);
    parser.addOption(intervalOption);
    parser.addPositionalArgument(QStringLiteral("medium"), QStringLiteral("File or URL to play."));
    parser.process(app);

    QTextStream err(stderr);
    bool volumeOk = false;
    bool intervalOk = false;
    const int volume = parser.value(volumeOption).toInt(&volumeOk);
    const int interval = parser.value(intervalOption).toInt(&intervalOk);
    if (parser.positionalArguments().size() != 1 || !volumeOk || volume < 0 || volume > 100
        || !intervalOk || interval <= 0) {
        err << parser.helpText() << Qt::flush;
        return 64;
    }
    const QUrl url = QUrl::fromUserInput(parser.positionalArguments().first(), QFileInfo(".").absoluteFilePath(),
                                         QUrl::AssumeLocalFile);

    QTextStream out(stdout);
    out.setCodec("UTF-8");
    QMediaPlayer player;
    if (player.availability() != QMultimedia::Available) {
        err << "consoleplayer: no media service available for playback" << Qt::endl;
        return 2;
    }
    ConsolePlayer printer(player, out);
    player.setNotifyInterval(interval);
    player.setVolume(volume);
    out << "medium " << url.toString() << Qt::endl;
    player.setMedia(url);
    player.play();
    return app.exec();
}
