#include "textsinkflush.h"

namespace {

// Set on the pads already watched: a chain that is linked again through the
// same pads adds no second probe or handler.
const char kGuardedKey[] = "psserver-flush-stop-guard";

bool markOnce(GstPad *pad)
{
    if (g_object_get_data(G_OBJECT(pad), kGuardedKey))
        return false;
    g_object_set_data(G_OBJECT(pad), kGuardedKey, GINT_TO_POINTER(1));
    return true;
}

// On the pad that feeds a guarded entry: runs before the event reaches it.
GstPadProbeReturn beforeFlushStop(GstPad *feeder, GstPadProbeInfo *info, gpointer)
{
    if (GST_EVENT_TYPE(GST_PAD_PROBE_INFO_EVENT(info)) != GST_EVENT_FLUSH_STOP)
        return GST_PAD_PROBE_OK;
    if (GstPad *entry = gst_pad_get_peer(feeder)) {
        gst_pad_send_event(entry, gst_event_new_flush_start());
        gst_object_unref(entry);
    }
    return GST_PAD_PROBE_OK;
}

void guardFeeder(GstPad *, GstPad *feeder, gpointer)
{
    // Flush events reach only probes that ask for them by name.
    if (markOnce(feeder))
        gst_pad_add_probe(feeder, GST_PAD_PROBE_TYPE_EVENT_FLUSH, beforeFlushStop, nullptr, nullptr);
}

// Guards the flush stops that come into `entry`, now and after every link.
void guardEntry(GstPad *entry)
{
    if (!markOnce(entry))
        return;
    g_signal_connect(entry, "linked", G_CALLBACK(guardFeeder), nullptr);
    if (GstPad *feeder = gst_pad_get_peer(entry)) {
        guardFeeder(entry, feeder, nullptr);
        gst_object_unref(feeder);
    }
}

// The sink was linked to `source`: the entry of the element that owns it is
// guarded, or, without one, the sink itself.
void onSinkLinked(GstPad *sinkPad, GstPad *source, gpointer)
{
    GstElement *feeding = gst_pad_get_parent_element(source);
    GstPad *entry = feeding ? gst_element_get_static_pad(feeding, "sink") : nullptr;
    guardEntry(entry ? entry : sinkPad);
    if (entry)
        gst_object_unref(entry);
    if (feeding)
        gst_object_unref(feeding);
}

} // namespace

void playbinengine::guardFlushStops(GstElement *sink)
{
    GstPad *pad = gst_element_get_static_pad(sink, "sink");
    if (!pad)
        return;
    g_signal_connect(pad, "linked", G_CALLBACK(onSinkLinked), nullptr);
    if (GstPad *source = gst_pad_get_peer(pad)) {
        onSinkLinked(pad, source, nullptr);
        gst_object_unref(source);
    }
    gst_object_unref(pad);
}
