// QMediaPlayer::position() through the back end plugin on the real
// playback service: a live reading of the engine while playing, and what a
// pause, a seek, a stop, another medium and an unload leave it at.
#include "pluginplayertest.h"

#include <QtCore/QElapsedTimer>
#include <QtMultimedia/QMediaPlayer>
#include <QtTest/QtTest>

#include <memory>

using namespace orvice2e;

namespace {

// Asks the player for its position until it differs from `from`, without
// handling events in between (so no tick of the session reaches the
// player), for at most `limitMs`; the last answer.
qint64 nextPositionWithoutEvents(QMediaPlayer *player, qint64 from, int limitMs)
{
    QElapsedTimer waited;
    waited.start();
    qint64 now = player->position();
    while (now == from && waited.elapsed() < limitMs)
        now = player->position();
    return now;
}

} // namespace

class tst_PluginPosition : public PluginPlayerTestBase
{
    Q_OBJECT

private Q_SLOTS:
    void livePosition();
    void playAskedWhileLoading();
};

void tst_PluginPosition::livePosition()
{
    loadAndWait("sine.mp3");
    m_player->play();
    QTRY_VERIFY_WITH_TIMEOUT(m_player->position() > 200, 10000);

    // Playing: the position is read from the engine, not from the last
    // periodic tick, so it advances while no event is handled.
    const qint64 first = m_player->position();
    const qint64 later = nextPositionWithoutEvents(m_player.get(), first, 3000);
    QVERIFY2(later > first && later < first + 1000, qPrintable(QStringLiteral("%1 -> %2").arg(first).arg(later)));
    const qint64 evenLater = nextPositionWithoutEvents(m_player.get(), later, 3000);
    QVERIFY2(evenLater > later, qPrintable(QStringLiteral("%1 -> %2").arg(later).arg(evenLater)));

    // Paused: the position stands, and does not step back from the last
    // reading while playing.
    m_player->pause();
    const qint64 paused = m_player->position();
    QVERIFY2(paused >= evenLater, qPrintable(QStringLiteral("%1 -> %2").arg(evenLater).arg(paused)));
    for (int i = 0; i < 20; ++i)
        QCOMPARE(m_player->position(), paused);

    // A seek while paused: the target at once and once it is done.
    m_player->setPosition(1500);
    QCOMPARE(m_player->position(), qint64(1500));
    QTRY_VERIFY_WITH_TIMEOUT(m_rec->positions().contains(1500), 10000);
    QVERIFY2(qAbs(m_player->position() - 1500) <= 40, qPrintable(QString::number(m_player->position())));

    // Stopped: the position set meanwhile, and playing goes on from there.
    m_player->stop();
    QCOMPARE(m_player->position(), qint64(0));
    m_player->setPosition(1200);
    QCOMPARE(m_player->position(), qint64(1200));
    QCOMPARE(nextPositionWithoutEvents(m_player.get(), 1200, 50), qint64(1200));
    m_player->play();
    QTRY_VERIFY_WITH_TIMEOUT(m_player->position() > 1300, 10000);
    const qint64 resumed = m_player->position();
    QVERIFY2(nextPositionWithoutEvents(m_player.get(), resumed, 3000) > resumed, qPrintable(QString::number(resumed)));

    // Another medium played at once: no reading is one of the old medium,
    // while the service stops it, opens the new one and starts it.
    m_player->setPosition(2500);
    QTRY_VERIFY_WITH_TIMEOUT(m_player->position() > 2600, 10000);
    m_player->setMedia(media("sine.ogg"));
    m_player->play();
    QElapsedTimer switching;
    switching.start();
    while (switching.elapsed() < 300) {
        const qint64 now = m_player->position();
        QVERIFY2(now < 2500, qPrintable(QString::number(now)));
    }
    QTRY_VERIFY_WITH_TIMEOUT(m_player->position() > 200, 10000);
    QVERIFY(m_player->position() < 2500);

    // Unloaded while playing: no medium, no position. The next medium
    // starts at 0 once loaded, after every late tick of the old one came.
    m_player->setMedia(QMediaContent());
    QCOMPARE(m_player->position(), qint64(0));
    QCOMPARE(nextPositionWithoutEvents(m_player.get(), 0, 50), qint64(0));
    m_rec->clear();
    loadAndWait("sine.mp3");
    QCOMPARE(m_player->position(), qint64(0));

    // Deleted while playing, right after a live reading: the session goes
    // with the service and is not called any more (the sanitizers' build
    // checks that nothing touches it).
    m_player->play();
    QTRY_VERIFY_WITH_TIMEOUT(m_player->position() > 200, 10000);
    QVERIFY(nextPositionWithoutEvents(m_player.get(), m_player->position(), 3000) > 200);
    m_rec.reset();
    m_player.reset();
}

// A play asked for while the medium loads: as long as the player says it is
// loading, its position is 0, even between two events (the play may already
// have taken effect in the session); from BufferedMedia on it runs.
void tst_PluginPosition::playAskedWhileLoading()
{
    m_player->setMedia(media("sine.mp3"));
    m_player->play();
    QCOMPARE(m_player->mediaStatus(), QMediaPlayer::LoadingMedia);
    QElapsedTimer waited;
    waited.start();
    while (m_player->mediaStatus() == QMediaPlayer::LoadingMedia && waited.elapsed() < kLoadMs) {
        QElapsedTimer reading;
        reading.start();
        while (reading.elapsed() < 2) {
            const qint64 now = m_player->position();
            QVERIFY2(now == 0, qPrintable(QStringLiteral("%1 while loading").arg(now)));
        }
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    }
    QCOMPARE(m_player->mediaStatus(), QMediaPlayer::BufferedMedia);
    QCOMPARE(m_rec->events(), (QStringList{"status:LoadingMedia", "state:PlayingState", "status:BufferedMedia"}));
    QTRY_VERIFY_WITH_TIMEOUT(m_player->position() > 200, 10000);
    const qint64 first = m_player->position();
    QVERIFY(nextPositionWithoutEvents(m_player.get(), first, 3000) > first);
}

QTEST_GUILESS_MAIN(tst_PluginPosition)
#include "tst_plugin_position.moc"
