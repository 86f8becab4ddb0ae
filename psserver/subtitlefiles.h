// Subtitle files beside a local medium: "film.mp4" comes with "film.srt",
// "film.smi", "film.ko.srt", "film.pt-BR.srt" and the like on USB sticks and
// shared folders. Each one found becomes a subtitle stream of the medium,
// after the embedded ones.
#ifndef PSSERVER_SUBTITLEFILES_H
#define PSSERVER_SUBTITLEFILES_H

#include <QtCore/QByteArray>
#include <QtCore/QList>
#include <QtCore/QString>
#include <QtCore/QStringList>

enum class SubtitleFormat { Srt, Sami, Ass, MicroDvd, WebVtt };

struct SubtitleFile
{
    QString path;
    QString tag;         // between the base name and the extension; empty when untagged
    QByteArray language; // ISO 639 code of the tag; "und" when untagged or not a language
    SubtitleFormat format;
};

namespace subtitlefiles {

// A folder full of files of one base name is not a set of subtitles: this
// many are taken at most.
constexpr int kMaxFiles = 32;

// The subtitle files among `names` (the entries of the medium's folder) that
// belong to the medium file named `mediumName`, in the order their streams
// get: untagged first, then by tag, then by format (SRT, SAMI, ASS, SSA,
// MicroDVD, WebVTT), then by name. Paths are `folder`/name. Extensions match
// in any case; the base name matches exactly.
QList<SubtitleFile> matchSiblings(const QString &folder, const QString &mediumName, const QStringList &names);

// The same for the folder of the local file `mediumPath`, regular files only
// (a folder named "film.srt" is not a subtitle file).
QList<SubtitleFile> discover(const QString &mediumPath);

// ISO 639 code of a language tag ("ko", "kor", "pt-BR", "eng"): the two-letter
// code where there is one, else the three-letter one; "und" for anything else.
QByteArray languageCode(const QString &tag);

} // namespace subtitlefiles

#endif // PSSERVER_SUBTITLEFILES_H
