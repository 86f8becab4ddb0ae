// Subtitle cues of the playing medium, shown by playback position.
// The text sink hands cues over ahead of time and again after a flushing
// seek; cues are kept by start time (so a repeated one is the same cue) and
// the visible text is derived from the position, which also makes pausing,
// seeking and rate changes come out right.
#ifndef PSSERVER_SUBTITLESCHEDULER_H
#define PSSERVER_SUBTITLESCHEDULER_H

#include <QtCore/QByteArray>
#include <QtCore/QMap>

class SubtitleScheduler
{
public:
    // A cue whose duration is unknown shows until the next cue, at most this long.
    static constexpr qint64 kOpenEndedMs = 5000;

    // `durationMs` < 0: unknown. Empty text is a gap that clears the screen.
    void add(qint64 startMs, qint64 durationMs, const QByteArray &text);
    void clear();
    // Forget what is shown, so that the next update reports the visible text anew.
    void resetShown();

    // Text visible at `positionMs`.
    QByteArray textAt(qint64 positionMs) const;
    // True when the visible text at `positionMs` differs from the text shown
    // last; `text` then holds the new text (empty: clear the screen).
    bool update(qint64 positionMs, QByteArray *text);

    int cueCount() const { return m_cues.size(); }
    // Text shown last (empty when the screen is clear).
    QByteArray shown() const { return m_shown; }

    // Pango markup (what the subtitle parser gives for SRT and friends) as
    // plain UTF-8: tags dropped, the five XML entities resolved.
    static QByteArray plainTextFromMarkup(const QByteArray &markup);

private:
    struct Cue
    {
        qint64 durationMs;
        QByteArray text;
    };
    QMap<qint64, Cue> m_cues;
    QByteArray m_shown;
};

#endif // PSSERVER_SUBTITLESCHEDULER_H
