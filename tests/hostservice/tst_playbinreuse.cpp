// Playbins kept from ended pipelines for the next one: a kept playbin gives
// the next medium exactly what a new one gives, one that failed is never
// kept, and no more than the pool's capacity are kept.
#include <playbinengine.h>
#include <playbinpool.h>
#include <pswire.h>

#include <QtCore/QDir>
#include <QtCore/QFileInfo>
#include <QtTest/QSignalSpy>
#include <QtTest/QtTest>

#include <memory>

using playback::SPPlayer;

namespace {

const int kAnswerWaitMs = 10000;

// One engine on the test's thread, driven call by call as the service's
// socket thread drives it, with every event it sends recorded.
class EngineRun
{
public:
    EngineRun()
        : engine(new PlaybinEngine(SinkConfig())),
          replies(engine.get(), &PlaybinEngine::replyReady),
          events(engine.get(), &PlaybinEngine::eventReady)
    {
    }

    // The answer of one call, waited for when it comes later (a preparation).
    QVariant call(quint32 operation, const QVariantList &arguments = QVariantList())
    {
        const quint32 sequence = ++m_sequence;
        engine->handleCall(sequence, operation, arguments);
        for (;;) {
            for (int i = m_repliesSeen; i < replies.size(); ++i) {
                if (replies.at(i).at(0).toUInt() == sequence) {
                    m_repliesSeen = i + 1;
                    return replies.at(i).at(1);
                }
            }
            if (!replies.wait(kAnswerWaitMs))
                return QVariant(QStringLiteral("no answer"));
        }
    }

    QByteArray parameter(const char *key)
    {
        engine->handleCall(++m_sequence, pswire::OpGetParameter, {0, QByteArray(key)});
        m_repliesSeen = replies.size();
        return replies.isEmpty() ? QByteArray() : replies.last().at(2).toByteArray();
    }

    // Waits until the engine has sent `event` (since the last takeEvents()).
    bool waitForEvent(quint32 event)
    {
        const auto sent = [&] {
            for (const QList<QVariant> &e : qAsConst(events)) {
                if (e.at(0).toUInt() == event)
                    return true;
            }
            return false;
        };
        return QTest::qWaitFor(sent, kAnswerWaitMs);
    }

    // Events since the last call of this, as "event: arguments".
    QStringList takeEvents()
    {
        QStringList taken;
        for (const QList<QVariant> &event : qAsConst(events)) {
            QStringList arguments;
            for (const QVariant &argument : event.at(1).toList())
                arguments << argument.toString();
            taken << QStringLiteral("%1: %2").arg(event.at(0).toUInt()).arg(arguments.join(QLatin1Char(',')));
        }
        events.clear();
        return taken;
    }

    // What the engine tells of the prepared medium, asked the way a client asks.
    QStringList describe()
    {
        QStringList answers;
        for (const char *key : {"get-video-count", "get-audio-count", "get-subtitle-count", "get-subtitle-onoff",
                                "get-video-onoff", "get-audio-onoff"})
            answers << QStringLiteral("%1=%2").arg(QLatin1String(key), QString::fromLatin1(parameter(key).toHex()));
        answers << QStringLiteral("state=%1").arg(call(pswire::OpGetState).toInt())
                << QStringLiteral("duration=%1").arg(call(pswire::OpGetDuration).toLongLong())
                << QStringLiteral("speed=%1").arg(call(pswire::OpGetSpeed).toDouble())
                << QStringLiteral("volume=%1").arg(call(pswire::OpGetVolume).toInt())
                << QStringLiteral("trick=%1").arg(call(pswire::OpIsTrickPlaySupported).toBool())
                << QStringLiteral("audio stream=%1").arg(call(pswire::OpGetCurrentStream, {int(SPPlayer::STREAM_AUDIO)}).toInt())
                << QStringLiteral("video stream=%1").arg(call(pswire::OpGetCurrentStream, {int(SPPlayer::STREAM_VIDEO)}).toInt());
        return answers;
    }

    std::unique_ptr<PlaybinEngine> engine;
    QSignalSpy replies;
    QSignalSpy events;

private:
    quint32 m_sequence = 0;
    int m_repliesSeen = 0;
};

struct Opening
{
    QVariant urlAnswer;
    QVariant prepareAnswer;
    QStringList events;
    QStringList description;
};

Opening openOn(EngineRun &run, const QString &path)
{
    Opening opening;
    run.takeEvents();
    opening.urlAnswer = run.call(pswire::OpSetUrl, {path});
    opening.prepareAnswer = run.call(pswire::OpPrepare);
    opening.events = run.takeEvents();
    opening.description = run.describe();
    return opening;
}

} // namespace

class tst_PlaybinReuse : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init() { playbinpool::clear(); }
    void cleanupTestCase() { playbinpool::clear(); }
    void keptPlaybinCarriesNothingOver_data();
    void keptPlaybinCarriesNothingOver();
    void failedPlaybinIsNotKept_data();
    void failedPlaybinIsNotKept();
    void nextMediumOfAPlayerOnItsOwnPlaybin();
    void playbinLeftInPrerollIsNotKept();
    void keptPlaybinsAreBounded();

private:
    QString media(const char *name) const { return m_media.absoluteFilePath(QLatin1String(name)); }
    QDir m_media;
};

void tst_PlaybinReuse::initTestCase()
{
    gst_init(nullptr, nullptr);
    const QByteArray dir = qgetenv("ORVIC_E2E_MEDIA_DIR");
    QVERIFY2(!dir.isEmpty(), "ORVIC_E2E_MEDIA_DIR is not set");
    m_media = QDir(QFileInfo(QString::fromLocal8Bit(dir)).absoluteFilePath());
    for (const char *name : {"av.mp4", "av.ts", "sine.mp3", "sine.ogg", "cues.srt", "empty.mp4", "notmedia.mp3"})
        QVERIFY2(QFileInfo(media(name)).isFile(), name);
}

void tst_PlaybinReuse::keptPlaybinCarriesNothingOver_data()
{
    QTest::addColumn<QString>("next");
    QTest::newRow("the same movie") << QStringLiteral("av.mp4");
    QTest::newRow("another container") << QStringLiteral("av.ts");
    QTest::newRow("audio only") << QStringLiteral("sine.mp3");
    QTest::newRow("Ogg") << QStringLiteral("sine.ogg");
}

void tst_PlaybinReuse::keptPlaybinCarriesNothingOver()
{
    QFETCH(QString, next);
    const QString nextPath = m_media.absoluteFilePath(next);

    // What a new playbin gives.
    Opening fresh;
    {
        EngineRun run;
        fresh = openOn(run, nextPath);
    }
    playbinpool::clear();
    QCOMPARE(fresh.urlAnswer.toInt(), int(pswire::ResultOk));
    QCOMPARE(fresh.prepareAnswer.toInt(), int(pswire::ResultOk));

    // A player that changed everything it can on the movie, with subtitles
    // from a file, then went.
    {
        EngineRun run;
        QCOMPARE(run.call(pswire::OpSetUrl, {media("av.mp4")}).toInt(), int(pswire::ResultOk));
        QCOMPARE(run.call(pswire::OpSetSubUrl, {media("cues.srt")}).toInt(), int(pswire::ResultOk));
        QCOMPARE(run.call(pswire::OpPrepare).toInt(), int(pswire::ResultOk));
        // The switch first: the rate's flushing seek then comes while the
        // sink holds its preroll with the former stream's data.
        QCOMPARE(run.call(pswire::OpChangeStream, {int(SPPlayer::STREAM_AUDIO), 1}).toInt(), int(pswire::ResultOk));
        QCOMPARE(run.call(pswire::OpSetSpeed, {2.0}).toInt(), int(pswire::ResultOk));
        // Told once the seek has settled: the playbin is not left in a preroll.
        QVERIFY(run.waitForEvent(pswire::EvSpeedChanged));
        QCOMPARE(run.call(pswire::OpSetStreamVolume, {30}).toInt(), int(pswire::ResultOk));
        QCOMPARE(run.call(pswire::OpSetParameter, {0, QByteArray("set-audio-onoff"), QByteArray(1, '\0')}).toInt(),
                 int(pswire::ResultOk));
        QCOMPARE(run.call(pswire::OpSetParameter, {0, QByteArray("set-subtitle-onoff"), QByteArray("1")}).toInt(),
                 int(pswire::ResultOk));
        QCOMPARE(run.call(pswire::OpGetCurrentStream, {int(SPPlayer::STREAM_AUDIO)}).toInt(), 1);
    }
    QCOMPARE(playbinpool::size(), 1);

    EngineRun run;
    QCOMPARE(playbinpool::size(), 0); // the new engine took the kept playbin
    const Opening reused = openOn(run, nextPath);
    QCOMPARE(reused.urlAnswer, fresh.urlAnswer);
    QCOMPARE(reused.prepareAnswer, fresh.prepareAnswer);
    QCOMPARE(reused.events, fresh.events);
    QCOMPARE(reused.description, fresh.description);
}

void tst_PlaybinReuse::failedPlaybinIsNotKept_data()
{
    QTest::addColumn<QString>("broken");
    QTest::newRow("empty file") << QStringLiteral("empty.mp4");
    QTest::newRow("not a medium") << QStringLiteral("notmedia.mp3");
}

void tst_PlaybinReuse::failedPlaybinIsNotKept()
{
    QFETCH(QString, broken);
    Opening fresh;
    {
        EngineRun run;
        fresh = openOn(run, media("av.mp4"));
    }
    playbinpool::clear();
    {
        EngineRun run;
        QCOMPARE(run.call(pswire::OpSetUrl, {m_media.absoluteFilePath(broken)}).toInt(), int(pswire::ResultOk));
        const QVariant prepared = run.call(pswire::OpPrepare);
        QVERIFY2(prepared.toInt() != int(pswire::ResultOk), qPrintable(prepared.toString()));
        QCOMPARE(run.call(pswire::OpGetState).toInt(), int(SPPlayer::STATE_ERROR));
    }
    QCOMPARE(playbinpool::size(), 0);
    // The next player opens as on a new playbin.
    EngineRun run;
    const Opening next = openOn(run, media("av.mp4"));
    QCOMPARE(next.prepareAnswer.toInt(), int(pswire::ResultOk));
    QCOMPARE(next.events, fresh.events);
    QCOMPARE(next.description, fresh.description);
}

// A player's next medium: the playbin of the one before goes back to the
// pool and straight out again; the failure of the one before stays with it.
void tst_PlaybinReuse::nextMediumOfAPlayerOnItsOwnPlaybin()
{
    Opening fresh;
    {
        EngineRun run;
        fresh = openOn(run, media("sine.mp3"));
    }
    playbinpool::clear();

    EngineRun run;
    QCOMPARE(openOn(run, media("av.mp4")).prepareAnswer.toInt(), int(pswire::ResultOk));
    QCOMPARE(run.call(pswire::OpPlay).toInt(), int(pswire::ResultOk));
    const Opening second = openOn(run, media("sine.mp3"));
    QCOMPARE(playbinpool::size(), 0);
    QCOMPARE(second.prepareAnswer, fresh.prepareAnswer);
    QCOMPARE(second.description, fresh.description);
    // A stopped medium announces its stop first; from the new URL on, the
    // same as on a new playbin.
    QVERIFY(second.events.size() >= fresh.events.size());
    QCOMPARE(second.events.mid(second.events.size() - fresh.events.size()), fresh.events);

    QCOMPARE(openOn(run, media("empty.mp4")).prepareAnswer.toInt() == int(pswire::ResultOk), false);
    const Opening afterFailure = openOn(run, media("sine.mp3"));
    QCOMPARE(playbinpool::size(), 0);
    QCOMPARE(afterFailure.prepareAnswer, fresh.prepareAnswer);
    QCOMPARE(afterFailure.description, fresh.description);
}

// A player that goes while its medium prerolls: the preroll's end is still
// queued for the engine (its event loop does not run here) when it ends.
void tst_PlaybinReuse::playbinLeftInPrerollIsNotKept()
{
    {
        EngineRun run;
        QCOMPARE(run.call(pswire::OpSetUrl, {media("av.mp4")}).toInt(), int(pswire::ResultOk));
        const int answersBefore = run.replies.size();
        run.engine->handleCall(1000, pswire::OpPrepare, {});
        QCOMPARE(run.replies.size(), answersBefore); // not prepared yet
    }
    QCOMPARE(playbinpool::size(), 0);
    // The same, prepared to the end, is kept.
    {
        EngineRun run;
        QCOMPARE(openOn(run, media("av.mp4")).prepareAnswer.toInt(), int(pswire::ResultOk));
    }
    QCOMPARE(playbinpool::size(), 1);
}

void tst_PlaybinReuse::keptPlaybinsAreBounded()
{
    {
        std::vector<std::unique_ptr<EngineRun>> runs;
        for (int i = 0; i < playbinpool::kCapacity + 2; ++i) {
            runs.push_back(std::make_unique<EngineRun>());
            QCOMPARE(openOn(*runs.back(), media("sine.ogg")).prepareAnswer.toInt(), int(pswire::ResultOk));
        }
        QCOMPARE(playbinpool::size(), 0);
    }
    QCOMPARE(playbinpool::size(), playbinpool::kCapacity);
}

QTEST_GUILESS_MAIN(tst_PlaybinReuse)
#include "tst_playbinreuse.moc"
