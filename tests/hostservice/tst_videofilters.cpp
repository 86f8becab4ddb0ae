// The chain between the video decoder and the sink: left out when nobody
// sees the frames (the bare fakesink), complete for a sink that shows them.
// The other switches of the player are left as they were.
#include <playbinengine_p.h>

#include <QtCore/QDir>
#include <QtCore/QFileInfo>
#include <QtCore/QSet>
#include <QtTest/QtTest>

#include <gst/gst.h>

namespace {

// playbin's default: video, audio, text, soft-volume, deinterlace,
// soft-colorbalance.
const int kPlaybinDefault = 0x617;

// Every factory name inside the bin, at any depth.
QSet<QString> factoriesInside(GstElement *bin)
{
    QSet<QString> names;
    GstIterator *it = gst_bin_iterate_recurse(GST_BIN(bin));
    GValue item = G_VALUE_INIT;
    for (bool done = false; !done;) {
        switch (gst_iterator_next(it, &item)) {
        case GST_ITERATOR_OK: {
            GstElementFactory *factory = gst_element_get_factory(GST_ELEMENT(g_value_get_object(&item)));
            if (factory)
                names.insert(QString::fromUtf8(GST_OBJECT_NAME(factory)));
            g_value_reset(&item);
            break;
        }
        case GST_ITERATOR_RESYNC:
            gst_iterator_resync(it);
            names.clear();
            break;
        default:
            done = true;
            break;
        }
    }
    g_value_unset(&item);
    gst_iterator_free(it);
    return names;
}

GstElement *makeFakeSink()
{
    GstElement *sink = gst_element_factory_make("fakesink", nullptr);
    if (sink)
        g_object_set(sink, "sync", TRUE, nullptr);
    return sink;
}

} // namespace

class tst_VideoFilters : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void flagsOfTheVideoChainOnly_data();
    void flagsOfTheVideoChainOnly();
    void chainBeforeTheSink_data();
    void chainBeforeTheSink();

private:
    QString m_movie;
};

void tst_VideoFilters::initTestCase()
{
    gst_init(nullptr, nullptr);
    const QByteArray dir = qgetenv("ORVIC_E2E_MEDIA_DIR");
    QVERIFY2(!dir.isEmpty(), "ORVIC_E2E_MEDIA_DIR is not set");
    m_movie = QFileInfo(QDir(QString::fromLocal8Bit(dir)), QStringLiteral("av.mp4")).absoluteFilePath();
    QVERIFY2(QFileInfo(m_movie).isFile(), qPrintable(m_movie));
}

void tst_VideoFilters::flagsOfTheVideoChainOnly_data()
{
    QTest::addColumn<int>("before");
    QTest::addColumn<bool>("shown");
    QTest::addColumn<int>("after");
    QTest::newRow("default, nobody sees") << kPlaybinDefault << false << 0x057;
    QTest::newRow("default, shown") << kPlaybinDefault << true << kPlaybinDefault;
    QTest::newRow("video off, nobody sees") << 0x616 << false << 0x056;
    QTest::newRow("video off, shown") << 0x616 << true << 0x616;
    QTest::newRow("headless, then shown") << 0x057 << true << kPlaybinDefault;
    QTest::newRow("download and native audio kept") << 0x6b7 << false << 0x0f7;
    QTest::newRow("headless again") << 0x057 << false << 0x057;
}

void tst_VideoFilters::flagsOfTheVideoChainOnly()
{
    QFETCH(int, before);
    QFETCH(bool, shown);
    QFETCH(int, after);
    GstElement *playbin = gst_element_factory_make("playbin", nullptr);
    QVERIFY(playbin);
    g_object_set(playbin, "flags", before, nullptr);
    playbinengine::setVideoFilters(playbin, shown);
    gint flags = 0;
    g_object_get(playbin, "flags", &flags, nullptr);
    gst_object_unref(playbin);
    QCOMPARE(QString::number(flags, 16), QString::number(after, 16));
}

void tst_VideoFilters::chainBeforeTheSink_data()
{
    QTest::addColumn<bool>("shown");
    QTest::newRow("nobody sees the frames") << false;
    QTest::newRow("a sink that shows them") << true;
}

void tst_VideoFilters::chainBeforeTheSink()
{
    QFETCH(bool, shown);
    GstElement *playbin = gst_element_factory_make("playbin", nullptr);
    QVERIFY(playbin);
    GstElement *videoSink = makeFakeSink();
    QVERIFY(videoSink);
    const QByteArray uri = QUrl::fromLocalFile(m_movie).toEncoded();
    g_object_set(playbin, "uri", uri.constData(), "audio-sink", makeFakeSink(), "video-sink", videoSink,
                 nullptr);
    // The movie's subtitles would want an overlay; they are not what is looked at here.
    gint flags = 0;
    g_object_get(playbin, "flags", &flags, nullptr);
    g_object_set(playbin, "flags", flags & ~playbinengine::kFlagText, nullptr);
    playbinengine::setVideoFilters(playbin, shown);

    gst_element_set_state(playbin, GST_STATE_PAUSED);
    const GstStateChangeReturn prerolled = gst_element_get_state(playbin, nullptr, nullptr, 10 * GST_SECOND);
    const QSet<QString> inside = factoriesInside(playbin);
    GstSample *sample = nullptr;
    g_object_get(videoSink, "last-sample", &sample, nullptr);
    QString format;
    if (sample) {
        if (GstCaps *caps = gst_sample_get_caps(sample))
            format = QString::fromUtf8(gst_structure_get_name(gst_caps_get_structure(caps, 0)));
        gst_sample_unref(sample);
    }
    gst_element_set_state(playbin, GST_STATE_NULL);
    gst_object_unref(playbin);

    QCOMPARE(prerolled, GST_STATE_CHANGE_SUCCESS);
    // Either way the sink prerolled on a decoded frame.
    QCOMPARE(format, QStringLiteral("video/x-raw"));
    QVERIFY(inside.contains(QStringLiteral("avdec_h264")));
    // The software volume is the player's volume: there either way.
    QVERIFY(inside.contains(QStringLiteral("volume")));
    for (const char *filter : {"videoconvert", "deinterlace", "videobalance"})
        QVERIFY2(inside.contains(QLatin1String(filter)) == shown, filter);
    QVERIFY(inside.contains(QStringLiteral("videoscale")) == shown);
}

QTEST_GUILESS_MAIN(tst_VideoFilters)
#include "tst_videofilters.moc"
