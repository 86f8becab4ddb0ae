#ifndef QORVICMETADATASESSION_H
#define QORVICMETADATASESSION_H

#include "qorvicplayersession.h"

#include <QtCore/qmap.h>
#include <QtCore/qobject.h>
#include <QtCore/qstring.h>
#include <QtGui/qimage.h>

namespace playback {
class SPMetaData;
class SPPlayer;
}

// Gathers the opened medium's stream attributes, tag texts and cover picture
// from the engine, detects tag and subtitle character sets and builds the
// published metadata map.
class Q_ORVICUTIL_EXPORT QOrvicMetaDataSession : public QObject
{
    Q_OBJECT

public:
    // Declared encoding of a subtitle line.
    enum SubtStrType_e : unsigned int {
        SubtStr_Latin1 = 0,
        SubtStr_Utf8 = 1,
        SubtStr_Utf16LE = 2,
        SubtStr_Utf16BE = 3
    };

    QOrvicMetaDataSession(playback::SPMetaData *metaData, playback::SPPlayer *player,
                          QObject *parent = nullptr);
    ~QOrvicMetaDataSession() override;

    void updateAVMetadata(QOrvicPlayerSession::PlayerMetaData &meta);
    void updateAudioMetadata(QOrvicPlayerSession::PlayerMetaData &meta, int stream, int program);
    void updateVideoMetadata(QOrvicPlayerSession::PlayerMetaData &meta, int stream, int program);
    void updateSubtitleMetadata(QOrvicPlayerSession::PlayerMetaData &meta, int stream, int program);
    void updateTrickPlayFlag(QOrvicPlayerSession::PlayerMetaData &meta);
    void updateTotalTime(QOrvicPlayerSession::PlayerMetaData &meta);

    QImage updateID3Pic();

    void fillMetadataMap(QMap<QString, QVariant> &map, QOrvicPlayerSession::PlayerMetaData metaData);

    QString getSysCodec();
    QString detect(const char *data, int length);
    QString detectResultMapping(QString detected);
    QString detectEncoding(const char *text);
    QString detectEncoding(const char *a, const char *b, const char *c);
    QString fromCharToQstring(const char *text);
    QString SubCharToQstring(const char *text, SubtStrType_e type);
    // The same for a line of which the engine tells the size: a positive
    // `length` (bytes) is never read past; 0 or less means "up to the end mark".
    QString SubCharToQstring(const char *text, SubtStrType_e type, int length);

    // Releases every heap block of `meta` (attribute blocks and the tag block)
    // and nulls the pointers.
    static void releaseMetaData(QOrvicPlayerSession::PlayerMetaData &meta);

private:
    playback::SPMetaData *mSPMetaData;
    playback::SPPlayer *mFilePlayer;

    Q_DISABLE_COPY(QOrvicMetaDataSession)
};

#endif // QORVICMETADATASESSION_H
