// The writer of playbin properties: the caller never waits for a write, the
// writes keep their order, and the element lives until its writes ran.
#include <pipelinewriter.h>

#include <QtCore/QSemaphore>
#include <QtCore/QStringList>
#include <QtTest/QtTest>

class tst_PipelineWriter : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { gst_init(nullptr, nullptr); }
    void callerDoesNotWaitForABlockedWrite();
    void elementLivesUntilItsWritesRan();
    void destructionRunsQueuedWrites();
    void nullElementIsIgnored();

private:
    static GstElement *makeElement()
    {
        GstElement *element = gst_element_factory_make("identity", nullptr);
        return element ? GST_ELEMENT(gst_object_ref_sink(element)) : nullptr;
    }
};

void tst_PipelineWriter::callerDoesNotWaitForABlockedWrite()
{
    GstElement *element = makeElement();
    QVERIFY(element);
    QSemaphore entered;
    QSemaphore release;
    QStringList order;
    QMutex orderMutex;
    const auto record = [&](const QString &what) {
        QMutexLocker lock(&orderMutex);
        order << what;
    };
    {
        PipelineWriter writer;
        // The first write stands for one held up by the sink bin's lock.
        writer.post(element, [&](GstElement *) {
            entered.release();
            release.acquire();
            record("first");
        });
        writer.post(element, [&](GstElement *e) {
            g_object_set(e, "silent", FALSE, nullptr);
            record("second");
        });
        entered.acquire();
        // Both posts returned while the first write is still blocked.
        {
            QMutexLocker lock(&orderMutex);
            QVERIFY(order.isEmpty());
        }
        release.release();
        writer.drain();
        QCOMPARE(order, QStringList({"first", "second"}));
        gboolean silent = TRUE;
        g_object_get(element, "silent", &silent, nullptr);
        QCOMPARE(silent, FALSE);
    }
    gst_object_unref(element);
}

void tst_PipelineWriter::elementLivesUntilItsWritesRan()
{
    GstElement *element = makeElement();
    QVERIFY(element);
    QSemaphore release;
    int refsInWrite = 0;
    PipelineWriter writer;
    writer.post(element, [&](GstElement *e) {
        release.acquire();
        refsInWrite = GST_OBJECT_REFCOUNT_VALUE(e);
        g_object_set(e, "silent", TRUE, nullptr);
    });
    // The pipeline is gone from the engine before the write ran.
    gst_object_unref(element);
    release.release();
    writer.drain();
    QCOMPARE(refsInWrite, 1);
}

void tst_PipelineWriter::destructionRunsQueuedWrites()
{
    GstElement *element = makeElement();
    QVERIFY(element);
    QSemaphore release;
    QStringList ran;
    {
        PipelineWriter writer;
        writer.post(element, [&](GstElement *) { release.acquire(); ran << "a"; });
        writer.post(element, [&](GstElement *) { ran << "b"; });
        release.release();
    }
    QCOMPARE(ran, QStringList({"a", "b"}));
    gst_object_unref(element);
}

void tst_PipelineWriter::nullElementIsIgnored()
{
    bool ran = false;
    PipelineWriter writer;
    writer.post(nullptr, [&](GstElement *) { ran = true; });
    writer.drain();
    QVERIFY(!ran);
}

QTEST_GUILESS_MAIN(tst_PipelineWriter)
#include "tst_pipelinewriter.moc"
