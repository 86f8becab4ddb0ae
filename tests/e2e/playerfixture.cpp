#include "playerfixture.h"

#include <QtTest/QtTest>

using playback::SPPlayer;

namespace orvice2e {

QByteArray local(const QString &name)
{
    return mediaPath(name).toUtf8();
}

int intParameter(SPPlayer *player, const char *key)
{
    int value = -12345;
    const int result = player->getParameter("mPlayer", key, &value, int(sizeof value));
    return result == 0 ? value : result;
}

int setFlag(SPPlayer *player, const char *target, const char *key, bool on)
{
    return player->setParameter(target, key, &on, 1);
}

void PlayerTestBase::init()
{
    m_runtime.reset(new RuntimeDir);
    QVERIFY(m_runtime->isValid());
    QVERIFY2(startServiceAndWait(), m_runtime->daemonLog().constData());
    m_events.reset(new RecordingCallBack);
}

void PlayerTestBase::cleanup()
{
    m_player.reset();
    if (m_events)
        QVERIFY(!m_events->calledOnCreatingThread()); // callbacks come on the engine thread
    verifyDaemonLogClean();
    m_events.reset();
    m_runtime.reset();
}

// A sanitizer finding inside the service would otherwise go unnoticed.
void PlayerTestBase::verifyDaemonLogClean()
{
    if (!m_runtime)
        return;
    // Stopped first: a leak report is written when the daemon exits.
    QCOMPARE(stopService(), 0);
    const QByteArray log = m_runtime->daemonLog();
    QVERIFY2(!hasSanitizerReport(log), log.constData());
}

PlayerPtr PlayerTestBase::open(const QByteArray &url)
{
    PlayerPtr player(SPPlayer::create("Qspmediaplayer", m_events.get()));
    if (player->setUrl(url.constData()) != 0 || player->prepare(0, 0) != 0)
        return PlayerPtr();
    // Callbacks come on their own thread, possibly after prepare() returned.
    if (!m_events->waitFor("prepared()"))
        return PlayerPtr();
    return player;
}

} // namespace orvice2e
