#include "playbinengine.h"
#include "videoout.h"
#include "playbinengine_p.h"
#include "playbinpool.h"
#include "textsinkflush.h"
#include "errormap.h"
#include "pswire.h"

#include <QtCore/QDebug>
#include <QtCore/QFileInfo>
#include <QtCore/QUrl>

#include <gst/app/gstappsink.h>

#include <cstring>

using namespace playbinengine;

namespace {

using playback::SPPlayer;

// Subtitles and the other position-driven work are looked at this often
// while playing.
const int kTickMs = 40;
// A failed state change is normally explained by an error message; this
// long one is waited for before the preparation fails without it.
const int kFailureGraceMs = 500;
// While a local medium prerolls, this often it is checked that the preroll
// can still make progress.
const int kPrerollCheckMs = 200;
// A seek normally settles (the pipeline prerolled again) within milliseconds;
// this bounds the wait for the news of it.
const int kSeekSettleMs = 1000;

const char *const kNetworkSchemes[] = {"http", "https", "rtsp", "rtmp", "mms", "mmsh", "udp", "rtp"};

} // namespace

GstElement *playbinengine::makeSink(const QByteArray &description)
{
    if (description.isEmpty()) {
        GstElement *sink = gst_element_factory_make("fakesink", nullptr);
        if (sink)
            g_object_set(sink, "sync", TRUE, nullptr);
        return sink;
    }
    GError *error = nullptr;
    GstElement *sink = gst_parse_bin_from_description(description.constData(), TRUE, &error);
    if (!sink) {
        qWarning("cannot build sink \"%s\": %s", description.constData(), error ? error->message : "?");
        g_clear_error(&error);
        return makeSink(QByteArray());
    }
    return sink;
}

SinkConfig SinkConfig::fromEnvironment()
{
    SinkConfig config;
    config.audioSink = qgetenv("ORVIC_AUDIO_SINK");
    config.videoSink = qgetenv("ORVIC_VIDEO_SINK");
    return config;
}

PlaybinEngine::PlaybinEngine(const SinkConfig &sinks, QObject *parent)
    : QObject(parent),
      m_sinks(sinks),
      m_prepareTimer(this),
      m_prerollCheck(this),
      m_seekSettle(this),
      m_tick(this)
{
    m_seekSettle.setSingleShot(true);
    m_seekSettle.setInterval(kSeekSettleMs);
    connect(&m_seekSettle, &QTimer::timeout, this, &PlaybinEngine::seekSettled);
    m_prerollCheck.setInterval(kPrerollCheckMs);
    connect(&m_prerollCheck, &QTimer::timeout, this, &PlaybinEngine::checkPrerollProgress);
    m_prepareTimer.setSingleShot(true);
    connect(&m_prepareTimer, &QTimer::timeout, this, [this] { finishPrepare(pswire::ResultTimedOut); });
    m_tick.setInterval(kTickMs);
    connect(&m_tick, &QTimer::timeout, this, &PlaybinEngine::updateSubtitle);
    createPipeline();
}

PlaybinEngine::~PlaybinEngine()
{
    destroyPipeline();
}

bool PlaybinEngine::createPipeline()
{
    m_playbin = playbinpool::take();
    if (!m_playbin)
        m_playbin = gst_element_factory_make("playbin", nullptr);
    m_pipelineReusable = true;
    m_switchedStreams = 0;
    ++m_pipelineGeneration;
    if (!m_playbin) {
        qWarning("playbin is not available");
        return false;
    }
    m_textSink = gst_element_factory_make("appsink", nullptr);
    if (m_textSink) {
        GstCaps *caps = gst_caps_from_string("text/x-raw");
        // Cues are taken as early as they come and shown by position. The
        // sink renders nothing in time, so it claims no processing deadline:
        // its default 20 ms would become the latency of the whole pipeline
        // and hold back the start of every play and seek by as much.
        g_object_set(m_textSink, "sync", FALSE, "async", FALSE, "caps", caps, "max-buffers", 0,
                     "processing-deadline", G_GUINT64_CONSTANT(0), nullptr);
        gst_caps_unref(caps);
        GstAppSinkCallbacks callbacks{};
        callbacks.new_sample = [](GstAppSink *sink, gpointer self) {
            return onNewTextSample(GST_ELEMENT(sink), self);
        };
        gst_app_sink_set_callbacks(GST_APP_SINK(m_textSink), &callbacks, this, nullptr);
        guardFlushStops(m_textSink);
    }
    // A client's video channel, when one is attached, else the configured sink.
    GstElement *videoSink = makeVideoSink();
    g_object_set(m_playbin,
                 "audio-sink", makeAudioSink(),
                 "video-sink", videoSink ? videoSink : makeSink(m_sinks.videoSink),
                 "volume", m_volume / 100.0,
                 "mute", !m_audioOn,
                 nullptr);
    // Before the pipeline runs, so at once: no chain to rebuild yet.
    if (!m_videoOn)
        applyPlayFlag(m_playbin, kFlagVideo, false);
    setVideoFilters(m_playbin, videoSink != nullptr || !m_sinks.videoSink.isEmpty());
    if (m_textSink)
        g_object_set(m_playbin, "text-sink", m_textSink, nullptr);

    GstBus *bus = gst_element_get_bus(m_playbin);
    gst_bus_set_sync_handler(bus, &PlaybinEngine::busSyncHandler, this, nullptr);
    gst_object_unref(bus);
    g_signal_connect(m_playbin, "about-to-finish", G_CALLBACK(&PlaybinEngine::onAboutToFinish), this);
    for (const char *signal : {"video-changed", "audio-changed", "text-changed"})
        g_signal_connect(m_playbin, signal, G_CALLBACK(&PlaybinEngine::onStreamsChanged), this);
    m_hasPipeline = true;
    return true;
}

void PlaybinEngine::destroyPipeline()
{
    if (!m_playbin)
        return;
    m_hasPipeline = false;
    // NULL joins the streaming threads: after it nothing calls back into us.
    gst_element_set_state(m_playbin, GST_STATE_NULL);
    if (m_videoOut)
        m_videoOut->sendStopped();
    if (m_audioOut)
        m_audioOut->sendStopped();
    g_signal_handlers_disconnect_by_data(m_playbin, this);
    GstBus *bus = gst_element_get_bus(m_playbin);
    gst_bus_set_sync_handler(bus, nullptr, nullptr, nullptr);
    gst_object_unref(bus);
    // Only a playbin that never failed serves another medium: one reused
    // after a failed preroll can lose the error of the next failure and never
    // preroll. One that fed a client's channel, or whose preroll the end
    // broke off, is not kept either.
    if (m_pipelineReusable && !m_preparePending && !m_videoOut && !m_audioOut)
        playbinpool::park(m_playbin);
    else
        gst_object_unref(m_playbin);
    m_playbin = nullptr;
    m_textSink = nullptr;
}

// ------------------------------------------------------------- calls ----

void PlaybinEngine::handleCall(quint32 sequence, quint32 operation, const QVariantList &arguments)
{
    const auto arg = [&arguments](int i) { return arguments.value(i); };
    if (!m_playbin && operation != pswire::OpOpen) {
        Q_EMIT replyReady(sequence, int(pswire::ResultFailed), QByteArray());
        return;
    }
    QVariant result;
    QByteArray output;
    switch (operation) {
    case pswire::OpOpen:
        result = m_playbin ? m_volume.load() : int(pswire::ResultFailed);
        break;
    case pswire::OpSetUrl:
        result = setUrl(arg(0).toString());
        break;
    case pswire::OpSetSubUrl:
        result = setSubUrl(arg(0).toString());
        break;
    case pswire::OpPrepare:
        prepare(sequence);
        return; // answered when the preroll ends
    case pswire::OpPlay:
        result = play();
        break;
    case pswire::OpSeekTo:
        result = seekTo(arg(0).toLongLong());
        break;
    case pswire::OpPause:
        result = pause();
        break;
    case pswire::OpStop:
        result = stop();
        break;
    case pswire::OpReset:
        result = reset();
        break;
    case pswire::OpGetState:
        result = int(m_state);
        break;
    case pswire::OpGetDuration:
        result = duration();
        break;
    case pswire::OpGetPosition:
        result = position();
        break;
    case pswire::OpSetSpeed:
        result = setSpeed(arg(0).toDouble());
        break;
    case pswire::OpGetSpeed:
        result = m_rate.load();
        break;
    case pswire::OpIsTrickPlaySupported:
        result = isPrepared() && m_seekable;
        break;
    case pswire::OpGetVolume:
        result = m_volume.load();
        break;
    case pswire::OpChangeStream:
        result = changeStream(arg(0).toInt(), arg(1).toInt());
        break;
    case pswire::OpGetCurrentStream:
        result = currentStream(arg(0).toInt());
        break;
    case pswire::OpSetStreamVolume:
        result = setStreamVolume(arg(0).toInt());
        break;
    case pswire::OpSetParameter:
        result = setParameter(arg(1).toByteArray(), arg(2).toByteArray());
        break;
    case pswire::OpGetParameter:
        result = getParameter(arg(1).toByteArray(), &output);
        break;
    case pswire::OpGetSubtitleLanguage:
        result = subtitleLanguage(arg(0).toInt(), &output);
        break;
    default:
        result = int(pswire::ResultInvalidArgument);
        break;
    }
    Q_EMIT replyReady(sequence, result, output);
}

int PlaybinEngine::setUrl(const QString &url)
{
    if (m_state != SPPlayer::STATE_IDLE)
        reset();
    const QUrl parsed(url);
    QString uri;
    bool network = false;
    if (url.startsWith(QLatin1Char('/'))) {
        const QFileInfo file(url);
        if (!file.isFile() || !file.isReadable())
            return pswire::ResultNotFound;
        uri = QUrl::fromLocalFile(file.absoluteFilePath()).toString(QUrl::FullyEncoded);
    } else if (parsed.isValid() && !parsed.scheme().isEmpty()) {
        const QString scheme = parsed.scheme().toLower();
        if (scheme == QLatin1String("file")) {
            const QFileInfo file(parsed.toLocalFile());
            if (!file.isFile() || !file.isReadable())
                return pswire::ResultNotFound;
        } else if (!gst_uri_protocol_is_supported(GST_URI_SRC, scheme.toUtf8().constData())) {
            return pswire::ResultUnsupported;
        }
        for (const char *s : kNetworkSchemes)
            network = network || scheme == QLatin1String(s);
        uri = url;
    } else {
        return pswire::ResultInvalidArgument;
    }
    m_uri = uri;
    m_network = network;
    m_external.clear();
    m_externalCurrent = -1;
    g_object_set(m_playbin, "uri", uri.toUtf8().constData(), "suburi", nullptr, nullptr);
    setEngineState(SPPlayer::STATE_INITIALIZED);
    return pswire::ResultOk;
}

int PlaybinEngine::setSubUrl(const QString &url)
{
    if (m_state != SPPlayer::STATE_INITIALIZED)
        return pswire::ResultInvalidState;
    QString uri = url;
    if (url.startsWith(QLatin1Char('/')))
        uri = QUrl::fromLocalFile(url).toString(QUrl::FullyEncoded);
    // The medium's own URL: its embedded subtitle streams are used, and
    // the subtitle files beside a local medium.
    if (uri == m_uri || url == m_uri) {
        const QUrl medium(m_uri);
        if (medium.isLocalFile())
            m_external.setFiles(subtitlefiles::discover(medium.toLocalFile()));
        return pswire::ResultOk;
    }
    const QUrl parsed(uri);
    if (parsed.isLocalFile()) {
        const QFileInfo file(parsed.toLocalFile());
        if (!file.isFile() || !file.isReadable())
            return pswire::ResultNotFound;
    } else if (!parsed.isValid() || parsed.scheme().isEmpty()) {
        return pswire::ResultInvalidArgument;
    }
    g_object_set(m_playbin, "suburi", uri.toUtf8().constData(), nullptr);
    return pswire::ResultOk;
}

void PlaybinEngine::prepare(quint32 sequence)
{
    if (isPrepared()) {
        Q_EMIT replyReady(sequence, int(pswire::ResultOk), QByteArray());
        return;
    }
    if (m_preparePending
        || (m_state != SPPlayer::STATE_INITIALIZED && m_state != SPPlayer::STATE_STOPPED)) {
        Q_EMIT replyReady(sequence, int(pswire::ResultInvalidState), QByteArray());
        return;
    }
    m_preparePending = true;
    m_prepareSequence = sequence;
    m_aboutToFinishSent = false;
    m_subtitles.clear();
    m_subtitles.resetShown();
    m_noticesSent.clear();
    setEngineState(SPPlayer::STATE_PREPARING);
    m_prepareTimer.start(m_network ? kPrepareNetworkMs : kPrepareLocalMs);
    m_haltedChecks = 0;
    if (!m_network)
        m_prerollCheck.start();
    switch (gst_element_set_state(m_playbin, GST_STATE_PAUSED)) {
    case GST_STATE_CHANGE_SUCCESS:
    case GST_STATE_CHANGE_NO_PREROLL: // live source: nothing to preroll
        finishPrepare(pswire::ResultOk);
        break;
    case GST_STATE_CHANGE_FAILURE:
        // The error message that explains it is on its way.
        m_prepareTimer.start(kFailureGraceMs);
        break;
    case GST_STATE_CHANGE_ASYNC:
        break;
    }
}

void PlaybinEngine::finishPrepare(int result)
{
    if (!m_preparePending)
        return;
    m_preparePending = false;
    m_prepareTimer.stop();
    m_prerollCheck.stop();
    if (result == pswire::ResultTimedOut && m_state == SPPlayer::STATE_PREPARING)
        qWarning("preparation of %s timed out", qPrintable(m_uri));
    if (result == pswire::ResultOk) {
        gint64 ns = 0;
        m_durationMs = gst_element_query_duration(m_playbin, GST_FORMAT_TIME, &ns) && ns > 0 ? nsToMs(ns) : 0;
        m_seekable = false;
        GstQuery *query = gst_query_new_seeking(GST_FORMAT_TIME);
        if (gst_element_query(m_playbin, query)) {
            gboolean seekable = FALSE;
            gst_query_parse_seeking(query, nullptr, &seekable, nullptr, nullptr);
            m_seekable = seekable;
        }
        gst_query_unref(query);
        m_lastPositionMs = 0;
        const QList<int> notices = loadExternalSubtitles();
        reportStreamCounts(false);
        setEngineState(SPPlayer::STATE_PREPARED);
        emitEvent(pswire::EvDurationChanged, {m_durationMs.load()});
        emitEvent(pswire::EvSeekableChanged, {m_seekable.load()});
        emitEvent(pswire::EvPrepared);
        // A subtitle file that gives nothing is news, not a failure.
        for (int notice : notices) {
            if (!m_noticesSent.contains(notice)) {
                m_noticesSent.append(notice);
                emitEvent(pswire::EvError, {notice});
            }
        }
    } else {
        m_pipelineReusable = false;
        gst_element_set_state(m_playbin, GST_STATE_NULL);
        setEngineState(SPPlayer::STATE_ERROR);
    }
    Q_EMIT replyReady(m_prepareSequence, result, QByteArray());
}

void PlaybinEngine::cancelPrepare()
{
    if (!m_preparePending)
        return;
    m_preparePending = false;
    m_pipelineReusable = false; // left in the middle of a preroll
    m_prepareTimer.stop();
    m_prerollCheck.stop();
    Q_EMIT replyReady(m_prepareSequence, int(pswire::ResultCancelled), QByteArray());
}

// decodebin holds back the errors of an element while it plugs it in; a
// demuxer that fails in that moment (a file cut short, an empty container)
// stops without streams and without a word, and the preroll would wait for
// ever. Such a demuxer is recognised by its stopped task and its missing
// source pads, seen on two checks in a row.
void PlaybinEngine::checkPrerollProgress()
{
    if (!m_preparePending)
        return;
    if (!demuxerHaltedWithoutStreams()) {
        m_haltedChecks = 0;
        return;
    }
    if (++m_haltedChecks < 2)
        return;
    qWarning("preroll of %s cannot go on: the demuxer stopped without streams", qPrintable(m_uri));
    finishPrepare(errormap::kStreamBase + GST_STREAM_ERROR_DEMUX);
}

bool PlaybinEngine::demuxerHaltedWithoutStreams() const
{
    if (streamCount("n-video") + streamCount("n-audio") + streamCount("n-text") > 0)
        return false;
    bool halted = false;
    GstIterator *it = gst_bin_iterate_recurse(GST_BIN(m_playbin));
    GValue item = G_VALUE_INIT;
    for (bool done = false; !done;) {
        switch (gst_iterator_next(it, &item)) {
        case GST_ITERATOR_OK: {
            auto *element = GST_ELEMENT(g_value_get_object(&item));
            GstElementFactory *factory = gst_element_get_factory(element);
            const gchar *klass = factory
                    ? gst_element_factory_get_metadata(factory, GST_ELEMENT_METADATA_KLASS) : nullptr;
            // A demuxer that exposed streams, or one that hands data on in
            // pull mode (a tag demuxer), is not stuck.
            GST_OBJECT_LOCK(element);
            const bool exposedNothing = element->numsrcpads == 0;
            GST_OBJECT_UNLOCK(element);
            GstPad *sink = klass && std::strstr(klass, "Demux") && exposedNothing
                    ? gst_element_get_static_pad(element, "sink") : nullptr;
            if (sink) {
                GST_OBJECT_LOCK(sink);
                GstTask *task = GST_PAD_TASK(sink);
                if (task && gst_task_get_state(task) != GST_TASK_STARTED)
                    halted = true;
                GST_OBJECT_UNLOCK(sink);
                gst_object_unref(sink);
            }
            g_value_reset(&item);
            break;
        }
        case GST_ITERATOR_RESYNC:
            gst_iterator_resync(it);
            halted = false;
            break;
        default:
            done = true;
            break;
        }
    }
    g_value_unset(&item);
    gst_iterator_free(it);
    return halted;
}

bool PlaybinEngine::isPrepared() const
{
    switch (m_state) {
    case SPPlayer::STATE_PREPARED:
    case SPPlayer::STATE_PLAYING:
    case SPPlayer::STATE_PAUSED:
    case SPPlayer::STATE_COMPLETED:
        return true;
    default:
        return false;
    }
}

void PlaybinEngine::setEngineState(State state)
{
    if (state == m_state)
        return;
    m_state = state;
    emitEvent(pswire::EvStateChanged, {int(state)});
    updateTicking();
}

void PlaybinEngine::emitEvent(quint32 event, const QVariantList &arguments)
{
    Q_EMIT eventReady(event, arguments);
}

void PlaybinEngine::updateTicking()
{
    if (m_state == SPPlayer::STATE_PLAYING)
        m_tick.start();
    else
        m_tick.stop();
}
