// The call path between the host engine player and psserver: answers the
// service gives from stored values on its socket thread keep the order of
// the calls, and callers on several threads at once each get their own
// answer while the events keep theirs.
#include "e2esupport.h"

#include <hostruntime.h>
#include <playback/spplayer.h>
#include <psprotocol.h>
#include <pswire.h>

#include <QtCore/QElapsedTimer>
#include <QtNetwork/QLocalSocket>
#include <QtTest/QtTest>

#include <atomic>
#include <memory>
#include <thread>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace orvice2e;
using playback::SPPlayer;

namespace {

struct PlayerDeleter
{
    void operator()(SPPlayer *player) const { SPPlayer::destroy(player); }
};
using PlayerPtr = std::unique_ptr<SPPlayer, PlayerDeleter>;

// One frame as text: "reply <sequence> <result> <output bytes>" or
// "event <number> <arguments>".
QString describe(const psprotocol::Frame &frame)
{
    if (frame.kind == pswire::FrameReply)
        return QStringLiteral("reply %1 %2 %3")
                .arg(frame.sequence)
                .arg(frame.result.toString(), QString::fromLatin1(frame.output.toHex()));
    QStringList arguments;
    for (const QVariant &argument : frame.arguments)
        arguments.append(argument.toString());
    return QStringLiteral("event %1 %2").arg(frame.code).arg(arguments.join(QLatin1Char(',')));
}

// A stand-in for psserver on the service socket of the current runtime
// directory, on a thread of its own: it answers Open at once, holds the
// answer to Play until it has been pinged `pingsBeforeAnswer` times, and
// answers pings only when `answerPings`.
class FakeService
{
public:
    FakeService(int pingsBeforeAnswer, bool answerPings)
        : m_pingsBeforeAnswer(pingsBeforeAnswer), m_answerPings(answerPings)
    {
        std::string error;
        m_listener = hostruntime::listenOnServiceSocket(hostruntime::runtimeDirectory(), &error);
        if (m_listener >= 0)
            m_thread = std::thread([this] { serve(); });
    }
    ~FakeService()
    {
        m_done = true;
        if (m_thread.joinable())
            m_thread.join();
        if (m_listener >= 0)
            ::close(m_listener);
    }
    bool isListening() const { return m_listener >= 0; }
    int pings() const { return m_pings; }

private:
    static void write(int fd, const psprotocol::Frame &frame)
    {
        const QByteArray bytes = psprotocol::encode(frame);
        if (::send(fd, bytes.constData(), size_t(bytes.size()), MSG_NOSIGNAL) != bytes.size())
            qWarning("fake service: short write");
    }

    void serve()
    {
        pollfd listening = {m_listener, POLLIN, 0};
        while (!m_done && ::poll(&listening, 1, 50) <= 0) {
        }
        const int fd = m_done ? -1 : ::accept(m_listener, nullptr, nullptr);
        if (fd < 0)
            return;
        psprotocol::FrameReader reader;
        quint32 held = 0;
        while (!m_done) {
            pollfd in = {fd, POLLIN, 0};
            if (::poll(&in, 1, 50) <= 0)
                continue;
            char chunk[4096];
            const ssize_t n = ::recv(fd, chunk, sizeof chunk, 0);
            if (n <= 0)
                break;
            bool ok = true;
            for (const psprotocol::Frame &frame : reader.read(QByteArray(chunk, int(n)), &ok)) {
                if (frame.kind == pswire::FramePing) {
                    ++m_pings;
                    if (m_answerPings)
                        write(fd, psprotocol::pong(frame.sequence));
                } else if (frame.kind == pswire::FrameCall && frame.code == pswire::OpOpen) {
                    write(fd, psprotocol::reply(frame.sequence, 100));
                } else if (frame.kind == pswire::FrameCall) {
                    held = frame.sequence;
                }
                if (held && m_pings >= m_pingsBeforeAnswer) {
                    write(fd, psprotocol::reply(held, 0));
                    held = 0;
                }
            }
        }
        ::close(fd);
    }

    const int m_pingsBeforeAnswer;
    const bool m_answerPings;
    int m_listener = -1;
    std::atomic<bool> m_done{false};
    std::atomic<int> m_pings{0};
    std::thread m_thread;
};

} // namespace

class tst_E2eServiceCalls : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void storedAnswersKeepCallOrder();
    void callersOnManyThreadsGetTheirOwnAnswers();
    void slowAnswerOfALiveService_data();
    void slowAnswerOfALiveService();

private:
    std::unique_ptr<RuntimeDir> m_runtime;
};

void tst_E2eServiceCalls::init()
{
    m_runtime.reset(new RuntimeDir);
    QVERIFY(m_runtime->isValid());
    QVERIFY2(startServiceAndWait(), m_runtime->daemonLog().constData());
}

void tst_E2eServiceCalls::cleanup()
{
    if (!m_runtime)
        return;
    QCOMPARE(stopService(), 0);
    const QByteArray log = m_runtime->daemonLog();
    QVERIFY2(!hasSanitizerReport(log), log.constData());
    m_runtime.reset();
}

// Calls sent in one go, none waiting for the one before: the getters and the
// volume command the socket thread answers itself come after the answers
// (and events) of the engine calls sent before them, never ahead.
void tst_E2eServiceCalls::storedAnswersKeepCallOrder()
{
    const int fd = hostruntime::connectToServiceSocket(hostruntime::runtimeDirectory(), 3000);
    QVERIFY(fd >= 0);
    QLocalSocket socket;
    QVERIFY(socket.setSocketDescriptor(fd, QLocalSocket::ConnectedState));

    const QString url = mediaPath(QStringLiteral("sine.ogg"));
    QByteArray bytes;
    quint32 sequence = 0;
    for (const auto &call : QVector<QPair<pswire::Operation, QVariantList>>{
                 {pswire::OpOpen, {QStringLiteral("order")}},
                 {pswire::OpGetState, {}},
                 {pswire::OpSetUrl, {url}},
                 {pswire::OpGetState, {}},
                 {pswire::OpSetStreamVolume, {30}},
                 {pswire::OpSetStreamVolume, {101}},
                 {pswire::OpGetVolume, {}},
                 {pswire::OpGetParameter, {QByteArray("mPlayer"), QByteArray("get-audio-onoff"), 4}},
                 {pswire::OpReset, {}},
                 {pswire::OpGetState, {}},
                 {pswire::OpGetVolume, {}}})
        bytes += psprotocol::encode(psprotocol::call(++sequence, call.first, call.second));
    socket.write(bytes);
    QVERIFY(socket.flush());

    QStringList seen;
    psprotocol::FrameReader reader;
    QElapsedTimer clock;
    clock.start();
    while (!seen.contains(QStringLiteral("reply 11 30 ")) && clock.elapsed() < 5000) {
        socket.waitForReadyRead(100);
        bool ok = true;
        for (const psprotocol::Frame &frame : reader.read(&socket, &ok))
            seen.append(describe(frame));
        QVERIFY(ok);
    }
    const QString state = QString::number(pswire::EvStateChanged);
    const QString volume = QString::number(pswire::EvVolumeChanged);
    QCOMPARE(seen, QStringList({
            QStringLiteral("reply 1 100 "),
            QStringLiteral("reply 2 0 "),
            QStringLiteral("event %1 1").arg(state),
            QStringLiteral("reply 3 0 "),
            QStringLiteral("reply 4 1 "),
            QStringLiteral("event %1 30").arg(volume),
            QStringLiteral("reply 5 0 "),
            QStringLiteral("reply 6 -22 "),
            QStringLiteral("reply 7 30 "),
            QStringLiteral("reply 8 0 01000000"),
            QStringLiteral("event %1 0").arg(state),
            QStringLiteral("reply 9 0 "),
            QStringLiteral("reply 10 0 "),
            QStringLiteral("reply 11 30 "),
    }));
}

// Four threads call at once on one player, each a different operation with
// an answer known in advance: some answered by the service's socket thread,
// some by its engine thread. Every answer must be the caller's own, and the
// callbacks keep coming in order meanwhile.
void tst_E2eServiceCalls::callersOnManyThreadsGetTheirOwnAnswers()
{
    RecordingCallBack events;
    PlayerPtr player(SPPlayer::create("Qspmediaplayer", &events));
    QCOMPARE(player->setUrl(mediaPath(QStringLiteral("av.mp4")).toUtf8().constData()), 0);
    QCOMPARE(player->prepare(0, 0), 0);
    QVERIFY(events.waitFor(QStringLiteral("prepared()")));
    QCOMPARE(player->setStreamVolume(70), 0);
    QVERIFY(events.waitFor(QStringLiteral("volumeChanged(70)")));

    const int kCalls = 300;
    std::atomic<int> wrong{0};
    std::atomic<int> done{0};
    const auto check = [&](const std::function<bool()> &call) {
        return std::thread([&, call] {
            for (int i = 0; i < kCalls; ++i) {
                if (!call())
                    ++wrong;
            }
            ++done;
        });
    };
    std::thread threads[] = {
        check([&] { return player->getState() == SPPlayer::STATE_PREPARED; }),
        check([&] { return player->getVolume() == 70; }),
        check([&] {
            int count = -1;
            return player->getParameter("mPlayer", "get-audio-count", &count, int(sizeof count)) == 0 && count == 2;
        }),
        check([&] { return player->getCurrentStream(SPPlayer::STREAM_AUDIO) == 0; }),
    };
    for (std::thread &thread : threads)
        thread.join();
    QCOMPARE(done.load(), 4);
    QCOMPARE(wrong.load(), 0);

    // The link still carries commands and their callbacks, in order.
    events.clear();
    QCOMPARE(player->setStreamVolume(20), 0);
    QCOMPARE(player->play(), 0);
    QVERIFY(events.waitFor(QStringLiteral("stateChanged(5)")));
    const QStringList seen = events.events();
    const int volumeAt = seen.indexOf(QStringLiteral("volumeChanged(20)"));
    QVERIFY2(volumeAt >= 0 && volumeAt < seen.indexOf(QStringLiteral("stateChanged(5)")),
             qPrintable(seen.join(QLatin1Char(' '))));
}

// A call that the service takes long to answer: while it waits the client
// pings the service, and a service that answers the pings is alive however
// long the answer takes (here: after six pings, beyond the silence limit);
// one that answers nothing is found unresponsive.
void tst_E2eServiceCalls::slowAnswerOfALiveService_data()
{
    QTest::addColumn<bool>("answerPings");
    QTest::addColumn<int>("result");
    QTest::newRow("pings answered") << true << 0;
    QTest::newRow("silent") << false << int(pswire::ResultServiceUnresponsive);
}

void tst_E2eServiceCalls::slowAnswerOfALiveService()
{
    QFETCH(bool, answerPings);
    QFETCH(int, result);
    // A runtime directory of its own, where no psserver listens.
    RuntimeDir runtime;
    QVERIFY(runtime.isValid());
    const int kPings = 6;
    const qint64 kSilenceLimitMs = 450; // of a waiting call (psserver/README.md)
    FakeService service(kPings, answerPings);
    QVERIFY(service.isListening());
    RecordingCallBack events;
    PlayerPtr player(SPPlayer::create("Qspmediaplayer", &events));

    QElapsedTimer clock;
    clock.start();
    QCOMPARE(player->play(), result);
    if (answerPings) {
        QVERIFY(service.pings() >= kPings);
        QVERIFY(clock.elapsed() >= kSilenceLimitMs);
    }
}

QTEST_GUILESS_MAIN(tst_E2eServiceCalls)
#include "tst_e2e_servicecalls.moc"
