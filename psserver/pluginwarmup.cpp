#include "pluginwarmup.h"

#include <gst/gst.h>

#include <pthread.h>

namespace {

// What playbin plugs for local and HTTP media: the bins and sinks, type
// finding, containers, parsers, decoders (libav's plugin loads FFmpeg, the
// largest part) and converters. A plugin that is not installed is skipped;
// element lookup loads whatever this list misses, as before.
const char *const kPlugins[] = {
    "playback", "coreelements", "app", "typefindfunctions", "isomp4", "matroska",
    "ogg", "vorbis", "wavparse", "id3demux", "audioparsers", "videoparsers", "libav",
    "subparse", "audioconvert", "audioresample", "videoconvertscale", "volume", "soup",
};

} // namespace

PluginWarmup::PluginWarmup()
    : m_thread([] {
          pthread_setname_np(pthread_self(), "plugin-warmup");
          for (const char *name : kPlugins) {
              if (GstPlugin *plugin = gst_plugin_load_by_name(name))
                  gst_object_unref(plugin);
          }
      })
{
}

void PluginWarmup::wait()
{
    if (m_thread.joinable())
        m_thread.join();
}

PluginWarmup::~PluginWarmup()
{
    wait();
}
