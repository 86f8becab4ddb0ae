#include "subtitlefiles.h"

#include <QtCore/QDir>
#include <QtCore/QFileInfo>

#include <gst/tag/tag.h>

#include <algorithm>

namespace {

const QByteArray kUndetermined("und");

struct Extension
{
    const char *suffix;
    SubtitleFormat format;
};

// In the order streams of one tag are listed.
const Extension kExtensions[] = {
    {"srt", SubtitleFormat::Srt},      {"smi", SubtitleFormat::Sami}, {"sami", SubtitleFormat::Sami},
    {"ass", SubtitleFormat::Ass},      {"ssa", SubtitleFormat::Ass},  {"sub", SubtitleFormat::MicroDvd},
    {"vtt", SubtitleFormat::WebVtt},
};

// Position of the extension in kExtensions, -1 when it is none of them.
int extensionRank(const QString &suffix)
{
    const QString lower = suffix.toLower();
    for (int i = 0; i < int(sizeof kExtensions / sizeof kExtensions[0]); ++i) {
        if (lower == QLatin1String(kExtensions[i].suffix))
            return i;
    }
    return -1;
}

} // namespace

namespace subtitlefiles {

QByteArray languageCode(const QString &tag)
{
    const QString primary = tag.section(QRegExp(QStringLiteral("[-_.]")), 0, 0).toLower();
    if (primary.size() < 2 || primary.size() > 3)
        return kUndetermined;
    for (const QChar c : primary) {
        if (c < QLatin1Char('a') || c > QLatin1Char('z'))
            return kUndetermined;
    }
    const QByteArray code = primary.toLatin1();
    if (const gchar *two = gst_tag_get_language_code_iso_639_1(code.constData()))
        return QByteArray(two);
    // A three-letter code without a two-letter one ("haw") is still a language.
    if (code.size() == 3 && gst_tag_get_language_name(code.constData()))
        return code;
    return kUndetermined;
}

QList<SubtitleFile> matchSiblings(const QString &folder, const QString &mediumName, const QStringList &names)
{
    const QString base = QFileInfo(mediumName).completeBaseName();
    if (base.isEmpty())
        return {};
    const QString prefix = base + QLatin1Char('.');
    struct Candidate
    {
        SubtitleFile file;
        int rank;
        QString name;
    };
    QList<Candidate> found;
    for (const QString &name : names) {
        if (name == mediumName || !name.startsWith(prefix))
            continue;
        const int dot = name.lastIndexOf(QLatin1Char('.'));
        const int rank = extensionRank(name.mid(dot + 1));
        if (rank < 0 || dot < prefix.size() - 1)
            continue;
        QString tag = dot >= prefix.size() ? name.mid(prefix.size(), dot - prefix.size()) : QString();
        if (dot >= prefix.size() && tag.isEmpty())
            continue; // "film..srt"
        SubtitleFile file;
        file.path = QDir(folder).filePath(name);
        file.tag = tag;
        file.language = tag.isEmpty() ? kUndetermined : languageCode(tag);
        file.format = kExtensions[rank].format;
        found.append({file, rank, name});
    }
    std::stable_sort(found.begin(), found.end(), [](const Candidate &a, const Candidate &b) {
        if (a.file.tag.isEmpty() != b.file.tag.isEmpty())
            return a.file.tag.isEmpty();
        const int byTag = a.file.tag.compare(b.file.tag, Qt::CaseInsensitive);
        if (byTag != 0)
            return byTag < 0;
        if (a.rank != b.rank)
            return a.rank < b.rank;
        return a.name < b.name;
    });
    QList<SubtitleFile> files;
    for (const Candidate &c : qAsConst(found)) {
        if (files.size() == kMaxFiles)
            break;
        files.append(c.file);
    }
    return files;
}

QList<SubtitleFile> discover(const QString &mediumPath)
{
    const QFileInfo medium(mediumPath);
    const QDir folder = medium.absoluteDir();
    const QStringList names = folder.entryList(QDir::Files | QDir::Readable | QDir::Hidden, QDir::Name);
    return matchSiblings(folder.absolutePath(), medium.fileName(), names);
}

} // namespace subtitlefiles
