// Streams and switches of the playback engine: stream counts and choice,
// volume, the parameters of the client and stream languages.
#include "playbinengine.h"
#include "playbinengine_p.h"
#include "errormap.h"
#include "pswire.h"

#include <QtCore/QDeadlineTimer>
#include <QtCore/QMutex>
#include <QtCore/QWaitCondition>

#include <memory>

using namespace playbinengine;
using playback::SPPlayer;

namespace {
// Languages are handed back in the engine's 8-byte field, NUL included.
const int kLanguageBytes = 7;

// playbin's names for one kind of stream.
struct StreamKind
{
    const char *count;     // how many the medium has
    const char *current;   // the one in use
    const char *inputPad;  // action signal: the selector's input of a stream
};

// The longest wait for the tags of an embedded subtitle stream (below).
const int kTextTagsWaitMs = 300;

// Null for a type that is not a kind of stream.
const StreamKind *streamKind(int type)
{
    static const StreamKind video = {"n-video", "current-video", "get-video-pad"};
    static const StreamKind audio = {"n-audio", "current-audio", "get-audio-pad"};
    static const StreamKind text = {"n-text", "current-text", "get-text-pad"};
    switch (type) {
    case SPPlayer::STREAM_VIDEO:
        return &video;
    case SPPlayer::STREAM_AUDIO:
        return &audio;
    case SPPlayer::STREAM_SUBTITLE:
        return &text;
    default:
        return nullptr;
    }
}
} // namespace

int PlaybinEngine::streamCount(const char *property) const
{
    gint n = 0;
    g_object_get(m_playbin, property, &n, nullptr);
    return n;
}

int PlaybinEngine::changeStream(int type, int index)
{
    const StreamKind *kind = streamKind(type);
    if (!kind)
        return pswire::ResultInvalidArgument;
    if (!isPrepared())
        return pswire::ResultInvalidState;
    if (type == SPPlayer::STREAM_SUBTITLE) {
        if (index < 0 || index >= subtitleCount())
            return pswire::ResultInvalidArgument;
        const int embedded = streamCount(kind->count);
        if (index >= embedded) {
            showExternalSubtitles(index - embedded);
            emitEvent(pswire::EvStreamChanged, {type, index});
            return pswire::ResultOk;
        }
        m_externalCurrent = -1;
    }
    if (index < 0 || index >= streamCount(kind->count))
        return pswire::ResultInvalidArgument;
    g_object_set(m_playbin, kind->current, index, nullptr);
    m_switchedStreams |= 1u << type;
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

// playbin's stream selectors hand on the flush of their active input only.
// The streaming thread of the input that was active before a switch may
// still be inside the chain behind the selector, waiting there for room
// (while the sink holds its preroll: in a pause, or before the pipeline runs
// again after a seek). A seek's flush comes to that input: the selector drops
// it, the chain stays blocked, and the seek waits for that thread for ever.
// Flushing each switched chain through its active input first lets that
// thread go; the seek's own flush stop then ends the flush (see also
// seekWithRate()).
QVector<GstPad *> PlaybinEngine::flushSwitchedChains()
{
    QVector<GstPad *> flushed;
    for (int type : {SPPlayer::STREAM_VIDEO, SPPlayer::STREAM_AUDIO, SPPlayer::STREAM_SUBTITLE}) {
        if (!(m_switchedStreams & (1u << type)))
            continue;
        const StreamKind *kind = streamKind(type);
        gint index = -1;
        g_object_get(m_playbin, kind->current, &index, nullptr);
        GstPad *pad = nullptr;
        g_signal_emit_by_name(m_playbin, kind->inputPad, index, &pad);
        if (!pad)
            continue;
        gst_pad_send_event(pad, gst_event_new_flush_start());
        flushed.append(pad);
    }
    m_switchedStreams = 0;
    return flushed;
}

int PlaybinEngine::currentStream(int type) const
{
    const StreamKind *kind = streamKind(type);
    if (!kind)
        return pswire::ResultInvalidArgument;
    if (type == SPPlayer::STREAM_SUBTITLE && m_externalCurrent >= 0)
        return streamCount(kind->count) + m_externalCurrent;
    // playbin keeps the index it last chose until a medium with such a
    // stream comes: a kept playbin (playbinpool.h) would otherwise answer
    // for a stream of the medium before. None of the kind: none current.
    if (streamCount(kind->count) == 0)
        return -1;
    gint index = -1;
    g_object_get(m_playbin, kind->current, &index, nullptr);
    return index;
}

int PlaybinEngine::setStreamVolume(int volume)
{
    if (volume < 0 || volume > 100)
        return pswire::ResultInvalidArgument;
    m_volume = volume;
    writeVolume(volume);
    emitEvent(pswire::EvVolumeChanged, {volume});
    return pswire::ResultOk;
}

void PlaybinEngine::writeVolume(int volume)
{
    if (!m_playbin)
        return;
    m_writer.post(m_playbin, [volume](GstElement *playbin) {
        g_object_set(playbin, "volume", volume / 100.0, nullptr);
    });
}

void PlaybinEngine::applyPlayFlag(GstElement *playbin, int flag, bool on)
{
    gint flags = 0;
    g_object_get(playbin, "flags", &flags, nullptr);
    flags = on ? (flags | flag) : (flags & ~flag);
    g_object_set(playbin, "flags", flags, nullptr);
}

// Frames that go to the bare fakesink are seen by nobody: the decoder's own
// format is taken as it is, without the converters, the deinterlacer and the
// colour balance that playbin otherwise plugs in and negotiates through on
// every preparation. A real sink (a configured one, a client's video
// channel) gets them all, as playbin's defaults have it.
void playbinengine::setVideoFilters(GstElement *playbin, bool shown)
{
    gint flags = 0;
    g_object_get(playbin, "flags", &flags, nullptr);
    flags = shown ? ((flags | kVideoFilterFlags) & ~kFlagNativeVideo)
                  : ((flags & ~kVideoFilterFlags) | kFlagNativeVideo);
    g_object_set(playbin, "flags", flags, nullptr);
}

void PlaybinEngine::setPlayFlag(int flag, bool on)
{
    m_writer.post(m_playbin, [flag, on](GstElement *playbin) { applyPlayFlag(playbin, flag, on); });
}

int PlaybinEngine::setParameter(const QByteArray &key, const QByteArray &value)
{
    if (value.isEmpty())
        return pswire::ResultInvalidArgument;
    if (key == "video-out")
        return attachVideoOut(value);
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
        m_writer.post(m_playbin, [on](GstElement *playbin) {
            g_object_set(playbin, "mute", !on, nullptr);
        });
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
        value = subtitleCount();
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
    if (!isPrepared() || index < 0 || index >= subtitleCount())
        return pswire::ResultInvalidArgument;
    const int embedded = streamCount("n-text");
    if (index >= embedded) {
        *output = m_external.stream(index - embedded).language.left(kLanguageBytes);
        return pswire::ResultOk;
    }
    GstTagList *tags = textTags(index);
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

// The demuxers send a tag list ahead of each stream's data, with the codec at
// least. A subtitle stream is sparse and its sink does not hold the preroll:
// the preparation can end before that list has come down a subtitle stream,
// and its language would read as none. Until the list has come (at most
// kTextTagsWaitMs), the question waits for it.
GstTagList *PlaybinEngine::textTags(int index) const
{
    GstTagList *tags = nullptr;
    g_signal_emit_by_name(m_playbin, "get-text-tags", index, &tags);
    if (tags)
        return tags;
    GstPad *pad = nullptr;
    g_signal_emit_by_name(m_playbin, "get-text-pad", index, &pad);
    if (!pad)
        return nullptr;
    struct Arrival
    {
        QMutex mutex;
        QWaitCondition came;
        bool tagged = false;
    };
    // Shared with the probe: a call of it under way on a streaming thread
    // may outlast its removal, and GStreamer drops its share only after that.
    const auto arrival = std::make_shared<Arrival>();
    const gulong probe = gst_pad_add_probe(
            pad, GST_PAD_PROBE_TYPE_EVENT_DOWNSTREAM,
            [](GstPad *, GstPadProbeInfo *info, gpointer data) {
                if (GST_EVENT_TYPE(GST_PAD_PROBE_INFO_EVENT(info)) == GST_EVENT_TAG) {
                    Arrival &arrival = **static_cast<std::shared_ptr<Arrival> *>(data);
                    QMutexLocker lock(&arrival.mutex);
                    arrival.tagged = true;
                    arrival.came.wakeAll();
                }
                return GST_PAD_PROBE_OK;
            },
            new std::shared_ptr<Arrival>(arrival),
            [](gpointer data) { delete static_cast<std::shared_ptr<Arrival> *>(data); });
    // Asked again with the probe in place: a list that came in between is seen.
    g_signal_emit_by_name(m_playbin, "get-text-tags", index, &tags);
    if (!tags) {
        const QDeadlineTimer deadline(kTextTagsWaitMs);
        QMutexLocker lock(&arrival->mutex);
        while (!arrival->tagged && arrival->came.wait(&arrival->mutex, deadline)) {
        }
    }
    gst_pad_remove_probe(pad, probe);
    gst_object_unref(pad);
    if (!tags)
        g_signal_emit_by_name(m_playbin, "get-text-tags", index, &tags);
    return tags;
}
