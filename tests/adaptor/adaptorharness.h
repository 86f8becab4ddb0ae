// Shared set-up of the adaptor tests: the scripted platform, a session on it,
// its adaptor, a log capture, a signal recorder and a state-transition checker.
#ifndef ORVICTEST_ADAPTORHARNESS_H
#define ORVICTEST_ADAPTORHARNESS_H

#include "instantpolls.h"
#include "logcapture.h"
#include "scriptedplatform.h"
#include "sessionrecorder.h"
#include "statetransitionchecker.h"

#include "qorvicplayersession.h"
#include "qorvicplayersession_p.h"

#include <QtCore/QStringList>

#include <functional>
#include <memory>
#include <thread>
#include <vector>

namespace orvictest {

// Scripts of the engine for typical media. Each is applied to every new
// reader / player, so a medium looks the same after a service restart.
namespace media {
// Local video with two audio streams, two subtitle streams, tags, trick play.
void localVideo(ScriptedPlayer *player);
void localVideo(ScriptedMetaData *reader);
// Audio only (no video block), one audio stream, tags.
void audioOnly(ScriptedPlayer *player);
void audioOnly(ScriptedMetaData *reader);
// Audio only, and neither player nor reader can tell subtitles (no subtitle block).
void withoutSubtitles(ScriptedPlayer *player);
void withoutSubtitles(ScriptedMetaData *reader);

// Keys of the metadata map of localVideo(), and of audioOnly() / withoutSubtitles().
QStringList localVideoKeys();
QStringList audioOnlyKeys();
QStringList withoutSubtitlesKeys();

// A successful open of the local video at `url` from a state up to
// Player_Stop: the engine calls (without the metadata queries) and the signals.
QStringList localOpenCalls(const QString &url);
QStringList localOpenSignals();
// The local video's streams gone (a new open or a service restart).
QStringList availabilityDropped();
} // namespace media

enum class Medium { Plain, LocalVideo, AudioOnly, WithoutSubtitles };

class AdaptorHarness
{
public:
    AdaptorHarness();
    ~AdaptorHarness();

    // Scripts every player and reader created from now on for `medium`
    // (Plain: the scripted engine's defaults).
    void useMedium(Medium medium);
    // A further set-up of every new player, applied after the medium's.
    void alsoForNewPlayers(std::function<void(ScriptedPlayer *)> setup);
    // Creates the session (engine set-ups given to engine.onNew...() apply)
    // and clears everything recorded during construction.
    void start(QMediaPlayer::Flags flags = QMediaPlayer::Flags());
    // A further session on the same platform, destroyed before the platform.
    QOrvicPlayerSession *addSession(QMediaPlayer::Flags flags = QMediaPlayer::Flags());

    ScriptedPlayer *player() const { return engine.lastPlayer(); }
    ScriptedMetaData *reader() const { return engine.lastMetaData(); }

    // Forgets signals, log lines and engine calls recorded so far.
    void clear();

    // Recorded signals, with the size of metadata maps kept ("metadataChanged(5 keys)").
    QStringList signalTexts() const { return recorder->texts(); }
    // Recorded engine calls without the queries of the metadata collection.
    QStringList transportCalls();
    // The library's own log lines of the session tag ("D/OPSession ...", also
    // "E/" and "V/"), in order; the metadata session's lines are left out.
    QStringList sessionLog() const;
    // Brings the session to Player_Play on `url` through the adaptor.
    void openAndPlay(const QString &url);
    // Opens `url`, then puts the adaptor into `state` directly (no
    // announcement), restarts the checker there and clears the records.
    void openIn(const QString &url, QOrvicPlayerSession::PlayerState state);
    // Makes the player's `op` start the session's stop() on another thread and
    // hold until that stop has raised its flag; joinStop() waits for the stop.
    void stopDuringEngineCall(const QString &op);
    void joinStop();

    ScriptedPropertyService props;
    ScriptedPlatformControl control;
    ScriptedEngine engine;
    InstantPolls polls;
    std::unique_ptr<LogCapture> log;
    std::unique_ptr<QOrvicPlayerSession> session;
    QOrvicPlayerSessionPrivate *d = nullptr;
    std::unique_ptr<SessionRecorder> recorder;
    std::unique_ptr<StateTransitionChecker> checker;

private:
    void installSetups();

    Medium m_medium = Medium::Plain;
    std::function<void(ScriptedPlayer *)> m_extraPlayerSetup;
    std::vector<std::unique_ptr<QOrvicPlayerSession>> m_extra;
    std::thread m_stopper;
};

// Destroys the harness (if any) and returns the state transitions its checker
// refused, one a line (empty: none), so that a failing comparison shows them;
// for a test's cleanup: QCOMPARE(closeHarness(h), QString()).
QString closeHarness(std::unique_ptr<AdaptorHarness> &harness);

// Names of the engine queries made by the metadata collection.
bool isMetadataQuery(const QString &call);

} // namespace orvictest

#endif // ORVICTEST_ADAPTORHARNESS_H
