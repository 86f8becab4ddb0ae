// Engine events: the callback sink, fired from threads of the test as the
// engine does, and their translation into the session's signals.
#include "adaptorharness.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QThread>
#include <QtMultimedia/QMediaMetaData>
#include <QtTest/QtTest>

#include <climits>
#include <vector>

using namespace orvictest;
using S = QOrvicPlayerSession;
using CallBack = playback::SPPlayer::CallBack;

namespace {
const QString kMovie = QStringLiteral("/media/movie.mkv");

// Fires one engine event, named as in the rows of sinkEvents_data().
void fire(CallBack *sink, const QString &event, int a, int b, double rate)
{
    if (event == "durationChanged")
        sink->durationChanged(a);
    else if (event == "positionChanged")
        sink->positionChanged(a);
    else if (event == "stateChanged")
        sink->stateChanged(playback::SPPlayer::state_e(a));
    else if (event == "volumeChanged")
        sink->volumeChanged(a);
    else if (event == "bufferingProgessChanged")
        sink->bufferingProgessChanged(a);
    else if (event == "streamChanged")
        sink->streamChanged(playback::SPPlayer::stream_type_e(a), b);
    else if (event == "seekableChanged")
        sink->seekableChanged(a != 0);
    else if (event == "error")
        sink->error(a);
    else if (event == "speedChanged")
        sink->speedChanged(rate);
    else if (event == "prepared")
        sink->prepared();
    else if (event == "playbackFinish")
        sink->playbackFinish();
    else if (event == "aboutToFinish")
        sink->aboutToFinish();
    else if (event == "mediaAvailableChanged")
        sink->mediaAvailableChanged(playback::SPPlayer::stream_type_e(a), b);
    else
        qFatal("unknown event %s", qPrintable(event));
}

std::vector<unsigned char> resumeBytes()
{
    std::vector<unsigned char> bytes(sizeof(QMediaPlayer::ResumeData));
    for (size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<unsigned char>(i % 251);
    return bytes;
}

// Receives the session's signals on the thread it lives in.
class Receiver : public QObject
{
public:
    explicit Receiver(QOrvicPlayerSession *session)
    {
        connect(session, &S::stateChanged, this, [this](S::PlayerState s) { add(QStringLiteral("stateChanged(%1)").arg(int(s))); });
        connect(session, &S::durationChanged, this, [this](qint64 v) { add(QStringLiteral("durationChanged(%1)").arg(v)); });
        connect(session, &S::error, this, [this](int c, const QString &t) { add(QStringLiteral("error(%1,%2)").arg(c).arg(t)); });
        connect(session, &S::playbackComplete, this, [this]() { add(QStringLiteral("playbackComplete()")); });
        connect(session, &S::metaDataChanged, this, [this](const QString &k, const QVariant &v) {
            add(QStringLiteral("metaDataChanged(%1,%2)").arg(k, v.toString()));
        });
        connect(session, &S::mediaMessageChanged, this, [this](QMediaPlayer::MediaMessage m, QVariant v) {
            if (v.userType() == qMetaTypeId<QMediaPlayer::ResumeData>())
                resume = v.value<QMediaPlayer::ResumeData>();
            add(QStringLiteral("mediaMessageChanged(%1,%2)").arg(int(m)).arg(v.toString()));
        });
    }

    QStringList received;
    QList<QThread *> threads;
    QMediaPlayer::ResumeData resume{};

private:
    void add(const QString &text)
    {
        received.append(text);
        threads.append(QThread::currentThread());
    }
};
} // namespace

class tst_AdaptorEvents : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void sinkEvents_data();
    void sinkEvents();
    void errorTable_data();
    void errorTable();
    void navQueueCallBack_data();
    void navQueueCallBack();
    void subtitleLines_data();
    void subtitleLines();
    void subtitleLineBoundedBySize();
    void subtitleLineWithoutText();
    void resumeData();
    void resumeDataWithoutData();
    void queuedToOwnerThread();
    void callbacksWhileOpening();

private:
    CallBack *sink() const { return h->player()->callBack(); }
    std::unique_ptr<AdaptorHarness> h;
};

void tst_AdaptorEvents::init()
{
    h.reset(new AdaptorHarness);
    h->useMedium(Medium::LocalVideo);
    h->start();
    h->d->setMedia(kMovie);
    h->clear();
}

void tst_AdaptorEvents::cleanup()
{
    QCOMPARE(closeHarness(h), QString());
}

void tst_AdaptorEvents::sinkEvents_data()
{
    QTest::addColumn<QString>("event");
    QTest::addColumn<int>("a");
    QTest::addColumn<int>("b");
    QTest::addColumn<double>("rate");
    QTest::addColumn<QStringList>("lines");
    QTest::addColumn<QStringList>("signalsExpected");

    QTest::newRow("duration") << "durationChanged" << 90000 << 0 << 0.0
        << QStringList({"D/OPSession durationChanged(#):durationChanged:90000 "})
        << QStringList({"durationChanged(90000)"});
    QTest::newRow("position: nothing") << "positionChanged" << 300 << 0 << 0.0
        << QStringList() << QStringList();
    QTest::newRow("state playing") << "stateChanged" << 5 << 0 << 0.0
        << QStringList({"D/OPSession stateChanged(#):stateChanged:5 ", "D/OPSession setState(#):emit state 5"})
        << QStringList({"stateChanged(5)"});
    for (int s : {0, 1, 2, 3, 4, 6, 7, 8}) {
        QTest::addRow("state %d ignored", s) << "stateChanged" << s << 0 << 0.0
            << QStringList({QStringLiteral("D/OPSession stateChanged(#):stateChanged:%1 ").arg(s)}) << QStringList();
    }
    QTest::newRow("volume: log only") << "volumeChanged" << 30 << 0 << 0.0
        << QStringList({"D/OPSession volumeChanged(#):volumeChanged:30 "}) << QStringList();
    QTest::newRow("buffering 40") << "bufferingProgessChanged" << 40 << 0 << 0.0
        << QStringList({"D/OPSession bufferingProgessChanged(#):bufferingProgessChanged:40 "})
        << QStringList({"mediaMessageChanged(0,40)"});
    QTest::newRow("buffering 0") << "bufferingProgessChanged" << 0 << 0 << 0.0
        << QStringList({"D/OPSession bufferingProgessChanged(#):bufferingProgessChanged:0 "})
        << QStringList({"mediaMessageChanged(0,0)"});
    QTest::newRow("buffering -1 dropped") << "bufferingProgessChanged" << -1 << 0 << 0.0
        << QStringList({"D/OPSession bufferingProgessChanged(#):bufferingProgessChanged:-1 "}) << QStringList();
    QTest::newRow("stream: log only") << "streamChanged" << 1 << 2 << 0.0
        << QStringList({"D/OPSession streamChanged(#):streamChanged:1 index:2 "}) << QStringList();
    QTest::newRow("seekable") << "seekableChanged" << 1 << 0 << 0.0
        << QStringList({"D/OPSession seekableChanged(#):seekableChanged:1 "})
        << QStringList({"seekableChanged(true)"});
    QTest::newRow("not seekable") << "seekableChanged" << 0 << 0 << 0.0
        << QStringList({"D/OPSession seekableChanged(#):seekableChanged:0 "})
        << QStringList({"seekableChanged(false)"});
    QTest::newRow("error") << "error" << 1032 << 0 << 0.0
        << QStringList({"D/OPSession error(#):error:1032 "})
        << QStringList({"error(1,This format is not supported due to low memory.)"});
    QTest::newRow("speed") << "speedChanged" << 0 << 0 << 2.0
        << QStringList({"D/OPSession speedChanged(#):speedChanged:2.000000 "})
        << QStringList({"playbackRateChanged(2)"});
    QTest::newRow("prepared: log only") << "prepared" << 0 << 0 << 0.0
        << QStringList({"D/OPSession prepared(#):prepared. "}) << QStringList();
    QTest::newRow("playback finished") << "playbackFinish" << 0 << 0 << 0.0
        << QStringList({"D/OPSession playbackFinish(#):playbackFinish. "})
        << QStringList({"playbackComplete()"});
    QTest::newRow("about to finish: log only") << "aboutToFinish" << 0 << 0 << 0.0
        << QStringList({"D/OPSession aboutToFinish(#):aboutToFinish. "}) << QStringList();
    QTest::newRow("media available: log only") << "mediaAvailableChanged" << 0 << 1 << 0.0
        << QStringList({"D/OPSession mediaAvailableChanged(#):mediaAvailableChanged:0 index:1 "}) << QStringList();
}

void tst_AdaptorEvents::sinkEvents()
{
    QFETCH(QString, event);
    QFETCH(int, a);
    QFETCH(int, b);
    QFETCH(double, rate);
    QFETCH(QStringList, lines);
    QFETCH(QStringList, signalsExpected);
    CallBack *callBack = sink();
    const S::PlayerState before = h->session->state();

    runOnEngineThread([&] { fire(callBack, event, a, b, rate); });

    QCOMPARE(h->signalTexts(), signalsExpected);
    ORVIC_COMPARE_LINES(h->sessionLog(), lines);
    // Signals come on the engine's thread.
    for (const RecordedSignal &s : h->recorder->signalsEmitted())
        QVERIFY(s.thread != QThread::currentThread());
    if (event == "durationChanged")
        QCOMPARE(h->d->mDuration, qint64(a));
    if (event == "seekableChanged")
        QCOMPARE(h->session->isSeekable(), a != 0);
    if (event == "stateChanged")
        QCOMPARE(h->session->state(), a == 5 ? S::Player_Play : before);
    QCOMPARE(h->engine.recorder().calls(), QStringList());
}

void tst_AdaptorEvents::errorTable_data()
{
    QTest::addColumn<int>("no");
    QTest::addColumn<QStringList>("signalsExpected");
    const QStringList unsupported = {"error(2,file format not support)"};
    const QStringList none;

    QTest::newRow("5 failed seek") << 5 << QStringList({"mediaMessageChanged(2,Seek Fail.)"});
    QTest::newRow("1032 low memory") << 1032 << QStringList({"error(1,This format is not supported due to low memory.)"});
    for (int n : {1, 2, 4, 6, 1031, 1033, 2054, 2056, 2329, 2330})
        QTest::addRow("%d unsupported", n) << n << unsupported;
    for (int n : {2055, 2332, 2333})
        QTest::addRow("%d notice", n) << n << QStringList({QStringLiteral("mediaMessageChanged(1,%1)").arg(n)});
    // Repeats the stored availability: the opened movie has video.
    QTest::newRow("2331 video availability") << 2331 << QStringList({"videoAvailableChanged(true)"});
    for (int n : {0, -1, -5, -2055, 2334, 5000, INT_MAX, INT_MIN})
        QTest::addRow("%d unknown", n) << n << none;
}

void tst_AdaptorEvents::errorTable()
{
    QFETCH(int, no);
    QFETCH(QStringList, signalsExpected);
    CallBack *callBack = sink();

    runOnEngineThread([&] { callBack->error(no); });

    QCOMPARE(h->signalTexts(), signalsExpected);
    QStringList lines = {QStringLiteral("D/OPSession error(#):error:%1 ").arg(no)};
    if (signalsExpected.isEmpty())
        lines << QStringLiteral("E/OPSession navQueueCallBack(#):error no:%1").arg(no);
    ORVIC_COMPARE_LINES(h->sessionLog(), lines);
    QCOMPARE(h->session->state(), S::Player_Prepared);
}

void tst_AdaptorEvents::navQueueCallBack_data()
{
    QTest::addColumn<int>("id");
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QStringList>("signalsExpected");

    QTest::newRow("buffering") << int(S::Rsp_BufferingProgress) << QVariant(55)
                               << QStringList({"mediaMessageChanged(0,55)"});
    QTest::newRow("buffering as text") << int(S::Rsp_BufferingProgress) << QVariant("12")
                                       << QStringList({"mediaMessageChanged(0,12)"});
    QTest::newRow("buffering negative") << int(S::Rsp_BufferingProgress) << QVariant(-3) << QStringList();
    QTest::newRow("buffering not a number") << int(S::Rsp_BufferingProgress) << QVariant("abc") << QStringList();
    QTest::newRow("finish") << int(S::Rsp_PlaybackFinish) << QVariant(0) << QStringList({"playbackComplete()"});
    QTest::newRow("duration") << int(S::Rsp_Duration) << QVariant(qlonglong(5000)) << QStringList({"durationChanged(5000)"});
    QTest::newRow("duration negative") << int(S::Rsp_Duration) << QVariant(qlonglong(-5)) << QStringList({"durationChanged(-5)"});
    // Read as an int: a duration beyond its range arrives cut to 32 bits.
    QTest::newRow("duration beyond int") << int(S::Rsp_Duration) << QVariant(qlonglong(5000000000LL))
                                         << QStringList({"durationChanged(705032704)"});
    QTest::newRow("duration not a number") << int(S::Rsp_Duration) << QVariant("x") << QStringList();
    QTest::newRow("position") << int(S::Rsp_Position) << QVariant(100) << QStringList({"positionChanged(100)"});
    QTest::newRow("position zero") << int(S::Rsp_Position) << QVariant(0) << QStringList({"positionChanged(0)"});
    QTest::newRow("position negative") << int(S::Rsp_Position) << QVariant(-1) << QStringList();
    QTest::newRow("position not a number") << int(S::Rsp_Position) << QVariant("x") << QStringList();
    QTest::newRow("seekable") << int(S::Rsp_Seekable) << QVariant(true) << QStringList({"seekableChanged(true)"});
    QTest::newRow("not seekable") << int(S::Rsp_Seekable) << QVariant(false) << QStringList({"seekableChanged(false)"});
    QTest::newRow("state 5") << int(S::Rsp_State) << QVariant(5) << QStringList({"stateChanged(5)"});
    QTest::newRow("state 5 as text") << int(S::Rsp_State) << QVariant("5") << QStringList({"stateChanged(5)"});
    QTest::newRow("state 6") << int(S::Rsp_State) << QVariant(6) << QStringList();
    QTest::newRow("state -1") << int(S::Rsp_State) << QVariant(-1) << QStringList();
    QTest::newRow("speed") << int(S::Rsp_Speed) << QVariant(0.5) << QStringList({"playbackRateChanged(0.5)"});
    QTest::newRow("error 2055") << int(S::Rsp_Error) << QVariant(2055) << QStringList({"mediaMessageChanged(1,2055)"});
    QTest::newRow("error not a number") << int(S::Rsp_Error) << QVariant("x") << QStringList();
    QTest::newRow("id 0") << 0 << QVariant(1) << QStringList();
    QTest::newRow("id 9") << 9 << QVariant(1) << QStringList();
}

void tst_AdaptorEvents::navQueueCallBack()
{
    QFETCH(int, id);
    QFETCH(QVariant, value);
    QFETCH(QStringList, signalsExpected);
    h->d->mDuration = 777;
    h->d->mSeekable = !value.toBool();

    h->d->navQueueCallBack(S::RespondId(id), value);

    QCOMPARE(h->signalTexts(), signalsExpected);
    if (id == S::Rsp_Duration) {
        // Stored even when the value is not a number.
        bool ok = false;
        const int stored = value.toInt(&ok);
        QCOMPARE(h->d->mDuration, qint64(stored));
        if (!ok)
            QCOMPARE(h->d->mDuration, qint64(0));
    } else {
        QCOMPARE(h->d->mDuration, qint64(777));
    }
    if (id == S::Rsp_Seekable)
        QCOMPARE(h->session->isSeekable(), value.toBool());
    // Nothing is logged here but the announcement of a state.
    if (signalsExpected == QStringList({"stateChanged(5)"}))
        ORVIC_COMPARE_LINES(h->sessionLog(), QStringList({"D/OPSession setState(#):emit state 5"}));
    else
        QCOMPARE(h->sessionLog(), QStringList());
}

void tst_AdaptorEvents::subtitleLines_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<int>("type");
    QTest::addColumn<bool>("shown");
    QTest::addColumn<QString>("text");

    QTest::newRow("UTF-8 shown") << QByteArray("Hello") << 1 << true << QStringLiteral("Hello");
    QTest::newRow("UTF-8 hidden") << QByteArray("Hello") << 1 << false << QString();
    QTest::newRow("Latin-1 shown") << QByteArray("caf\xe9") << 0 << true << QStringLiteral("caf\u00e9");
    QTest::newRow("UTF-16LE shown") << QByteArray("H\0i\0\0\0", 6) << 2 << true << QStringLiteral("Hi");
    QTest::newRow("UTF-16BE shown") << QByteArray("\0H\0i\0\0", 6) << 3 << true << QStringLiteral("Hi");
    // A leading byte-order mark is a unit of the line: neither dropped nor a reason to swap.
    QTest::newRow("UTF-16LE, FEFF first") << QByteArray("\xff\xfeH\0i\0\0\0", 8) << 2 << true
                                          << QString(QChar(0xfeff)) + QStringLiteral("Hi");
    QTest::newRow("UTF-16BE, FFFE first") << QByteArray("\xff\xfe\0H\0i\0\0", 8) << 3 << true
                                          << QString(QChar(0xfffe)) + QStringLiteral("Hi");
}

void tst_AdaptorEvents::subtitleLineBoundedBySize()
{
    // The engine tells the line's size: nothing after it is read, also when no
    // end mark follows.
    h->d->setSubtitleOnOff(true);
    h->clear();
    CallBack *callBack = sink();
    std::vector<char> utf16 = {'H', 0, 'i', 0, '!', 0};
    std::vector<char> utf8 = {'H', 'i', '!'};

    runOnEngineThread([&] {
        callBack->subtitleChanged(utf16.data(), 2, 4);
        callBack->subtitleChanged(utf16.data(), 2, 5);
        callBack->subtitleChanged(utf8.data(), 1, 2);
    });

    const QString key = QMediaMetaData::SubTitle;
    QCOMPARE(h->signalTexts(), QStringList({QStringLiteral("metaDataChanged(%1,Hi)").arg(key),
                                            QStringLiteral("metaDataChanged(%1,Hi)").arg(key),
                                            QStringLiteral("metaDataChanged(%1,Hi)").arg(key)}));
}

void tst_AdaptorEvents::subtitleLines()
{
    QFETCH(QByteArray, bytes);
    QFETCH(int, type);
    QFETCH(bool, shown);
    QFETCH(QString, text);
    if (shown)
        h->d->setSubtitleOnOff(true);
    QCOMPARE(h->d->mSubtitleOn, shown);
    h->clear();
    CallBack *callBack = sink();
    QByteArray line = bytes;
    line.append('\0');

    runOnEngineThread([&] { callBack->subtitleChanged(line.data(), char(type), bytes.size()); });

    if (shown)
        QCOMPARE(h->signalTexts(), QStringList({QStringLiteral("metaDataChanged(%1,%2)").arg(QMediaMetaData::SubTitle, text)}));
    else
        QCOMPARE(h->signalTexts(), QStringList());
    QCOMPARE(h->sessionLog(), QStringList());
}

void tst_AdaptorEvents::subtitleLineWithoutText()
{
    h->d->setSubtitleOnOff(true);
    h->clear();
    CallBack *callBack = sink();

    runOnEngineThread([&] { callBack->subtitleChanged(nullptr, 1, 0); });

    QCOMPARE(h->signalTexts(), QStringList());
}

void tst_AdaptorEvents::resumeData()
{
    std::vector<unsigned char> bytes = resumeBytes();
    QSignalSpy spy(h->session.get(), &S::mediaMessageChanged);
    CallBack *callBack = sink();

    // The length the engine passes does not limit the copy: the record has a fixed size.
    runOnEngineThread([&] { callBack->resumeDataChanged(bytes.data(), 16); });
    std::fill(bytes.begin(), bytes.end(), 0);

    QCOMPARE(spy.size(), 1);
    QCOMPARE(int(spy.at(0).at(0).value<QMediaPlayer::MediaMessage>()), 3);
    const QVariant value = spy.at(0).at(1).value<QVariant>();
    QCOMPARE(value.userType(), QMetaType::type("QMediaPlayer::ResumeData"));
    QCOMPARE(QByteArray(QMetaType::typeName(value.userType())), QByteArray("QMediaPlayer::ResumeData"));
    const QMediaPlayer::ResumeData resume = value.value<QMediaPlayer::ResumeData>();
    const std::vector<unsigned char> expected = resumeBytes();
    QVERIFY(std::equal(expected.begin(), expected.end(), resume.data));
    QCOMPARE(h->signalTexts().size(), 1);
    QCOMPARE(h->sessionLog(), QStringList());
}

void tst_AdaptorEvents::resumeDataWithoutData()
{
    CallBack *callBack = sink();
    runOnEngineThread([&] { callBack->resumeDataChanged(nullptr, 4224); });
    QCOMPARE(h->signalTexts(), QStringList());
}

void tst_AdaptorEvents::queuedToOwnerThread()
{
    h->d->setSubtitleOnOff(true);
    h->clear();
    Receiver receiver(h->session.get());
    CallBack *callBack = sink();
    std::vector<unsigned char> bytes = resumeBytes();
    char line[] = "Hello";

    runOnEngineThread([&] {
        callBack->stateChanged(playback::SPPlayer::STATE_PLAYING);
        callBack->durationChanged(120000);
        callBack->bufferingProgessChanged(10);
        callBack->error(5);
        callBack->error(1032);
        callBack->subtitleChanged(line, 1, 5);
        callBack->resumeDataChanged(bytes.data(), int(bytes.size()));
        callBack->playbackFinish();
    });

    const QStringList expected = {
        "stateChanged(5)", "durationChanged(120000)", "mediaMessageChanged(0,10)",
        "mediaMessageChanged(2,Seek Fail.)", "error(1,This format is not supported due to low memory.)",
        "metaDataChanged(SubTitle,Hello)", "mediaMessageChanged(3,)", "playbackComplete()"};
    // Emitted on the engine's thread ...
    QCOMPARE(h->signalTexts(), expected);
    for (const RecordedSignal &s : h->recorder->signalsEmitted())
        QVERIFY(s.thread != QThread::currentThread());
    // ... and queued for the receiver on the owner thread, nothing delivered yet.
    QCOMPARE(receiver.received, QStringList());

    QCoreApplication::processEvents();

    QCOMPARE(receiver.received, expected);
    for (QThread *t : receiver.threads)
        QCOMPARE(t, QThread::currentThread());
    const std::vector<unsigned char> want = resumeBytes();
    QVERIFY(std::equal(want.begin(), want.end(), receiver.resume.data));
    QCOMPARE(h->session->state(), S::Player_Play);
}

void tst_AdaptorEvents::callbacksWhileOpening()
{
    // The open holds the player lock while the engine prepares; callbacks that
    // arrive meanwhile on the engine's threads take no lock and go through.
    h->d->stop();
    ScriptedPlayer *player = h->player();
    CallBack *callBack = sink();
    player->setHook("prepare", [callBack] {
        runOnEngineThread([callBack] {
            callBack->stateChanged(playback::SPPlayer::STATE_PREPARING);
            callBack->durationChanged(120000);
            callBack->seekableChanged(true);
            callBack->bufferingProgessChanged(100);
            callBack->prepared();
        });
    });
    h->clear();

    h->d->setMedia(kMovie);

    QCOMPARE(h->signalTexts(), QStringList({
        "videoAvailableChanged(false)", "audioAvailableChanged(false)",
        "stateChanged(3)", "durationChanged(120000)", "seekableChanged(true)", "mediaMessageChanged(0,100)",
        "stateChanged(4)", QStringLiteral("metadataChanged(%1 keys)").arg(media::localVideoKeys().size()),
        "seekableChanged(true)", "videoAvailableChanged(true)", "audioAvailableChanged(true)",
        "positionChanged(0)", "durationChanged(120000)", "playbackRateChanged(1)"}));
    QCOMPARE(h->session->state(), S::Player_Prepared);
    QVERIFY(h->session->isSeekable());
}

QTEST_GUILESS_MAIN(tst_AdaptorEvents)
#include "tst_adaptorevents.moc"
