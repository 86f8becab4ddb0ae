// Writes to playbin properties that go through its sink bin's lock (volume,
// mute, the play flags). While the sink bin rebuilds a chain (after a change
// of the flags, in a streaming thread, possibly during the preroll) that lock
// can be held for seconds; the engine thread must go on answering its client
// meanwhile, so these writes run in order on a thread of their own.
#ifndef PSSERVER_PIPELINEWRITER_H
#define PSSERVER_PIPELINEWRITER_H

#include <QtCore/QMutex>
#include <QtCore/QWaitCondition>

#include <functional>

#include <gst/gst.h>

class PipelineWriter
{
public:
    PipelineWriter();
    // Carries out the writes still queued, then returns.
    ~PipelineWriter();

    PipelineWriter(const PipelineWriter &) = delete;
    PipelineWriter &operator=(const PipelineWriter &) = delete;

    // Queues `write` for `element`, which is kept alive until it ran. Writes
    // run in the order they were queued.
    void post(GstElement *element, std::function<void(GstElement *)> write);

    // Waits until every write queued before the call ran.
    void drain();

private:
    struct Task;
    static void run(gpointer task, gpointer self);

    GThreadPool *m_pool = nullptr;
    QMutex m_mutex;
    QWaitCondition m_idle;
    int m_queued = 0;
};

#endif // PSSERVER_PIPELINEWRITER_H
