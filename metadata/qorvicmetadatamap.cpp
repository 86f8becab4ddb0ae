// The published metadata map, rebuilt from one PlayerMetaData snapshot.
#include "qorvicmetadatasession.h"
#include "qorvicmetadata_p.h"

#include <QtCore/qsize.h>
#include <QtMultimedia/qmediametadata.h>

using QOrvicMetaData::fieldBytes;

namespace {
const char kAscii[] = "ASCII";
const int kTagV2Flag = 2;

// Engine text (codec and language names) is plain Latin-1.
QString engineText(const QByteArray &bytes)
{
    return QString::fromLatin1(bytes);
}

QString tagText(const QByteArray &bytes, qint32 flag, const QString &codec)
{
    if (bytes.isEmpty())
        return QLatin1String("");
    // A tag of the newer kind is stored as UTF-8 whatever the detector says.
    if (flag == kTagV2Flag)
        return QString::fromUtf8(bytes);
    return QOrvicMetaData::decodeWithCodec(codec, bytes.constData());
}
} // namespace

void QOrvicMetaDataSession::fillMetadataMap(QMap<QString, QVariant> &map,
                                            QOrvicPlayerSession::PlayerMetaData metaData)
{
    map.clear();
    map.insert(QMediaMetaData::Duration, qint64(metaData.totalTime));

    if (const QOrvicPlayerSession::AudioAttribute *audio = metaData.audioAttribute) {
        map.insert(QMediaMetaData::Language, engineText(fieldBytes(audio->language)));
        map.insert(QMediaMetaData::ChannelCount, int(audio->channel));
        map.insert(QMediaMetaData::AudioCodec, engineText(fieldBytes(audio->codec)));
        map.insert(QMediaMetaData::AudioStreamCount, int(audio->audioStreamNum));
        // Always the first stream here, whichever one is playing.
        map.insert(QMediaMetaData::AudioStream, 0);

        if (const QOrvicPlayerSession::Id3Info *tags = audio->id3Info) {
            const QByteArray title = fieldBytes(tags->title);
            const QByteArray artist = fieldBytes(tags->artist);
            const QByteArray album = fieldBytes(tags->album);

            QString artistCodec = detectEncoding(artist.constData());
            QString albumCodec = detectEncoding(album.constData());
            // Title, album and artist judged together give the detector more text.
            const QString jointCodec = detectEncoding(title.constData(), album.constData(), artist.constData());
            if (artistCodec != albumCodec && artistCodec != QLatin1String(kAscii)
                && albumCodec != QLatin1String(kAscii)) {
                artistCodec = jointCodec;
                albumCodec = jointCodec;
            }

            map.insert(QMediaMetaData::Title, tagText(title, tags->titleFlag, jointCodec));
            map.insert(QMediaMetaData::AlbumArtist, tagText(artist, tags->artistFlag, artistCodec));
            map.insert(QMediaMetaData::AlbumTitle, tagText(album, tags->albumFlag, albumCodec));
            map.insert(QMediaMetaData::Genre, tagText(fieldBytes(tags->genre), tags->genreFlag, jointCodec));
            map.insert(QMediaMetaData::Year, tagText(fieldBytes(tags->date), tags->dateFlag, jointCodec));
            map.insert(QMediaMetaData::Comment, tagText(fieldBytes(tags->comment), tags->commentFlag, jointCodec));
        }
    }

    if (const QOrvicPlayerSession::VideoAttribute *video = metaData.videoAttribute) {
        map.insert(QMediaMetaData::VideoFrameRate, int(video->frameRate));
        map.insert(QMediaMetaData::VideoCodec, engineText(fieldBytes(video->codec)));
        map.insert(QMediaMetaData::Resolution, QSize(video->width, video->height));
    }

    if (const QOrvicPlayerSession::SubtitleAttribute *subtitle = metaData.subtitleAttribute) {
        map.insert(QMediaMetaData::SubtitleCount, int(subtitle->subtitleNum));
        map.insert(QMediaMetaData::SubtitleLanguage, engineText(fieldBytes(subtitle->language)));
        map.insert(QMediaMetaData::SubtitleId, int(subtitle->curSubtitleNum));
        map.insert(QMediaMetaData::SubtitleOnOff, bool(subtitle->subtitleOn));
    }
}
