// The guard of the subtitle sink's flushes: a flush stop whose start never
// reached the chain before the sink (so that the sink holds a preroll and its
// stream lock, or the queue's thread waits for data) goes through, and the
// chain flows again after it.
#include <textsinkflush.h>

#include <gst/app/gstappsink.h>

#include <QtCore/QScopeGuard>
#include <QtCore/QThread>
#include <QtTest/QtTest>

#include <functional>

enum class Guard { BeforeLink, AfterLink, BeforeRelink };
Q_DECLARE_METATYPE(Guard)

namespace {

// Long enough for a loaded machine; a stop that waits for ever exceeds it.
const unsigned long kStopWaitMs = 10000;
const GstClockTime kPullTimeout = 5 * GST_SECOND;

// queue ! appsink fed from a pad of the test's, the shape of the subtitle
// chain: a queue's streaming thread pushes cues into a sink that prerolls in
// a pause. The test's thread is the upstream one, as the engine's is for a
// seek's flush.
class Chain
{
public:
    explicit Chain(Guard guard)
    {
        pipeline = gst_pipeline_new(nullptr);
        queue = gst_element_factory_make("queue", nullptr);
        sink = gst_element_factory_make("appsink", nullptr);
        sourcePad = gst_pad_new("src", GST_PAD_SRC);
        if (sourcePad)
            gst_object_ref_sink(sourcePad);
        if (!pipeline || !queue || !sink || !sourcePad)
            return;
        g_object_set(sink, "async", FALSE, "sync", FALSE, nullptr);
        gst_bin_add_many(GST_BIN(pipeline), queue, sink, nullptr);
        if (guard != Guard::AfterLink)
            playbinengine::guardFlushStops(sink);
        if (guard == Guard::BeforeRelink && !linkThroughAnotherQueueFirst())
            return;
        GstPad *queuePad = gst_element_get_static_pad(queue, "sink");
        const bool linked = gst_pad_link(sourcePad, queuePad) == GST_PAD_LINK_OK
                && gst_element_link(queue, sink);
        gst_object_unref(queuePad);
        if (!linked)
            return;
        if (guard == Guard::AfterLink)
            playbinengine::guardFlushStops(sink);
        sinkPad = gst_element_get_static_pad(sink, "sink");
    }

    // Runs the chain in `state`, its stream started with a time segment.
    bool start(GstState state)
    {
        if (gst_element_set_state(pipeline, state) == GST_STATE_CHANGE_FAILURE)
            return false;
        gst_pad_set_active(sourcePad, TRUE);
        return gst_pad_push_event(sourcePad, gst_event_new_stream_start("cues")) && pushSegment();
    }

    bool pushSegment()
    {
        GstSegment segment;
        gst_segment_init(&segment, GST_FORMAT_TIME);
        return gst_pad_push_event(sourcePad, gst_event_new_segment(&segment));
    }
    ~Chain()
    {
        if (sourcePad)
            gst_object_unref(sourcePad);
        if (sinkPad)
            gst_object_unref(sinkPad);
        if (pipeline) {
            gst_element_set_state(pipeline, GST_STATE_NULL);
            gst_object_unref(pipeline);
        }
    }
    bool isValid() const { return sinkPad; }

    GstFlowReturn push(GstClockTime at)
    {
        static const char text[] = "cue";
        GstBuffer *buffer = gst_buffer_new_memdup(text, sizeof text - 1);
        GST_BUFFER_PTS(buffer) = at;
        GST_BUFFER_DURATION(buffer) = GST_SECOND;
        return gst_pad_push(sourcePad, buffer);
    }

    GstElement *pipeline = nullptr;
    GstElement *queue = nullptr;
    GstElement *sink = nullptr;
    GstPad *sourcePad = nullptr;
    GstPad *sinkPad = nullptr;

private:
    // As playbin's sink bin does when it builds the subtitle chain anew.
    bool linkThroughAnotherQueueFirst()
    {
        GstElement *old = gst_element_factory_make("queue", nullptr);
        if (!old)
            return false;
        gst_bin_add(GST_BIN(pipeline), old);
        const bool linked = gst_element_link(old, sink);
        gst_element_unlink(old, sink);
        gst_bin_remove(GST_BIN(pipeline), old);
        return linked;
    }
};

// The cue a pull gave, or GST_CLOCK_TIME_NONE.
GstClockTime ptsOf(GstSample *sample)
{
    if (!sample)
        return GST_CLOCK_TIME_NONE;
    const GstClockTime pts = GST_BUFFER_PTS(gst_sample_get_buffer(sample));
    gst_sample_unref(sample);
    return pts;
}

GstClockTime pull(GstElement *sink, bool playing)
{
    GstAppSink *appSink = GST_APP_SINK(sink);
    return ptsOf(playing ? gst_app_sink_try_pull_sample(appSink, kPullTimeout)
                         : gst_app_sink_try_pull_preroll(appSink, kPullTimeout));
}

// Runs `send` on a thread of its own, so that a send that waits for ever does
// not take the test with it.
class Sender : public QThread
{
public:
    explicit Sender(std::function<bool()> send) : m_send(std::move(send)) {}
    bool result() const { return m_result; }

protected:
    void run() override { m_result = m_send(); }

private:
    std::function<bool()> m_send;
    bool m_result = false;
};

} // namespace

class tst_TextSinkFlush : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { gst_init(nullptr, nullptr); }
    void flushStopWithoutItsStart_data();
    void flushStopWithoutItsStart();
    void wholeFlushIsUnchanged();
};

void tst_TextSinkFlush::flushStopWithoutItsStart_data()
{
    QTest::addColumn<Guard>("guard");
    QTest::addColumn<bool>("playing");

    // Paused: the queue's thread waits in the sink's preroll, with its lock.
    QTest::newRow("paused, guarded, then linked") << Guard::BeforeLink << false;
    QTest::newRow("paused, linked, then guarded") << Guard::AfterLink << false;
    QTest::newRow("paused, linked again after a rebuild") << Guard::BeforeRelink << false;
    // Playing: the queue's thread waits for data.
    QTest::newRow("playing, guarded, then linked") << Guard::BeforeLink << true;
}

void tst_TextSinkFlush::flushStopWithoutItsStart()
{
    QFETCH(Guard, guard);
    QFETCH(bool, playing);
    Chain chain(guard);
    QVERIFY(chain.isValid());
    QVERIFY(chain.start(playing ? GST_STATE_PLAYING : GST_STATE_PAUSED));
    QCOMPARE(chain.push(0), GST_FLOW_OK);
    QCOMPARE(pull(chain.sink, playing), GstClockTime(0));
    if (!playing)
        QVERIFY(!g_rec_mutex_trylock(GST_PAD_GET_STREAM_LOCK(chain.sinkPad)));

    // The stop of a flush whose start the chain never kept, from upstream.
    Sender stop([&] { return gst_pad_push_event(chain.sourcePad, gst_event_new_flush_stop(TRUE)); });
    stop.start();
    const bool finished = stop.wait(kStopWaitMs);
    if (!finished) {
        // Let the sender go, so that the failure does not hang the run.
        gst_pad_send_event(chain.sinkPad, gst_event_new_flush_start());
        stop.wait();
    }
    QVERIFY2(finished, "the flush stop waited for ever");
    QVERIFY(stop.result());

    // The chain flows again: after a new segment (the stop reset the old
    // one), the next cue reaches the sink.
    QVERIFY(chain.pushSegment());
    QCOMPARE(chain.push(2 * GST_SECOND), GST_FLOW_OK);
    QCOMPARE(pull(chain.sink, playing), GstClockTime(2 * GST_SECOND));
}

void tst_TextSinkFlush::wholeFlushIsUnchanged()
{
    // A whole flush from upstream: the guard's start is refused by the
    // flushing queue, and the stop ends the flush as usual.
    Chain chain(Guard::BeforeLink);
    QVERIFY(chain.isValid());
    QVERIFY(chain.start(GST_STATE_PAUSED));
    QCOMPARE(chain.push(0), GST_FLOW_OK);
    QCOMPARE(pull(chain.sink, false), GstClockTime(0));

    QVERIFY(gst_pad_push_event(chain.sourcePad, gst_event_new_flush_start()));
    QVERIFY(GST_PAD_IS_FLUSHING(chain.sinkPad));
    QVERIFY(gst_pad_push_event(chain.sourcePad, gst_event_new_flush_stop(TRUE)));
    QVERIFY(!GST_PAD_IS_FLUSHING(chain.sinkPad));
    QVERIFY(chain.pushSegment());
    QCOMPARE(chain.push(GST_SECOND), GST_FLOW_OK);
    QCOMPARE(pull(chain.sink, false), GstClockTime(GST_SECOND));
}

QTEST_GUILESS_MAIN(tst_TextSinkFlush)
#include "tst_textsinkflush.moc"
