// The host engine player against the real psserver: what the player tests
// share. Each test gets a runtime directory of its own with a running
// service, a recording callback sink and room for one player; the service's
// log is checked for a sanitizer's report when the test ends.
#ifndef ORVIC_E2E_PLAYERFIXTURE_H
#define ORVIC_E2E_PLAYERFIXTURE_H

#include "e2esupport.h"

#include <playback/spplayer.h>

#include <QtCore/QByteArray>
#include <QtCore/QObject>
#include <QtCore/QString>

#include <memory>

namespace orvice2e {

struct PlayerDeleter
{
    void operator()(playback::SPPlayer *player) const { playback::SPPlayer::destroy(player); }
};
using PlayerPtr = std::unique_ptr<playback::SPPlayer, PlayerDeleter>;

// The path of generated medium `name`, as the engine takes it.
QByteArray local(const QString &name);
// An int parameter of the player, or the failure number when it has none.
int intParameter(playback::SPPlayer *player, const char *key);
// Sets a one-byte flag parameter of `target`; returns the engine's result.
int setFlag(playback::SPPlayer *player, const char *target, const char *key, bool on);

// Base of the player test classes: QtTest runs its init() and cleanup()
// around each test of a derived class.
class PlayerTestBase : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

protected:
    // A player with `url` set and prepared, once its prepared() callback has
    // come; null when any of it failed.
    PlayerPtr open(const QByteArray &url);

    std::unique_ptr<RuntimeDir> m_runtime;
    std::unique_ptr<RecordingCallBack> m_events;
    PlayerPtr m_player;

private:
    void verifyDaemonLogClean();
};

} // namespace orvice2e

#endif // ORVIC_E2E_PLAYERFIXTURE_H
