// Key decoding and event formatting of orvic-play.
#include "eventprinter.h"
#include "terminal.h"

#include "qorvicplayersession.h"

#include <QtTest/QtTest>

class tst_OrvicPlayUnits : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void decodeKeys_data();
    void decodeKeys();
    void decodeKeepsIncompleteEscape();
    void formatTime_data();
    void formatTime();
    void stateNames();
    void mediaMessages_data();
    void mediaMessages();
    void sizeValues();
};

void tst_OrvicPlayUnits::decodeKeys_data()
{
    QTest::addColumn<QByteArray>("input");
    QTest::addColumn<QList<int>>("keys");
    using T = Terminal;
    QTest::newRow("space") << QByteArray(" ") << QList<int>{T::KeySpace};
    QTest::newRow("arrows") << QByteArray("\x1b[A\x1b[B\x1b[C\x1b[D")
                            << QList<int>{T::KeyUp, T::KeyDown, T::KeyRight, T::KeyLeft};
    QTest::newRow("rate") << QByteArray("[]") << QList<int>{T::KeyRateDown, T::KeyRateUp};
    QTest::newRow("volume") << QByteArray("+-=") << QList<int>{T::KeyVolumeUp, T::KeyVolumeDown, T::KeyVolumeUp};
    QTest::newRow("switches") << QByteArray("mast")
                              << QList<int>{T::KeyMute, T::KeyAudio, T::KeySubtitle, T::KeySubtitleToggle};
    QTest::newRow("quit") << QByteArray("q") << QList<int>{T::KeyQuit};
    QTest::newRow("unknown bytes are ignored") << QByteArray("xyz\x01") << QList<int>{};
    QTest::newRow("unknown escape is skipped") << QByteArray("\x1b[Z ") << QList<int>{T::KeySpace};
}

void tst_OrvicPlayUnits::decodeKeys()
{
    QFETCH(QByteArray, input);
    QFETCH(QList<int>, keys);
    QByteArray buffer = input;
    QList<int> got;
    for (Terminal::Key k : Terminal::decode(buffer))
        got.append(k);
    QCOMPARE(got, keys);
    QVERIFY(buffer.isEmpty());
}

void tst_OrvicPlayUnits::decodeKeepsIncompleteEscape()
{
    QByteArray buffer("q\x1b[");
    const QList<Terminal::Key> first = Terminal::decode(buffer);
    QCOMPARE(first, QList<Terminal::Key>{Terminal::KeyQuit});
    QCOMPARE(buffer, QByteArray("\x1b["));
    buffer.append('C');
    QCOMPARE(Terminal::decode(buffer), QList<Terminal::Key>{Terminal::KeyRight});
    QVERIFY(buffer.isEmpty());
}

void tst_OrvicPlayUnits::formatTime_data()
{
    QTest::addColumn<qint64>("ms");
    QTest::addColumn<QString>("text");
    QTest::newRow("zero") << qint64(0) << QStringLiteral("00:00.0");
    QTest::newRow("negative clamps") << qint64(-5) << QStringLiteral("00:00.0");
    QTest::newRow("seconds") << qint64(12345) << QStringLiteral("00:12.3");
    QTest::newRow("minutes") << qint64(225000) << QStringLiteral("03:45.0");
    QTest::newRow("over an hour") << qint64(3725100) << QStringLiteral("62:05.1");
}

void tst_OrvicPlayUnits::formatTime()
{
    QFETCH(qint64, ms);
    QFETCH(QString, text);
    QCOMPARE(EventPrinter::formatTime(ms), text);
}

void tst_OrvicPlayUnits::stateNames()
{
    QCOMPARE(EventPrinter::stateName(QOrvicPlayerSession::Player_Play), QStringLiteral("Player_Play"));
    QCOMPARE(EventPrinter::stateName(QOrvicPlayerSession::Player_Pause), QStringLiteral("Player_Pause"));
    QCOMPARE(EventPrinter::stateName(42), QStringLiteral("42"));
}

void tst_OrvicPlayUnits::mediaMessages_data()
{
    QTest::addColumn<int>("message");
    QTest::addColumn<QVariant>("info");
    QTest::addColumn<QString>("text");
    QTest::newRow("buffering") << 0 << QVariant(40) << QStringLiteral("buffering 40%");
    QTest::newRow("notice") << 1 << QVariant(2055) << QStringLiteral("engine notice 2055");
    QTest::newRow("seek failed") << 2 << QVariant() << QStringLiteral("seek failed");
    QTest::newRow("rate refused") << 2 << QVariant(-0.5f) << QStringLiteral("seek or rate change failed (-0.5)");
    QTest::newRow("resume data") << 3 << QVariant() << QStringLiteral("resume point saved");
}

void tst_OrvicPlayUnits::mediaMessages()
{
    QFETCH(int, message);
    QFETCH(QVariant, info);
    QFETCH(QString, text);
    QCOMPARE(EventPrinter::mediaMessageText(message, info), text);
}

void tst_OrvicPlayUnits::sizeValues()
{
    QCOMPARE(EventPrinter::displayValue(QSize(1280, 720)), QStringLiteral("1280x720"));
    const QJsonValue v = EventPrinter::jsonValue(QSize(640, 360));
    QCOMPARE(v.toObject().value("width").toInt(), 640);
    QCOMPARE(v.toObject().value("height").toInt(), 360);
    QCOMPARE(EventPrinter::displayValue(QStringLiteral("eng")), QStringLiteral("eng"));
}

QTEST_GUILESS_MAIN(tst_OrvicPlayUnits)
#include "tst_orvicplay_units.moc"
