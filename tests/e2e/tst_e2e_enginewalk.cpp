// Random walks of engine calls on the real psserver, with nothing waited for
// between calls: play, pause, seeks, rates (backwards too), switches of the
// audio and subtitle streams, outputs and subtitles on and off, volume, and
// pauses of 0 to 300 ms, on a medium with two audio and two subtitle
// streams. No call may time out or find the service unresponsive, and the
// player must still play at the end.
//
// The suite runs the defaults; scripts/enginewalk.sh runs more and longer
// walks. ORVIC_E2E_WALK_STEPS sets the calls of a walk (default 60) and
// ORVIC_E2E_WALK_SEEDS the number of walks (default 2; seeds 1, 2, ...). A failing walk names its seed and its last
// calls; the same seed repeats the same calls, though not their timing.
#include "playerfixture.h"

#include <pswire.h>

#include <QtCore/QRandomGenerator>
#include <QtTest/QtTest>

using namespace orvice2e;
using playback::SPPlayer;

namespace {

int setting(const char *name, int fallback)
{
    bool ok = false;
    const int value = qEnvironmentVariableIntValue(name, &ok);
    return ok && value > 0 ? value : fallback;
}

// The calls a failure shows.
const int kCallsShown = 12;
const int kLongestPauseMs = 300;

} // namespace

class tst_E2eEngineWalk : public PlayerTestBase
{
    Q_OBJECT

private Q_SLOTS:
    void walk_data();
    void walk();

private:
    // One call chosen by `rng`; its name and result go to `calls`.
    int step(QRandomGenerator &rng, QStringList *calls);
};

void tst_E2eEngineWalk::walk_data()
{
    QTest::addColumn<quint32>("seed");
    const int seeds = setting("ORVIC_E2E_WALK_SEEDS", 2);
    for (int seed = 1; seed <= seeds; ++seed)
        QTest::addRow("seed %d", seed) << quint32(seed);
}

int tst_E2eEngineWalk::step(QRandomGenerator &rng, QStringList *calls)
{
    static const double rates[] = {1.0, 2.0, 0.5, -1.0, 4.0};
    QString call;
    int result = 0;
    const int op = rng.bounded(12);
    switch (op) {
    case 0:
        call = QStringLiteral("play");
        result = m_player->play();
        break;
    case 1:
        call = QStringLiteral("pause");
        result = m_player->pause();
        break;
    case 2: {
        const int to = rng.bounded(5500);
        call = QStringLiteral("seekTo(%1)").arg(to);
        result = m_player->seekTo(to);
        break;
    }
    case 3: {
        const double rate = rates[rng.bounded(int(sizeof rates / sizeof *rates))];
        call = QStringLiteral("setSpeed(%1)").arg(rate);
        result = m_player->setSpeed(rate);
        break;
    }
    case 4:
    case 5: {
        // The audio and the subtitle streams: two of each.
        const bool audio = op == 4;
        const int index = rng.bounded(2);
        call = QStringLiteral("%1 stream %2").arg(audio ? "audio" : "subtitle").arg(index);
        result = m_player->changeStream(audio ? SPPlayer::STREAM_AUDIO : SPPlayer::STREAM_SUBTITLE, index);
        break;
    }
    case 6:
    case 7:
    case 8: {
        static const struct
        {
            const char *name;
            const char *target;
            const char *key;
        } switches[] = {{"video", "mDecoder", "set-video-onoff"},
                        {"audio", "mDecoder", "set-audio-onoff"},
                        {"subtitles", "mPlayer", "set-subtitle-onoff"}};
        const auto &onOff = switches[op - 6];
        const bool on = rng.bounded(2);
        call = QStringLiteral("%1 %2").arg(QLatin1String(onOff.name)).arg(on);
        result = setFlag(m_player.get(), onOff.target, onOff.key, on);
        break;
    }
    case 9: {
        const int volume = rng.bounded(101);
        call = QStringLiteral("volume %1").arg(volume);
        result = m_player->setStreamVolume(volume);
        break;
    }
    case 10:
        call = QStringLiteral("getPosition");
        result = m_player->getPosition() < 0 ? -1 : 0;
        break;
    default: {
        const int ms = rng.bounded(kLongestPauseMs + 1);
        call = QStringLiteral("pause of %1 ms").arg(ms);
        QTest::qWait(ms);
        break;
    }
    }
    calls->append(QStringLiteral("%1 = %2").arg(call).arg(result));
    return result;
}

void tst_E2eEngineWalk::walk()
{
    QFETCH(quint32, seed);
    const int steps = setting("ORVIC_E2E_WALK_STEPS", 60);
    m_player = open(local("twosubs.mp4"));
    QVERIFY(m_player);
    QRandomGenerator rng(seed);
    QStringList calls;
    for (int i = 0; i < steps; ++i) {
        const int result = step(rng, &calls);
        // Refusals (a rate the medium cannot play, a state that does not
        // allow the call) are answers; a call that got none is the failure.
        const bool answered = result != pswire::ResultTimedOut && result != pswire::ResultServiceUnresponsive
                && result != pswire::ResultServiceUnavailable;
        QVERIFY2(answered, qPrintable(QStringLiteral("seed %1, call %2 of %3: %4").arg(seed).arg(i + 1).arg(steps)
                                              .arg(calls.mid(qMax(0, calls.size() - kCallsShown)).join(QStringLiteral(", ")))));
    }
    // Whatever the walk left, the player plays on from a seek.
    QCOMPARE(m_player->setSpeed(1.0), 0);
    QCOMPARE(m_player->seekTo(1000), 0);
    QCOMPARE(m_player->play(), 0);
    QTRY_VERIFY_WITH_TIMEOUT(m_player->getPosition() >= 1300, 3000);
    QCOMPARE(m_player->getState(), int(SPPlayer::STATE_PLAYING));
}

QTEST_GUILESS_MAIN(tst_E2eEngineWalk)
#include "tst_e2e_enginewalk.moc"
