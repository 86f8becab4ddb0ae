// Drives one QOrvicPlayerSession as a terminal player: queues the commands,
// feeds the watchdog from its progress timer and prints every event.
#ifndef ORVICPLAY_ORVICPLAY_H
#define ORVICPLAY_ORVICPLAY_H

#include "eventprinter.h"
#include "terminal.h"

#include "qorvicplayersession.h"

#include <QtCore/QObject>
#include <QtCore/QTimer>
#include <QtCore/QVariantMap>

#include <memory>

struct PlayOptions {
    QString media;
    bool metadataOnly = false;
    bool json = false;
    QString coverFile;
    qint64 startMs = -1;
    float rate = 1.0f;
    int volume = -1;
    bool subtitles = false;
    bool interactive = false;
    int progressIntervalMs = 250;
};

class OrvicPlay : public QObject
{
    Q_OBJECT

public:
    explicit OrvicPlay(const PlayOptions &options, QObject *parent = nullptr);
    ~OrvicPlay() override;

    void start();
    // Ends the session cleanly (stop, then finished()); the highest code asked for wins.
    void quit(int code);
    int exitCode() const { return m_exitCode; }

    // Rates that the [ and ] keys step through (slow backward is never supported).
    static const QList<float> &rateSteps();

    QOrvicPlayerSession *session() const { return m_session.get(); }

Q_SIGNALS:
    void finished();
    // Before the medium is opened, and after each time update of the
    // session (its engine may have been replaced): for the video window.
    void aboutToOpen();
    void ticked();

private:
    void connectSession();
    void onStateChanged(QOrvicPlayerSession::PlayerState state);
    void onMetadata(const QVariantMap &map);
    void onMetaDataChanged(const QString &key, const QVariant &value);
    void onMediaMessage(QMediaPlayer::MediaMessage message, const QVariant &info);
    void onError(int code, const QString &text);
    void onComplete();
    void onKey(Terminal::Key key);
    void tick();
    void saveCover();
    void stepRate(int direction);
    void seekBy(qint64 deltaMs);

    PlayOptions m_options;
    EventPrinter m_printer;
    std::unique_ptr<QOrvicPlayerSession> m_session;
    Terminal m_terminal;
    QTimer m_progressTimer;
    QVariantMap m_metadata;
    QOrvicPlayerSession::PlayerState m_state = QOrvicPlayerSession::Player_Idle;
    int m_bufferingPercent = -1;
    bool m_subtitlesOn = false;
    bool m_startDone = false;
    bool m_quitting = false;
    bool m_coverSaved = false;
    int m_exitCode = 0;
    int m_ticks = 0;
};

#endif // ORVICPLAY_ORVICPLAY_H
