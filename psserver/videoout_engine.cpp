// The engine's side of the video channel: attaching a client's video or
// audio channel, before the pipeline runs or into a running one.
#include "playbinengine.h"
#include "playbinengine_p.h"
#include "pswire.h"
#include "videoout.h"

namespace {
// Longest wait for the pipeline to preroll again with a new video sink.
const GstClockTime kResinkWait = 5 * GST_SECOND;
} // namespace

GstElement *PlaybinEngine::makeVideoSink()
{
    return m_videoOut ? VideoOutChannel::makeSink(m_videoOut) : nullptr;
}

GstElement *PlaybinEngine::makeAudioSink()
{
    GstElement *sink = playbinengine::makeSink(m_sinks.audioSink);
    return m_audioOut ? VideoOutChannel::makeAudioSink(m_audioOut, sink) : sink;
}

int PlaybinEngine::attachVideoOut(const QByteArray &token)
{
    std::shared_ptr<VideoOutChannel> channel = VideoOutServer::takeChannel(token);
    if (!channel) {
        qWarning("video out: no channel said hello with this token");
        return pswire::ResultInvalidArgument;
    }
    const bool audio = channel->isAudio();
    if (audio)
        m_audioOut = channel;
    else
        m_videoOut = channel;
    if (!m_playbin)
        return pswire::ResultOk;
    GstElement *sink = audio ? makeAudioSink() : makeVideoSink();
    if (!sink)
        return pswire::ResultFailed;
    // A picture somebody sees gets playbin's whole chain of video filters.
    const auto installSink = [this, audio, sink] {
        g_object_set(m_playbin, audio ? "audio-sink" : "video-sink", sink, nullptr);
        if (!audio)
            playbinengine::setVideoFilters(m_playbin, true);
    };
    GstState current = GST_STATE_NULL;
    GstState pending = GST_STATE_VOID_PENDING;
    gst_element_get_state(m_playbin, &current, &pending, 0);
    if (current <= GST_STATE_READY && pending == GST_STATE_VOID_PENDING) {
        installSink();
        return pswire::ResultOk;
    }
    // A running pipeline takes a new sink only from READY: go down, swap,
    // and come back to the same place and state. The engine thread waits
    // for the preroll (a local medium prerolls in milliseconds), and first
    // for a seek in progress, whose target is the place to come back to.
    gst_element_get_state(m_playbin, &current, &pending, kResinkWait);
    gint64 positionNs = 0;
    const bool havePosition = queryPosition(&positionNs);
    const GstState target = pending != GST_STATE_VOID_PENDING ? pending : current;
    const bool seekBack = havePosition && positionNs > 0 && m_seekable;
    gst_element_set_state(m_playbin, GST_STATE_READY);
    installSink();
    // The preroll at the start is not where the player stands: not shown.
    if (m_videoOut)
        m_videoOut->setMuted(seekBack);
    gst_element_set_state(m_playbin, GST_STATE_PAUSED);
    gst_element_get_state(m_playbin, nullptr, nullptr, kResinkWait);
    if (m_videoOut)
        m_videoOut->setMuted(false);
    if (seekBack) {
        gst_element_seek(m_playbin, m_rate, GST_FORMAT_TIME,
                         GstSeekFlags(GST_SEEK_FLAG_FLUSH | GST_SEEK_FLAG_ACCURATE),
                         GST_SEEK_TYPE_SET, positionNs, GST_SEEK_TYPE_NONE, 0);
        gst_element_get_state(m_playbin, nullptr, nullptr, kResinkWait);
    }
    if (target == GST_STATE_PLAYING)
        gst_element_set_state(m_playbin, GST_STATE_PLAYING);
    return pswire::ResultOk;
}
