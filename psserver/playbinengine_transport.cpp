// Transport of the playback engine: play, pause, stop, reset, seeks,
// position, duration and rate.
#include "playbinengine.h"
#include "videoout.h"
#include "playbinengine_p.h"
#include "pswire.h"

#include <cmath>

using namespace playbinengine;
using playback::SPPlayer;

int PlaybinEngine::play()
{
    switch (m_state) {
    case SPPlayer::STATE_PLAYING:
        return pswire::ResultOk;
    case SPPlayer::STATE_COMPLETED:
        // Play after the end starts over (from the end when playing backwards).
        if (!seekWithRate(m_rate, m_rate < 0 ? m_durationMs.load() : 0))
            return pswire::ResultFailed;
        Q_FALLTHROUGH();
    case SPPlayer::STATE_PREPARED:
    case SPPlayer::STATE_PAUSED:
        if (gst_element_set_state(m_playbin, GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE)
            return pswire::ResultFailed;
        setEngineState(SPPlayer::STATE_PLAYING);
        return pswire::ResultOk;
    default:
        return pswire::ResultInvalidState;
    }
}

int PlaybinEngine::pause()
{
    switch (m_state) {
    case SPPlayer::STATE_PAUSED:
        return pswire::ResultOk;
    case SPPlayer::STATE_PREPARED:
    case SPPlayer::STATE_PLAYING:
    case SPPlayer::STATE_COMPLETED:
        if (gst_element_set_state(m_playbin, GST_STATE_PAUSED) == GST_STATE_CHANGE_FAILURE)
            return pswire::ResultFailed;
        position(); // remember where it stopped
        setEngineState(SPPlayer::STATE_PAUSED);
        return pswire::ResultOk;
    default:
        return pswire::ResultInvalidState;
    }
}

int PlaybinEngine::stop()
{
    if (m_state == SPPlayer::STATE_IDLE || m_state == SPPlayer::STATE_INITIALIZED)
        return pswire::ResultOk;
    cancelPrepare();
    gst_element_set_state(m_playbin, GST_STATE_READY);
    if (m_videoOut)
        m_videoOut->sendStopped();
    if (m_subtitleOn && !m_subtitles.shown().isEmpty())
        emitEvent(pswire::EvSubtitleChanged, {QByteArray(), 1});
    m_subtitles.resetShown();
    m_lastPositionMs = 0;
    m_bufferingPercent = -1;
    clearSeek();
    setEngineState(SPPlayer::STATE_STOPPED);
    return pswire::ResultOk;
}

int PlaybinEngine::reset()
{
    cancelPrepare();
    // Each medium gets a fresh pipeline: a playbin reused after a failed
    // preroll can lose the error of the next failure and never preroll.
    destroyPipeline();
    createPipeline();
    m_uri.clear();
    m_network = false;
    m_seekable = false;
    m_durationMs = 0;
    m_lastPositionMs = 0;
    m_rate = 1.0;
    m_bufferingPercent = -1;
    clearSeek();
    m_subtitles.clear();
    m_subtitles.resetShown();
    m_external.clear();
    m_externalCurrent = -1;
    setEngineState(SPPlayer::STATE_IDLE);
    return pswire::ResultOk;
}

bool PlaybinEngine::seekWithRate(double rate, qint64 positionMs)
{
    const gint64 ns = qMax<qint64>(0, positionMs) * GST_MSECOND;
    const auto flags = GstSeekFlags(GST_SEEK_FLAG_FLUSH | GST_SEEK_FLAG_ACCURATE);
    const auto seekEvent = [&] {
        return rate > 0 ? gst_event_new_seek(rate, GST_FORMAT_TIME, flags, GST_SEEK_TYPE_SET, ns,
                                             GST_SEEK_TYPE_SET, GST_CLOCK_TIME_NONE)
                        : gst_event_new_seek(rate, GST_FORMAT_TIME, flags, GST_SEEK_TYPE_SET, 0,
                                             GST_SEEK_TYPE_SET, ns);
    };
    const QVector<GstPad *> flushed = flushSwitchedChains();
    gboolean sent = gst_element_send_event(m_playbin, seekEvent());
    if (!sent && !flushed.isEmpty()) {
        // The seek goes up from the sinks, and a flushing chain does not
        // pass it: with no other chain (a medium of audio streams alone) it
        // failed. It goes up from before the flushed selector instead; the
        // demuxer's flush then ends that flush, with a new segment.
        GstPad *upstream = gst_pad_get_peer(flushed.first());
        if (upstream) {
            sent = gst_pad_send_event(upstream, seekEvent());
            gst_object_unref(upstream);
        }
    }
    for (GstPad *pad : flushed) {
        // Without a seek nothing else would end the flush.
        if (!sent)
            gst_pad_send_event(pad, gst_event_new_flush_stop(FALSE));
        gst_object_unref(pad);
    }
    if (sent) {
        m_lastPositionMs = positionMs;
        m_seekPending = true;
        m_seekSettle.start();
    }
    return sent;
}

void PlaybinEngine::clearSeek()
{
    m_seekPending = false;
    m_speedPending = false;
    m_seekSettle.stop();
}

void PlaybinEngine::seekSettled()
{
    if (!m_seekPending)
        return;
    m_seekPending = false;
    m_seekSettle.stop();
    // A new rate is news once playback runs at it.
    if (m_speedPending) {
        m_speedPending = false;
        emitEvent(pswire::EvSpeedChanged, {m_rate.load()});
    }
    updateSubtitle();
}

int PlaybinEngine::seekTo(qint64 positionMs)
{
    if (!isPrepared())
        return pswire::ResultInvalidState;
    if (!m_seekable)
        return pswire::ResultUnsupported;
    qint64 target = qMax<qint64>(0, positionMs);
    if (m_durationMs > 0)
        target = qMin(target, m_durationMs.load());
    if (!seekWithRate(m_rate, target))
        return pswire::ResultFailed;
    // After the end the pipeline is still playing: the seek restarts it.
    if (m_state == SPPlayer::STATE_COMPLETED)
        setEngineState(SPPlayer::STATE_PLAYING);
    return pswire::ResultOk;
}

qint64 PlaybinEngine::position()
{
    switch (m_state) {
    case SPPlayer::STATE_PREPARED:
    case SPPlayer::STATE_PLAYING:
    case SPPlayer::STATE_PAUSED:
    case SPPlayer::STATE_COMPLETED: {
        gint64 ns = 0;
        if (!m_seekPending && queryPosition(&ns))
            m_lastPositionMs = nsToMs(ns);
        return m_lastPositionMs.load();
    }
    case SPPlayer::STATE_ERROR:
        return m_lastPositionMs.load();
    default:
        return 0;
    }
}

// The position of the bin is the furthest of its sinks; the subtitle sink
// takes cues ahead of time and would run ahead of what plays. The clocked
// sinks tell where playback is.
bool PlaybinEngine::queryPosition(gint64 *ns) const
{
    for (const char *property : {"audio-sink", "video-sink"}) {
        GstElement *sink = nullptr;
        g_object_get(m_playbin, property, &sink, nullptr);
        if (!sink)
            continue;
        const bool known = gst_element_query_position(sink, GST_FORMAT_TIME, ns) && *ns >= 0;
        gst_object_unref(sink);
        if (known)
            return true;
    }
    return gst_element_query_position(m_playbin, GST_FORMAT_TIME, ns) && *ns >= 0;
}

qint64 PlaybinEngine::duration()
{
    if (isPrepared() && m_durationMs <= 0) {
        gint64 ns = 0;
        if (gst_element_query_duration(m_playbin, GST_FORMAT_TIME, &ns) && ns > 0)
            m_durationMs = nsToMs(ns);
    }
    return m_durationMs.load();
}

int PlaybinEngine::setSpeed(double rate)
{
    if (!std::isfinite(rate) || rate == 0.0)
        return pswire::ResultUnsupported;
    if (!isPrepared())
        return pswire::ResultInvalidState;
    if (rate == m_rate)
        return pswire::ResultOk;
    if (!m_seekable)
        return pswire::ResultUnsupported;
    // The new rate starts where playback is now.
    if (!seekWithRate(rate, position()))
        return pswire::ResultUnsupported;
    m_rate = rate;
    m_speedPending = true;
    return pswire::ResultOk;
}
