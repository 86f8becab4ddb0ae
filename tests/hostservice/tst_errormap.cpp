// GStreamer errors and warnings as engine numbers, and what those numbers
// become in the session's error table.
#include <errormap.h>

#include <gst/gst.h>

#include <QtTest/QtTest>

class tst_ErrorMap : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void errors_data();
    void errors();
    void everyErrorReadsAsFormatNotSupported_data();
    void everyErrorReadsAsFormatNotSupported();
    void warnings_data();
    void warnings();
};

void tst_ErrorMap::errors_data()
{
    QTest::addColumn<quint32>("domain");
    QTest::addColumn<int>("code");
    QTest::addColumn<int>("number");

    QTest::newRow("resource seek") << GST_RESOURCE_ERROR << int(GST_RESOURCE_ERROR_SEEK) << 5;
    QTest::newRow("resource no space") << GST_RESOURCE_ERROR << int(GST_RESOURCE_ERROR_NO_SPACE_LEFT) << 1032;
    QTest::newRow("resource not found") << GST_RESOURCE_ERROR << int(GST_RESOURCE_ERROR_NOT_FOUND) << 1303;
    QTest::newRow("resource open read") << GST_RESOURCE_ERROR << int(GST_RESOURCE_ERROR_OPEN_READ) << 1305;
    QTest::newRow("resource read") << GST_RESOURCE_ERROR << int(GST_RESOURCE_ERROR_READ) << 1309;
    QTest::newRow("resource not authorized") << GST_RESOURCE_ERROR << int(GST_RESOURCE_ERROR_NOT_AUTHORIZED) << 1315;
    QTest::newRow("stream failed") << GST_STREAM_ERROR << int(GST_STREAM_ERROR_FAILED) << 1401;
    QTest::newRow("stream type not found") << GST_STREAM_ERROR << int(GST_STREAM_ERROR_TYPE_NOT_FOUND) << 1404;
    QTest::newRow("stream wrong type") << GST_STREAM_ERROR << int(GST_STREAM_ERROR_WRONG_TYPE) << 1405;
    QTest::newRow("stream codec not found") << GST_STREAM_ERROR << int(GST_STREAM_ERROR_CODEC_NOT_FOUND) << 1406;
    QTest::newRow("stream decode") << GST_STREAM_ERROR << int(GST_STREAM_ERROR_DECODE) << 1407;
    QTest::newRow("stream demux") << GST_STREAM_ERROR << int(GST_STREAM_ERROR_DEMUX) << 1409;
    QTest::newRow("stream format") << GST_STREAM_ERROR << int(GST_STREAM_ERROR_FORMAT) << 1411;
    QTest::newRow("stream decrypt") << GST_STREAM_ERROR << int(GST_STREAM_ERROR_DECRYPT) << 1412;
    QTest::newRow("core negotiation") << GST_CORE_ERROR << int(GST_CORE_ERROR_NEGOTIATION) << 1107;
    QTest::newRow("core missing plugin") << GST_CORE_ERROR << int(GST_CORE_ERROR_MISSING_PLUGIN) << 1112;
    QTest::newRow("library init") << GST_LIBRARY_ERROR << int(GST_LIBRARY_ERROR_INIT) << 1203;
    QTest::newRow("other domain") << quint32(g_quark_from_static_string("some-other-domain")) << 7 << 2000;
}

void tst_ErrorMap::errors()
{
    QFETCH(quint32, domain);
    QFETCH(int, code);
    QFETCH(int, number);
    QCOMPARE(errormap::errorNumber(GQuark(domain), code), number);
}

void tst_ErrorMap::everyErrorReadsAsFormatNotSupported_data()
{
    QTest::addColumn<quint32>("domain");
    QTest::addColumn<int>("codes");
    QTest::newRow("core") << GST_CORE_ERROR << int(GST_CORE_ERROR_NUM_ERRORS);
    QTest::newRow("library") << GST_LIBRARY_ERROR << int(GST_LIBRARY_ERROR_NUM_ERRORS);
    QTest::newRow("resource") << GST_RESOURCE_ERROR << int(GST_RESOURCE_ERROR_NUM_ERRORS);
    QTest::newRow("stream") << GST_STREAM_ERROR << int(GST_STREAM_ERROR_NUM_ERRORS);
}

// Apart from a failed seek and low memory, an error stops playback and must
// land in the session's "file format not support" range (1..2330 without
// 2055), never in the notices or the ignored numbers.
void tst_ErrorMap::everyErrorReadsAsFormatNotSupported()
{
    QFETCH(quint32, domain);
    QFETCH(int, codes);
    for (int code = 1; code < codes; ++code) {
        const int n = errormap::errorNumber(GQuark(domain), code);
        if (n == errormap::kSeekFailed || n == errormap::kLowMemory)
            continue;
        QVERIFY2(n >= 1 && n <= 2330 && n != 2055, qPrintable(QString::number(n)));
    }
}

void tst_ErrorMap::warnings_data()
{
    QTest::addColumn<quint32>("domain");
    QTest::addColumn<int>("number");
    QTest::newRow("stream") << GST_STREAM_ERROR << 2055;
    QTest::newRow("resource") << GST_RESOURCE_ERROR << 2332;
    QTest::newRow("core") << GST_CORE_ERROR << 2333;
    QTest::newRow("library") << GST_LIBRARY_ERROR << 2333;
}

void tst_ErrorMap::warnings()
{
    QFETCH(quint32, domain);
    QFETCH(int, number);
    QCOMPARE(errormap::warningNumber(GQuark(domain), 1), number);
}

// The error domains are plain quarks: no gst_init() needed.
QTEST_GUILESS_MAIN(tst_ErrorMap)
#include "tst_errormap.moc"
