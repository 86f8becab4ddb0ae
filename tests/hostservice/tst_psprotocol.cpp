// Frames of the psserver socket: round trips, frames split across reads,
// framing violations, and the byte layout of the ping that the property
// service writes without Qt.
#include <psprotocol.h>

#include <QtCore/QBuffer>
#include <QtCore/QDataStream>
#include <QtCore/QStringList>
#include <QtTest/QtTest>

#include <functional>

using psprotocol::Frame;
Q_DECLARE_METATYPE(psprotocol::Frame)

class tst_PsProtocol : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void roundTrip_data();
    void roundTrip();
    void framesSplitAcrossReads();
    void pingLayoutIsFixed();
    void brokenFraming_data();
    void brokenFraming();
    void foreignValuesRefused_data();
    void foreignValuesRefused();
};

namespace {
QList<Frame> readAll(const QByteArray &bytes, bool *ok)
{
    QByteArray copy = bytes;
    QBuffer device(&copy);
    device.open(QIODevice::ReadOnly);
    psprotocol::FrameReader reader;
    return reader.read(&device, ok);
}
} // namespace

void tst_PsProtocol::roundTrip_data()
{
    QTest::addColumn<Frame>("frame");
    QTest::newRow("ping") << psprotocol::ping(7);
    QTest::newRow("pong") << psprotocol::pong(7);
    QTest::newRow("call") << psprotocol::call(3, pswire::OpSeekTo, {qint64(123456789012)});
    QTest::newRow("call with bytes")
            << psprotocol::call(4, pswire::OpSetParameter, {QByteArray("mPlayer"), QByteArray("k"), QByteArray(1, '\1')});
    QTest::newRow("reply") << psprotocol::reply(9, -112, QByteArray("en"));
    QTest::newRow("reply double") << psprotocol::reply(10, 2.5);
    QTest::newRow("event") << psprotocol::event(pswire::EvSubtitleChanged, {QByteArray("Zweite Zeile äöü"), 1});
}

void tst_PsProtocol::roundTrip()
{
    QFETCH(Frame, frame);
    bool ok = false;
    const QList<Frame> frames = readAll(psprotocol::encode(frame), &ok);
    QVERIFY(ok);
    QCOMPARE(frames.size(), 1);
    const Frame &back = frames.first();
    QCOMPARE(back.kind, frame.kind);
    QCOMPARE(back.sequence, frame.sequence);
    QCOMPARE(back.code, frame.code);
    QCOMPARE(back.arguments, frame.arguments);
    QCOMPARE(back.result, frame.result);
    QCOMPARE(back.output, frame.output);
}

void tst_PsProtocol::framesSplitAcrossReads()
{
    const QByteArray bytes = psprotocol::encode(psprotocol::call(1, pswire::OpPlay, {}))
            + psprotocol::encode(psprotocol::event(pswire::EvStateChanged, {5}))
            + psprotocol::encode(psprotocol::pong(2));
    QByteArray stream;
    QBuffer device(&stream);
    device.open(QIODevice::ReadWrite);
    psprotocol::FrameReader reader;
    QList<Frame> frames;
    bool ok = true;
    // One byte at a time: every partial frame waits for the rest.
    for (char byte : bytes) {
        const qint64 at = device.pos();
        device.seek(device.size());
        device.write(&byte, 1);
        device.seek(at);
        frames += reader.read(&device, &ok);
        QVERIFY(ok);
    }
    QCOMPARE(frames.size(), 3);
    QCOMPARE(frames.at(0).code, quint32(pswire::OpPlay));
    QCOMPARE(frames.at(1).arguments, QVariantList({5}));
    QCOMPARE(frames.at(2).kind, quint32(pswire::FramePong));
}

// The property service sends these twelve bytes and expects the pong's.
void tst_PsProtocol::pingLayoutIsFixed()
{
    QCOMPARE(psprotocol::encode(psprotocol::ping(1)),
             QByteArray::fromHex("00000008" "00000001" "00000001"));
    QCOMPARE(psprotocol::encode(psprotocol::pong(1)),
             QByteArray::fromHex("00000008" "00000002" "00000001"));
}

void tst_PsProtocol::brokenFraming_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::newRow("too large") << QByteArray::fromHex("7fffffff00000001");
    QTest::newRow("too small") << QByteArray::fromHex("00000004" "00000001");
    QTest::newRow("truncated fields") << QByteArray::fromHex("00000009" "00000003" "00000001" "00");
}

void tst_PsProtocol::brokenFraming()
{
    QFETCH(QByteArray, bytes);
    bool ok = true;
    readAll(bytes, &ok);
    QVERIFY(!ok);
}

namespace {
// A whole frame around `fields` (after kind and sequence).
QByteArray framed(quint32 kind, const QByteArray &fields)
{
    QByteArray payload;
    QDataStream out(&payload, QIODevice::WriteOnly);
    out.setVersion(QDataStream::Qt_5_15);
    out << kind << quint32(7);
    payload += fields;
    QByteArray bytes;
    QDataStream f(&bytes, QIODevice::WriteOnly);
    f.setVersion(QDataStream::Qt_5_15);
    f << payload;
    return bytes;
}

QByteArray streamed(const std::function<void(QDataStream &)> &write)
{
    QByteArray bytes;
    QDataStream out(&bytes, QIODevice::WriteOnly);
    out.setVersion(QDataStream::Qt_5_15);
    write(out);
    return bytes;
}
} // namespace

// Values no engine operation or event carries: the peer is dropped before
// anything is built from them (a huge count is never allocated for).
void tst_PsProtocol::foreignValuesRefused_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::newRow("call with a list count beyond the frame")
        << framed(pswire::FrameCall, QByteArray::fromHex("00000005" "7700ffff" "00000002" "00" "00000001"));
    QTest::newRow("event with a nested list")
        << framed(pswire::FrameEvent, streamed([](QDataStream &out) {
               out << quint32(pswire::EvStateChanged) << QVariantList{QVariant(QVariantList{1, 2})};
           }));
    QTest::newRow("call with a string list")
        << framed(pswire::FrameCall, streamed([](QDataStream &out) {
               out << quint32(pswire::OpSetUrl) << QVariantList{QStringList{QStringLiteral("a")}};
           }));
    QTest::newRow("reply with a map")
        << framed(pswire::FrameReply, streamed([](QDataStream &out) {
               out << QVariant(QVariantMap{{QStringLiteral("k"), 1}}) << QByteArray();
           }));
    QTest::newRow("event with a picture type")
        << framed(pswire::FrameEvent, QByteArray::fromHex("00000001" "00000001" "00000046" "00"));
    QTest::newRow("reply with a user type")
        << framed(pswire::FrameReply, QByteArray::fromHex("00000400" "00" "00000004" "41424300"));
}

void tst_PsProtocol::foreignValuesRefused()
{
    QFETCH(QByteArray, bytes);
    bool ok = true;
    QCOMPARE(readAll(bytes, &ok).size(), 0);
    QVERIFY(!ok);
}

QTEST_GUILESS_MAIN(tst_PsProtocol)
#include "tst_psprotocol.moc"
