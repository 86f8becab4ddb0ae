#include "pipelinewriter.h"

struct PipelineWriter::Task
{
    GstElement *element;
    std::function<void(GstElement *)> write;
};

PipelineWriter::PipelineWriter()
    // One thread: the writes keep their order.
    : m_pool(g_thread_pool_new(&PipelineWriter::run, this, 1, FALSE, nullptr))
{
}

PipelineWriter::~PipelineWriter()
{
    g_thread_pool_free(m_pool, FALSE, TRUE);
}

void PipelineWriter::post(GstElement *element, std::function<void(GstElement *)> write)
{
    if (!element)
        return;
    {
        QMutexLocker lock(&m_mutex);
        ++m_queued;
    }
    auto *task = new Task{GST_ELEMENT(gst_object_ref(element)), std::move(write)};
    g_thread_pool_push(m_pool, task, nullptr);
}

void PipelineWriter::drain()
{
    QMutexLocker lock(&m_mutex);
    while (m_queued > 0)
        m_idle.wait(&m_mutex);
}

void PipelineWriter::run(gpointer data, gpointer self)
{
    auto *task = static_cast<Task *>(data);
    task->write(task->element);
    gst_object_unref(task->element);
    delete task;
    auto *writer = static_cast<PipelineWriter *>(self);
    QMutexLocker lock(&writer->m_mutex);
    if (--writer->m_queued == 0)
        writer->m_idle.wakeAll();
}
