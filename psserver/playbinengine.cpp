#include "playbinengine.h"
#include "errormap.h"
#include "pswire.h"

#include <QtCore/QDebug>
#include <QtCore/QFileInfo>
#include <QtCore/QtEndian>
#include <QtCore/QUrl>

#include <gst/app/gstappsink.h>

#include <cmath>
#include <cstring>
#include <memory>

namespace {

using playback::SPPlayer;

// playbin's GstPlayFlags.
const int kFlagVideo = 1 << 0;
const int kFlagText = 1 << 2;

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
// Buffering levels below full are reported at most this often.
const int kBufferingReportMs = 250;
// Languages are handed back in the engine's 8-byte field, NUL included.
const int kLanguageBytes = 7;

const char *const kNetworkSchemes[] = {"http", "https", "rtsp", "rtmp", "mms", "mmsh", "udp", "rtp"};

qint64 nsToMs(gint64 ns)
{
    return ns / GST_MSECOND;
}

QByteArray intBytes(int value)
{
    QByteArray bytes(4, '\0');
    qToLittleEndian<qint32>(value, bytes.data());
    return bytes;
}

GstElement *makeSink(const QByteArray &description)
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

// Shared ownership of a message handed from a streaming thread to the engine.
using MessageRef = std::shared_ptr<GstMessage>;

} // namespace

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
    m_playbin = gst_element_factory_make("playbin", nullptr);
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
    }
    g_object_set(m_playbin,
                 "audio-sink", makeSink(m_sinks.audioSink),
                 "video-sink", makeSink(m_sinks.videoSink),
                 "volume", m_volume / 100.0,
                 "mute", !m_audioOn,
                 nullptr);
    if (!m_videoOn)
        setPlayFlag(kFlagVideo, false);
    if (m_textSink)
        g_object_set(m_playbin, "text-sink", m_textSink, nullptr);

    GstBus *bus = gst_element_get_bus(m_playbin);
    gst_bus_set_sync_handler(bus, &PlaybinEngine::busSyncHandler, this, nullptr);
    gst_object_unref(bus);
    g_signal_connect(m_playbin, "about-to-finish", G_CALLBACK(&PlaybinEngine::onAboutToFinish), this);
    for (const char *signal : {"video-changed", "audio-changed", "text-changed"})
        g_signal_connect(m_playbin, signal, G_CALLBACK(&PlaybinEngine::onStreamsChanged), this);
    return true;
}

void PlaybinEngine::destroyPipeline()
{
    if (!m_playbin)
        return;
    // NULL joins the streaming threads: after it nothing calls back into us.
    gst_element_set_state(m_playbin, GST_STATE_NULL);
    g_signal_handlers_disconnect_by_data(m_playbin, this);
    GstBus *bus = gst_element_get_bus(m_playbin);
    gst_bus_set_sync_handler(bus, nullptr, nullptr, nullptr);
    gst_object_unref(bus);
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
        result = m_playbin ? m_volume : int(pswire::ResultFailed);
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
        result = m_rate;
        break;
    case pswire::OpIsTrickPlaySupported:
        result = isPrepared() && m_seekable;
        break;
    case pswire::OpGetVolume:
        result = m_volume;
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
    // The medium's own URL: its embedded subtitle streams are used.
    if (uri == m_uri || url == m_uri)
        return pswire::ResultOk;
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
        reportStreamCounts(false);
        setEngineState(SPPlayer::STATE_PREPARED);
        emitEvent(pswire::EvDurationChanged, {m_durationMs});
        emitEvent(pswire::EvSeekableChanged, {m_seekable});
        emitEvent(pswire::EvPrepared);
    } else {
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

int PlaybinEngine::play()
{
    switch (m_state) {
    case SPPlayer::STATE_PLAYING:
        return pswire::ResultOk;
    case SPPlayer::STATE_COMPLETED:
        // Play after the end starts over (from the end when playing backwards).
        if (!seekWithRate(m_rate, m_rate < 0 ? m_durationMs : 0))
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
    setEngineState(SPPlayer::STATE_IDLE);
    return pswire::ResultOk;
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

bool PlaybinEngine::seekWithRate(double rate, qint64 positionMs)
{
    const gint64 ns = qMax<qint64>(0, positionMs) * GST_MSECOND;
    const auto flags = GstSeekFlags(GST_SEEK_FLAG_FLUSH | GST_SEEK_FLAG_ACCURATE);
    const gboolean sent = rate > 0
            ? gst_element_seek(m_playbin, rate, GST_FORMAT_TIME, flags, GST_SEEK_TYPE_SET, ns,
                               GST_SEEK_TYPE_SET, GST_CLOCK_TIME_NONE)
            : gst_element_seek(m_playbin, rate, GST_FORMAT_TIME, flags, GST_SEEK_TYPE_SET, 0,
                               GST_SEEK_TYPE_SET, ns);
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
        emitEvent(pswire::EvSpeedChanged, {m_rate});
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
        target = qMin(target, m_durationMs);
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
        return m_lastPositionMs;
    }
    case SPPlayer::STATE_ERROR:
        return m_lastPositionMs;
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
    return m_durationMs;
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

int PlaybinEngine::streamCount(const char *property) const
{
    gint n = 0;
    g_object_get(m_playbin, property, &n, nullptr);
    return n;
}

int PlaybinEngine::changeStream(int type, int index)
{
    const char *count = nullptr;
    const char *current = nullptr;
    switch (type) {
    case SPPlayer::STREAM_VIDEO:
        count = "n-video";
        current = "current-video";
        break;
    case SPPlayer::STREAM_AUDIO:
        count = "n-audio";
        current = "current-audio";
        break;
    case SPPlayer::STREAM_SUBTITLE:
        count = "n-text";
        current = "current-text";
        break;
    default:
        return pswire::ResultInvalidArgument;
    }
    if (!isPrepared())
        return pswire::ResultInvalidState;
    if (index < 0 || index >= streamCount(count))
        return pswire::ResultInvalidArgument;
    g_object_set(m_playbin, current, index, nullptr);
    if (type == SPPlayer::STREAM_SUBTITLE) {
        // Cues of the old stream go; a flushing seek brings the new
        // stream's cues for the current position.
        if (m_subtitleOn && !m_subtitles.shown().isEmpty())
            emitEvent(pswire::EvSubtitleChanged, {QByteArray(), 1});
        m_subtitles.clear();
        m_subtitles.resetShown();
        if (m_seekable)
            seekWithRate(m_rate, position());
    }
    emitEvent(pswire::EvStreamChanged, {type, index});
    return pswire::ResultOk;
}

int PlaybinEngine::currentStream(int type) const
{
    const char *current = nullptr;
    switch (type) {
    case SPPlayer::STREAM_VIDEO:
        current = "current-video";
        break;
    case SPPlayer::STREAM_AUDIO:
        current = "current-audio";
        break;
    case SPPlayer::STREAM_SUBTITLE:
        current = "current-text";
        break;
    default:
        return pswire::ResultInvalidArgument;
    }
    gint index = -1;
    g_object_get(m_playbin, current, &index, nullptr);
    return index;
}

int PlaybinEngine::setStreamVolume(int volume)
{
    if (volume < 0 || volume > 100)
        return pswire::ResultInvalidArgument;
    m_volume = volume;
    g_object_set(m_playbin, "volume", volume / 100.0, nullptr);
    emitEvent(pswire::EvVolumeChanged, {volume});
    return pswire::ResultOk;
}

void PlaybinEngine::setPlayFlag(int flag, bool on)
{
    gint flags = 0;
    g_object_get(m_playbin, "flags", &flags, nullptr);
    flags = on ? (flags | flag) : (flags & ~flag);
    g_object_set(m_playbin, "flags", flags, nullptr);
}

int PlaybinEngine::setParameter(const QByteArray &key, const QByteArray &value)
{
    if (value.isEmpty())
        return pswire::ResultInvalidArgument;
    const bool on = value.count('\0') != value.size();
    if (key == "set-subtitle-onoff") {
        if (on != m_subtitleOn) {
            m_subtitleOn = on;
            m_subtitles.resetShown();
            if (on && isPrepared())
                updateSubtitle();
        }
        return pswire::ResultOk;
    }
    if (key == "set-video-onoff") {
        if (on != m_videoOn) {
            m_videoOn = on;
            setPlayFlag(kFlagVideo, on);
            emitEvent(pswire::EvError, {errormap::kVideoAvailabilityChanged});
        }
        return pswire::ResultOk;
    }
    if (key == "set-audio-onoff") {
        // Muting keeps the audio clock and the stream in place, so audio
        // comes back at once and in sync.
        m_audioOn = on;
        g_object_set(m_playbin, "mute", !on, nullptr);
        return pswire::ResultOk;
    }
    return pswire::ResultInvalidArgument;
}

int PlaybinEngine::getParameter(const QByteArray &key, QByteArray *output) const
{
    int value;
    if (key == "get-audio-count")
        value = streamCount("n-audio");
    else if (key == "get-subtitle-count")
        value = streamCount("n-text");
    else if (key == "get-video-count")
        value = streamCount("n-video");
    else if (key == "get-subtitle-onoff")
        value = m_subtitleOn;
    else if (key == "get-video-onoff")
        value = m_videoOn;
    else if (key == "get-audio-onoff")
        value = m_audioOn;
    else
        return pswire::ResultInvalidArgument;
    *output = intBytes(value);
    return pswire::ResultOk;
}

int PlaybinEngine::subtitleLanguage(int index, QByteArray *output) const
{
    if (!isPrepared() || index < 0 || index >= streamCount("n-text"))
        return pswire::ResultInvalidArgument;
    GstTagList *tags = nullptr;
    g_signal_emit_by_name(m_playbin, "get-text-tags", index, &tags);
    output->clear();
    if (tags) {
        gchar *code = nullptr;
        if (gst_tag_list_get_string(tags, GST_TAG_LANGUAGE_CODE, &code) && code)
            *output = QByteArray(code).left(kLanguageBytes);
        g_free(code);
        gst_tag_list_unref(tags);
    }
    return pswire::ResultOk;
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

// ---------------------------------------------------------- pipeline ----

GstBusSyncReply PlaybinEngine::busSyncHandler(GstBus *, GstMessage *message, gpointer self)
{
    auto *engine = static_cast<PlaybinEngine *>(self);
    switch (GST_MESSAGE_TYPE(message)) {
    case GST_MESSAGE_ERROR:
    case GST_MESSAGE_WARNING:
    case GST_MESSAGE_EOS:
    case GST_MESSAGE_ASYNC_DONE:
    case GST_MESSAGE_DURATION_CHANGED:
    case GST_MESSAGE_BUFFERING: {
        MessageRef ref(gst_message_ref(message), gst_message_unref);
        QMetaObject::invokeMethod(engine, [engine, ref] { engine->handleMessage(ref.get()); },
                                  Qt::QueuedConnection);
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
        const int count = streamCount(kinds[i].property);
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
            emitEvent(pswire::EvDurationChanged, {m_durationMs});
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
