// Timed text of the subtitle file formats found beside media (SRT, WebVTT,
// SAMI, ASS/SSA, MicroDVD) as plain cues. Markup is reduced to plain text,
// lines are kept apart by '\n'. A SAMI file gives one track per language
// class; the other formats give one track.
#ifndef PSSERVER_SUBTITLEPARSER_H
#define PSSERVER_SUBTITLEPARSER_H

#include "subtitlefiles.h"

#include <QtCore/QByteArray>
#include <QtCore/QList>
#include <QtCore/QString>
#include <QtCore/QVector>

struct SubtitleCue
{
    qint64 startMs;
    qint64 endMs; // < 0: until the next cue
    QString text;

    bool operator==(const SubtitleCue &other) const
    {
        return startMs == other.startMs && endMs == other.endMs && text == other.text;
    }
};

struct SubtitleTrack
{
    QByteArray language; // ISO 639 code; empty when the file does not say
    QVector<SubtitleCue> cues;
};

namespace subtitleparser {

// MicroDVD counts frames; when neither the file nor the video tells the rate.
constexpr double kDefaultFramesPerSecond = 24000.0 / 1001.0;

// Tracks of `text` in `format`, their cues normalised; tracks without a cue
// are left out. `framesPerSecond` <= 0: the file's own rate or the default.
QList<SubtitleTrack> parse(SubtitleFormat format, const QString &text, double framesPerSecond = 0);

// Cues ordered by start; cues with an invalid time or no text dropped; cues
// of one start merged (their lines joined); a cue that overlaps the next ends
// where the next begins.
QVector<SubtitleCue> normalised(QVector<SubtitleCue> cues);

// "H:MM:SS,mmm", "H:MM:SS.cc", "MM:SS.mmm" in ms; -1 when it is none of them.
qint64 parseClock(const QString &text);

// Markup reduced to plain lines: tags and {\...} overrides dropped, <br>
// breaks the line, entities resolved, blank lines dropped.
QString plainText(const QString &markup);

} // namespace subtitleparser

#endif // PSSERVER_SUBTITLEPARSER_H
