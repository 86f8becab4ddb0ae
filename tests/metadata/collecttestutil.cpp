#include "collecttestutil.h"

namespace orvictest {

QByteArray tagText(const Id3Info &tags, const QString &field)
{
    if (field == QLatin1String("title"))
        return QByteArray(tags.title, int(qstrnlen(tags.title, sizeof tags.title)));
    if (field == QLatin1String("artist"))
        return QByteArray(tags.artist, int(qstrnlen(tags.artist, sizeof tags.artist)));
    if (field == QLatin1String("album"))
        return QByteArray(tags.album, int(qstrnlen(tags.album, sizeof tags.album)));
    if (field == QLatin1String("genre"))
        return QByteArray(tags.genre, int(qstrnlen(tags.genre, sizeof tags.genre)));
    if (field == QLatin1String("date"))
        return QByteArray(tags.date, int(qstrnlen(tags.date, sizeof tags.date)));
    if (field == QLatin1String("comment"))
        return QByteArray(tags.comment, int(qstrnlen(tags.comment, sizeof tags.comment)));
    qFatal("no tag field %s", qPrintable(field));
}

int tagFlag(const Id3Info &tags, const QString &field)
{
    if (field == QLatin1String("title"))
        return tags.titleFlag;
    if (field == QLatin1String("artist"))
        return tags.artistFlag;
    if (field == QLatin1String("album"))
        return tags.albumFlag;
    if (field == QLatin1String("genre"))
        return tags.genreFlag;
    if (field == QLatin1String("date"))
        return tags.dateFlag;
    if (field == QLatin1String("comment"))
        return tags.commentFlag;
    qFatal("no tag field %s", qPrintable(field));
}

const QStringList allTagFields = {QStringLiteral("title"), QStringLiteral("artist"), QStringLiteral("album"),
                                  QStringLiteral("genre"), QStringLiteral("date"), QStringLiteral("comment")};

const QStringList allTagQueries = {
    QStringLiteral("getMetaString(title)"),   QStringLiteral("getMetaString(title_v1)"),
    QStringLiteral("getMetaString(artist)"),  QStringLiteral("getMetaString(artist_v1)"),
    QStringLiteral("getMetaString(TP1_V1)"),  QStringLiteral("getMetaString(album)"),
    QStringLiteral("getMetaString(album_v1)"), QStringLiteral("getMetaString(TAL_V1)"),
    QStringLiteral("getMetaString(date)"),    QStringLiteral("getMetaString(date_v1)"),
    QStringLiteral("getMetaString(comment)"), QStringLiteral("getMetaString(comment_v1)"),
    QStringLiteral("getMetaString(genre)"),   QStringLiteral("getMetaString(genre_v1)")};

void scriptOneAudioStream(MetaRig &rig)
{
    rig.reader.script().setDefault("getProgramNum", 1);
    rig.reader.script().setDefault("getAudioStreamNum", 1);
    rig.reader.setAudioAttribute(0, engineAudio(2, 44100, 128000, "mp3", "eng", 16));
}

QStringList tagCalls(const CallRecorder &recorder)
{
    QStringList out;
    for (const QString &c : recorder.calls()) {
        if (c.startsWith(QLatin1String("getMetaString(")) || c == QLatin1String("isTagV2()"))
            out.append(c);
    }
    return out;
}

} // namespace orvictest
