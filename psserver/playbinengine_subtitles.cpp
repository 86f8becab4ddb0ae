// Subtitle streams of the playback engine that come from files beside the
// medium: read once the medium is prepared, counted after the embedded
// streams, shown through the same scheduler as embedded cues.
#include "playbinengine.h"
#include "playbinengine_p.h"
#include "pswire.h"

using namespace playbinengine;
using playback::SPPlayer;

int PlaybinEngine::subtitleCount() const
{
    return streamCount("n-text") + m_external.count();
}

QList<int> PlaybinEngine::loadExternalSubtitles()
{
    QList<int> notices;
    if (m_external.hasFiles() && !m_external.isLoaded())
        notices = m_external.load(videoFrameRate()).notices;
    // A medium of no subtitles of its own shows its first file.
    if (m_externalCurrent < 0 && m_external.count() > 0 && streamCount("n-text") == 0)
        m_externalCurrent = 0;
    if (m_externalCurrent >= m_external.count())
        m_externalCurrent = -1;
    if (m_externalCurrent >= 0)
        showExternalSubtitles(m_externalCurrent);
    return notices;
}

void PlaybinEngine::showExternalSubtitles(int index)
{
    if (m_subtitleOn && !m_subtitles.shown().isEmpty())
        emitEvent(pswire::EvSubtitleChanged, {QByteArray(), 1});
    m_subtitles.clear();
    m_subtitles.resetShown();
    m_externalCurrent = index;
    for (const SubtitleCue &cue : m_external.stream(index).cues)
        m_subtitles.add(cue.startMs, cue.endMs < 0 ? -1 : cue.endMs - cue.startMs, cue.text.toUtf8());
    if (isPrepared())
        updateSubtitle();
}

double PlaybinEngine::videoFrameRate() const
{
    GstPad *pad = nullptr;
    g_signal_emit_by_name(m_playbin, "get-video-pad", 0, &pad);
    if (!pad)
        return 0;
    double rate = 0;
    if (GstCaps *caps = gst_pad_get_current_caps(pad)) {
        gint numerator = 0;
        gint denominator = 0;
        const GstStructure *structure = gst_caps_get_size(caps) > 0 ? gst_caps_get_structure(caps, 0) : nullptr;
        if (structure && gst_structure_get_fraction(structure, "framerate", &numerator, &denominator)
            && numerator > 0 && denominator > 0)
            rate = double(numerator) / denominator;
        gst_caps_unref(caps);
    }
    gst_object_unref(pad);
    return rate;
}
