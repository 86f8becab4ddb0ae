// Loads, in the background, the GStreamer plugins that opening the usual
// media needs, so that a freshly started service (a first start, or one
// restarted by a session's watchdog) does not load them inside its first
// preparation.
#ifndef PSSERVER_PLUGINWARMUP_H
#define PSSERVER_PLUGINWARMUP_H

#include <thread>

class PluginWarmup
{
public:
    // Starts loading at once, on a thread of its own.
    PluginWarmup();
    // Waits for the loading to end; must be called before GStreamer is
    // shut down. The destructor waits too.
    void wait();
    ~PluginWarmup();
    PluginWarmup(const PluginWarmup &) = delete;
    PluginWarmup &operator=(const PluginWarmup &) = delete;

private:
    std::thread m_thread;
};

#endif // PSSERVER_PLUGINWARMUP_H
