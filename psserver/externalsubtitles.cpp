#include "externalsubtitles.h"
#include "errormap.h"

#include <QtCore/QDebug>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>

void ExternalSubtitles::setFiles(const QList<SubtitleFile> &files)
{
    clear();
    m_files = files;
}

void ExternalSubtitles::clear()
{
    m_files.clear();
    m_streams.clear();
    m_loaded = false;
}

ExternalSubtitles::LoadResult ExternalSubtitles::load(double framesPerSecond)
{
    LoadResult result;
    if (m_loaded)
        return result;
    m_loaded = true;
    const QByteArray systemCodec = subtitlecharset::systemCodec();
    for (const SubtitleFile &file : qAsConst(m_files)) {
        const int notice = readFile(file, framesPerSecond, systemCodec, &m_streams);
        if (notice && !result.notices.contains(notice))
            result.notices.append(notice);
    }
    return result;
}

int ExternalSubtitles::readFile(const SubtitleFile &file, double framesPerSecond, const QByteArray &systemCodec,
                                QList<Stream> *streams)
{
    const QByteArray name = QFile::encodeName(file.path);
    const QFileInfo info(file.path);
    // Gone or replaced by a folder since it was found.
    if (!info.isFile()) {
        qWarning("subtitle file %s: no longer there", name.constData());
        return errormap::kNoticeResource;
    }
    if (info.size() > kMaxFileBytes) {
        qWarning("subtitle file %s: %lld bytes, too large for subtitles", name.constData(), info.size());
        return errormap::kNoticeStream;
    }
    QFile in(file.path);
    if (!in.open(QIODevice::ReadOnly)) {
        qWarning("subtitle file %s: cannot be read: %s", name.constData(), qPrintable(in.errorString()));
        return errormap::kNoticeResource;
    }
    // Bounded even when the file grew since it was looked at.
    const QByteArray bytes = in.read(kMaxFileBytes + 1);
    if (bytes.size() > kMaxFileBytes) {
        qWarning("subtitle file %s: too large for subtitles", name.constData());
        return errormap::kNoticeStream;
    }
    if (bytes.isEmpty()) {
        qWarning("subtitle file %s: empty", name.constData());
        return errormap::kNoticeStream;
    }
    const CharsetDecision decision = subtitlecharset::decide(bytes, systemCodec);
    if (decision.source != CharsetDecision::ByteOrderMark && subtitlecharset::looksBinary(bytes)) {
        qWarning("subtitle file %s: binary, not text", name.constData());
        return errormap::kNoticeStream;
    }
    qInfo("subtitle file %s: charset %s (%s, detector \"%s\")", name.constData(), decision.codec.constData(),
          subtitlecharset::sourceName(decision.source), decision.detectorAnswer.constData());
    const QList<SubtitleTrack> tracks =
            subtitleparser::parse(file.format, subtitlecharset::decode(bytes, decision), framesPerSecond);
    if (tracks.isEmpty()) {
        qWarning("subtitle file %s: no cue", name.constData());
        return errormap::kNoticeStream;
    }
    for (const SubtitleTrack &track : tracks) {
        // A SAMI class names its language; the file name's tag is for the others.
        const QByteArray language = track.language.isEmpty() || track.language == "und" ? file.language
                                                                                          : track.language;
        streams->append({file.path, language, track.cues});
    }
    return 0;
}
