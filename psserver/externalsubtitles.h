// The subtitle streams a local medium gets from the files beside it: found
// when the client hands over the medium's own URL as its subtitle source,
// read once the medium is prepared. Files that give nothing (gone, unreadable,
// too large, binary, no cue) give no stream but a notice; the medium plays on.
#ifndef PSSERVER_EXTERNALSUBTITLES_H
#define PSSERVER_EXTERNALSUBTITLES_H

#include "subtitlecharset.h"
#include "subtitlefiles.h"
#include "subtitleparser.h"

#include <QtCore/QByteArray>
#include <QtCore/QList>
#include <QtCore/QVector>

class ExternalSubtitles
{
public:
    // Larger files are no subtitles: reading, detecting and parsing them
    // would hold up the medium for nothing.
    static constexpr qint64 kMaxFileBytes = 4 * 1024 * 1024;

    struct Stream
    {
        QString path;
        QByteArray language; // ISO 639 code, "und" when unknown
        QVector<SubtitleCue> cues;
    };

    struct LoadResult
    {
        QList<int> notices; // engine notice numbers, one per kind
    };

    void setFiles(const QList<SubtitleFile> &files);
    void clear();
    bool hasFiles() const { return !m_files.isEmpty(); }
    bool isLoaded() const { return m_loaded; }

    // Reads the files (once per medium). `framesPerSecond` is the video's
    // rate for MicroDVD files, <= 0 when unknown.
    LoadResult load(double framesPerSecond);

    int count() const { return m_streams.size(); }
    const Stream &stream(int index) const { return m_streams.at(index); }

    // Streams of one file; notice number when it gives none (0: it gave some).
    static int readFile(const SubtitleFile &file, double framesPerSecond, const QByteArray &systemCodec,
                        QList<Stream> *streams);

private:
    QList<SubtitleFile> m_files;
    QList<Stream> m_streams;
    bool m_loaded = false;
};

#endif // PSSERVER_EXTERNALSUBTITLES_H
