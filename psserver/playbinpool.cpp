#include "playbinpool.h"

#include <QtCore/QMutex>
#include <QtCore/QMutexLocker>
#include <QtCore/QVector>

namespace {

struct Pool
{
    QMutex mutex;
    QVector<GstElement *> playbins;

    ~Pool()
    {
        for (GstElement *playbin : playbins)
            gst_object_unref(playbin);
    }
};

Pool &pool()
{
    static Pool instance;
    return instance;
}

// Back to what a new playbin has: nothing of the medium or the player before.
void resetProperties(GstElement *playbin)
{
    GParamSpec *flags = g_object_class_find_property(G_OBJECT_GET_CLASS(playbin), "flags");
    GValue value = G_VALUE_INIT;
    g_value_init(&value, flags->value_type);
    g_param_value_set_default(flags, &value);
    g_object_set_property(G_OBJECT(playbin), "flags", &value);
    g_value_unset(&value);
    g_object_set(playbin, "uri", nullptr, "suburi", nullptr, "audio-sink", nullptr, "video-sink", nullptr,
                 "text-sink", nullptr, "volume", 1.0, "mute", FALSE, nullptr);
}

} // namespace

GstElement *playbinpool::take()
{
    Pool &p = pool();
    const QMutexLocker lock(&p.mutex);
    if (p.playbins.isEmpty())
        return nullptr;
    return p.playbins.takeLast();
}

void playbinpool::park(GstElement *playbin)
{
    if (!playbin)
        return;
    resetProperties(playbin);
    Pool &p = pool();
    {
        const QMutexLocker lock(&p.mutex);
        if (p.playbins.size() < kCapacity) {
            p.playbins.append(playbin);
            return;
        }
    }
    gst_object_unref(playbin);
}

int playbinpool::size()
{
    Pool &p = pool();
    const QMutexLocker lock(&p.mutex);
    return p.playbins.size();
}

void playbinpool::clear()
{
    Pool &p = pool();
    QVector<GstElement *> playbins;
    {
        const QMutexLocker lock(&p.mutex);
        playbins.swap(p.playbins);
    }
    for (GstElement *playbin : playbins)
        gst_object_unref(playbin);
}
