// Pipeline side of the playback engine: bus messages, text samples and
// stream changes coming from GStreamer's threads, errors and buffering.
#include "playbinengine.h"
#include "playbinengine_p.h"
#include "errormap.h"
#include "pswire.h"

#include <gst/app/gstappsink.h>

#include <memory>

using namespace playbinengine;
using playback::SPPlayer;

namespace {
// Buffering levels below full are reported at most this often.
const int kBufferingReportMs = 250;

// Shared ownership of a message handed from a streaming thread to the engine.
using MessageRef = std::shared_ptr<GstMessage>;
} // namespace

GstBusSyncReply PlaybinEngine::busSyncHandler(GstBus *, GstMessage *message, gpointer self)
{
    auto *engine = static_cast<PlaybinEngine *>(self);
    if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR)
        engine->m_pipelineReusable = false;
    switch (GST_MESSAGE_TYPE(message)) {
    case GST_MESSAGE_ERROR:
    case GST_MESSAGE_WARNING:
    case GST_MESSAGE_EOS:
    case GST_MESSAGE_ASYNC_DONE:
    case GST_MESSAGE_DURATION_CHANGED:
    case GST_MESSAGE_BUFFERING: {
        MessageRef ref(gst_message_ref(message), gst_message_unref);
        // A message still queued when its pipeline ended is not news of the
        // next one: the second error of a failed medium would fail the next
        // medium's preparation, and a kept playbin is the same object again.
        const quint32 pipeline = engine->m_pipelineGeneration;
        QMetaObject::invokeMethod(engine, [engine, ref, pipeline] {
            if (pipeline == engine->m_pipelineGeneration)
                engine->handleMessage(ref.get());
        }, Qt::QueuedConnection);
        break;
    }
    default:
        break;
    }
    return GST_BUS_DROP;
}

GstFlowReturn PlaybinEngine::onNewTextSample(GstElement *sink, gpointer self)
{
    GstSample *sample = gst_app_sink_pull_sample(GST_APP_SINK(sink));
    if (!sample)
        return GST_FLOW_OK;
    GstBuffer *buffer = gst_sample_get_buffer(sample);
    if (buffer && GST_BUFFER_PTS_IS_VALID(buffer)) {
        guint64 start = GST_BUFFER_PTS(buffer);
        if (const GstSegment *segment = gst_sample_get_segment(sample)) {
            const guint64 streamTime = gst_segment_to_stream_time(segment, GST_FORMAT_TIME, start);
            if (streamTime != GST_CLOCK_TIME_NONE)
                start = streamTime;
        }
        const qint64 durationMs = GST_BUFFER_DURATION_IS_VALID(buffer)
                ? qint64(GST_BUFFER_DURATION(buffer) / GST_MSECOND) : -1;
        QByteArray text;
        GstMapInfo map;
        if (gst_buffer_map(buffer, &map, GST_MAP_READ)) {
            text = QByteArray(reinterpret_cast<const char *>(map.data), int(map.size));
            gst_buffer_unmap(buffer, &map);
        }
        while (text.endsWith('\0'))
            text.chop(1);
        const GstStructure *caps = gst_sample_get_caps(sample)
                ? gst_caps_get_structure(gst_sample_get_caps(sample), 0) : nullptr;
        const gchar *format = caps ? gst_structure_get_string(caps, "format") : nullptr;
        if (format && g_str_equal(format, "pango-markup"))
            text = SubtitleScheduler::plainTextFromMarkup(text);
        auto *engine = static_cast<PlaybinEngine *>(self);
        const qint64 startMs = qint64(start / GST_MSECOND);
        QMetaObject::invokeMethod(engine, [engine, startMs, durationMs, text] {
            engine->addSubtitleSample(startMs, durationMs, text);
        }, Qt::QueuedConnection);
    }
    gst_sample_unref(sample);
    return GST_FLOW_OK;
}

void PlaybinEngine::onAboutToFinish(GstElement *, gpointer self)
{
    auto *engine = static_cast<PlaybinEngine *>(self);
    QMetaObject::invokeMethod(engine, [engine] {
        // playbin asks again after every seek near the end; once per medium is news.
        if (engine->m_aboutToFinishSent || (!engine->isPrepared() && !engine->m_preparePending))
            return;
        engine->m_aboutToFinishSent = true;
        engine->emitEvent(pswire::EvAboutToFinish);
    }, Qt::QueuedConnection);
}

void PlaybinEngine::onStreamsChanged(GstElement *, gpointer self)
{
    auto *engine = static_cast<PlaybinEngine *>(self);
    QMetaObject::invokeMethod(engine, [engine] {
        if (engine->isPrepared())
            engine->reportStreamCounts(true); // counted at the end of the preparation before
    }, Qt::QueuedConnection);
}

void PlaybinEngine::reportStreamCounts(bool onlyChanges)
{
    static const struct {
        SPPlayer::stream_type_e type;
        const char *property;
    } kinds[3] = {{SPPlayer::STREAM_VIDEO, "n-video"},
                  {SPPlayer::STREAM_AUDIO, "n-audio"},
                  {SPPlayer::STREAM_SUBTITLE, "n-text"}};
    for (int i = 0; i < 3; ++i) {
        const int count = kinds[i].type == SPPlayer::STREAM_SUBTITLE ? subtitleCount()
                                                                      : streamCount(kinds[i].property);
        if (onlyChanges && count == m_streamCounts[i])
            continue;
        m_streamCounts[i] = count;
        if (onlyChanges)
            emitEvent(pswire::EvMediaAvailableChanged, {int(kinds[i].type), count});
    }
}

void PlaybinEngine::handleMessage(GstMessage *message)
{
    switch (GST_MESSAGE_TYPE(message)) {
    case GST_MESSAGE_ERROR:
        handleError(message);
        break;
    case GST_MESSAGE_WARNING:
        handleWarning(message);
        break;
    case GST_MESSAGE_EOS:
        if (m_preparePending || !isPrepared())
            break;
        setEngineState(SPPlayer::STATE_COMPLETED);
        updateSubtitle();
        emitEvent(pswire::EvPlaybackFinish);
        break;
    case GST_MESSAGE_ASYNC_DONE:
        if (m_preparePending && GST_MESSAGE_SRC(message) == GST_OBJECT(m_playbin))
            finishPrepare(pswire::ResultOk);
        else if (isPrepared())
            seekSettled();
        break;
    case GST_MESSAGE_DURATION_CHANGED: {
        gint64 ns = 0;
        if (isPrepared() && gst_element_query_duration(m_playbin, GST_FORMAT_TIME, &ns) && ns > 0
            && nsToMs(ns) != m_durationMs) {
            m_durationMs = nsToMs(ns);
            emitEvent(pswire::EvDurationChanged, {m_durationMs.load()});
        }
        break;
    }
    case GST_MESSAGE_BUFFERING:
        handleBuffering(message);
        break;
    default:
        break;
    }
}

void PlaybinEngine::handleError(GstMessage *message)
{
    GError *error = nullptr;
    gchar *debug = nullptr;
    gst_message_parse_error(message, &error, &debug);
    const int number = errormap::errorNumber(error->domain, error->code);
    qWarning("error %d (%s %d) from %s: %s [%s]", number, g_quark_to_string(error->domain), error->code,
             GST_OBJECT_NAME(GST_MESSAGE_SRC(message)), error->message, debug ? debug : "");
    g_clear_error(&error);
    g_free(debug);

    if (m_preparePending) {
        finishPrepare(number);
        return;
    }
    if (m_state == SPPlayer::STATE_ERROR || !isPrepared())
        return; // the first error of a failure is the one reported
    position(); // where it broke off stays the position
    gst_element_set_state(m_playbin, GST_STATE_READY);
    emitEvent(pswire::EvError, {number});
    setEngineState(SPPlayer::STATE_ERROR);
}

void PlaybinEngine::handleWarning(GstMessage *message)
{
    GError *error = nullptr;
    gchar *debug = nullptr;
    gst_message_parse_warning(message, &error, &debug);
    const int number = error ? errormap::warningNumber(error->domain, error->code) : errormap::kNoticeOther;
    qWarning("warning %d from %s: %s [%s]", number, GST_OBJECT_NAME(GST_MESSAGE_SRC(message)),
             error ? error->message : "", debug ? debug : "");
    g_clear_error(&error);
    g_free(debug);
    // One notice of a kind per medium: a damaged stream warns on every frame.
    if (m_noticesSent.contains(number))
        return;
    m_noticesSent.append(number);
    emitEvent(pswire::EvError, {number});
}

// Buffering of network media is reported as it goes, a full buffer at once,
// other levels at most every kBufferingReportMs: the queue's level swings
// with every chunk a slow server sends. Playback is not paused for it:
// pausing on those swings stalls playback that the sinks would carry on
// with; an underrun simply makes the sinks wait.
void PlaybinEngine::handleBuffering(GstMessage *message)
{
    gint percent = 0;
    gst_message_parse_buffering(message, &percent);
    if (percent == m_bufferingPercent || m_state == SPPlayer::STATE_ERROR)
        return;
    const bool edge = percent == 100 || m_bufferingPercent == 100 || m_bufferingPercent < 0;
    if (!edge && m_bufferingReported.isValid() && m_bufferingReported.elapsed() < kBufferingReportMs)
        return;
    m_bufferingPercent = percent;
    m_bufferingReported.start();
    emitEvent(pswire::EvBufferingProgress, {percent});
}

void PlaybinEngine::addSubtitleSample(qint64 startMs, qint64 durationMs, const QByteArray &text)
{
    if (!isPrepared() && !m_preparePending)
        return; // left over from before a stop or reset
    if (m_externalCurrent >= 0)
        return; // a subtitle file is shown, not the embedded stream
    m_subtitles.add(startMs, durationMs, text);
    if (m_state == SPPlayer::STATE_PLAYING)
        updateSubtitle();
}

void PlaybinEngine::updateSubtitle()
{
    if (!m_subtitleOn || !isPrepared() || m_seekPending)
        return;
    QByteArray text;
    if (m_subtitles.update(position(), &text))
        emitEvent(pswire::EvSubtitleChanged, {text, 1});
}
