// Client of the installed liborvicutil: uses the session, the name tables and
// the device's Qt Multimedia additions, and prints what it saw.
#include <qmediastringdefine.h>
#include <qorvicplayersession.h>

#include <QtCore/QCoreApplication>
#include <QtMultimedia/QMediaMetaData>
#include <QtMultimedia/QMediaPlayer>

#include <cstdio>

static void quietHandler(QtMsgType, const QMessageLogContext &, const QString &)
{
}

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    qInstallMessageHandler(quietHandler);

    int failures = 0;
    auto report = [&failures](const char *what, const QString &got, const QString &expected) {
        const bool ok = got == expected;
        failures += ok ? 0 : 1;
        std::printf("%s %s: %s\n", ok ? "ok" : "FAIL", what, qPrintable(got));
    };

    report("video codec 5", QMediaStringDefine::getVideoCodecString(5), QStringLiteral("h.264"));
    report("subtitle count key", QMediaMetaData::SubtitleCount, QStringLiteral("SubtitleCount"));
    report("resume data bytes", QString::number(sizeof(QMediaPlayer::ResumeData)), QStringLiteral("4224"));
    report("metadata-only flag", QString::number(int(QMediaPlayer::MetaDataOnly), 16), QStringLiteral("8"));

    // A session needs the platform's playback service; the test asks for it
    // only where the installed platform ships one.
    if (qEnvironmentVariableIsSet("ORVIC_CONSUMER_SESSION")) {
        QOrvicPlayerSession session(QMediaPlayer::Flags(QMediaPlayer::MetaDataOnly));
        report("new session state", QString::number(session.state()),
               QString::number(QOrvicPlayerSession::Player_Initialized));
    }

    return failures == 0 ? 0 : 1;
}
