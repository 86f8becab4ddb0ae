#include "qmediastringdefine.h"

#include <QtTest/QtTest>

class tst_QMediaStringDefine : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void videoCodec_data();
    void videoCodec();
    void audioCodec_data();
    void audioCodec();
    void language_data();
    void language();
    void objectLifetime();
};

void tst_QMediaStringDefine::videoCodec_data()
{
    QTest::addColumn<uint>("id");
    QTest::addColumn<QString>("name");
    const char *rows[] = {"none", "unknown", "mpeg 1/2", "mpeg 1/2", "mpeg4", "h.264", "vc1", "mjpeg", "rv"};
    for (uint i = 0; i < 9; ++i)
        QTest::addRow("id %u", i) << i << QString::fromLatin1(rows[i]);
    QTest::newRow("9 falls back to none") << 9u << QStringLiteral("none");
    QTest::newRow("all ones falls back to none") << 4294967295u << QStringLiteral("none");
    QTest::newRow("1000 falls back to none") << 1000u << QStringLiteral("none");
}

void tst_QMediaStringDefine::videoCodec()
{
    QFETCH(uint, id);
    QFETCH(QString, name);
    const QString got = QMediaStringDefine::getVideoCodecString(id);
    QCOMPARE(got, name);
    QCOMPARE(got.size(), name.size());
}

void tst_QMediaStringDefine::audioCodec_data()
{
    QTest::addColumn<uint>("id");
    QTest::addColumn<QString>("name");
    const char *rows[] = {"none", "unknown", "mpeg1/2", "mpeg1/2", "mpeg1/2", "mpeg2", "ac3", "truehd",
                          "pcm", "wma", "aac", "aac", "aac", "dts", "ogg", "cook", "flac", "ape",
                          "dts", "dts", "alac"};
    for (uint i = 0; i < 21; ++i)
        QTest::addRow("id %u", i) << i << QString::fromLatin1(rows[i]);
    QTest::newRow("21 falls back to none") << 21u << QStringLiteral("none");
    QTest::newRow("all ones falls back to none") << 4294967295u << QStringLiteral("none");
}

void tst_QMediaStringDefine::audioCodec()
{
    QFETCH(uint, id);
    QFETCH(QString, name);
    QCOMPARE(QMediaStringDefine::getAudioCodecString(id), name);
}

void tst_QMediaStringDefine::language_data()
{
    QTest::addColumn<uint>("id");
    QTest::addColumn<QString>("name");
    QTest::newRow("all ones is und") << 4294967295u << QStringLiteral("und");
    const char *rows[] = {"eng", "spa", "por", "rus", "ara", "gre", "tha", "ger", "ita", "fre",
                          "vie", "per", "zho-CH", "zho-TW", "kor", "jis", "dan", "dut", "nor"};
    for (uint i = 0; i < 19; ++i)
        QTest::addRow("id %u", i) << i << QString::fromLatin1(rows[i]);
    QTest::newRow("19 falls back to und") << 19u << QStringLiteral("und");
    QTest::newRow("4294967294 falls back to und") << 4294967294u << QStringLiteral("und");
    QTest::newRow("1000 falls back to und") << 1000u << QStringLiteral("und");
}

void tst_QMediaStringDefine::language()
{
    QFETCH(uint, id);
    QFETCH(QString, name);
    QCOMPARE(QMediaStringDefine::getLanguageString(id), name);
}

void tst_QMediaStringDefine::objectLifetime()
{
    // Stateless: an object answers like the static calls.
    QMediaStringDefine table;
    QCOMPARE(table.getVideoCodecString(6), QStringLiteral("vc1"));
    QCOMPARE(table.getVideoCodecString(6).size(), 3);
    QCOMPARE(table.getVideoCodecString(2).size(), 8);
    QCOMPARE(table.getAudioCodecString(2).size(), 7);
}

QTEST_GUILESS_MAIN(tst_QMediaStringDefine)
#include "tst_qmediastringdefine.moc"
