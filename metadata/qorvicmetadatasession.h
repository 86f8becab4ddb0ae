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

/*!
    \class QOrvicMetaDataSession
    \brief Gathers the opened medium's stream attributes, tag texts and cover
    picture from the engine, detects the character set of tag and subtitle
    text and builds the published metadata map.

    A session's engine adaptor creates one metadata session after the engine
    objects exist and calls it after every open and every audio stream or
    subtitle switch. Applications normally read the results through
    QOrvicPlayerSession (its \c metadataChanged signal and getters); the text
    conversion functions are also offered for a client's own bytes.

    \par Threads
    The object keeps no state besides the two engine pointers it was given.
    The update functions and fillMetadataMap() take no lock: they run on the
    calling thread, and a caller that shares a PlayerMetaData record with
    another thread holds its own lock around them (the session holds its
    player mutex). The text functions (getSysCodec(), detect(),
    detectResultMapping(), detectEncoding(), fromCharToQstring(),
    SubCharToQstring()) touch no member state and may run on several threads
    at once, for instance the engine's callback thread converting a subtitle
    line while the session's thread builds the metadata map.

    \par Signals
    The class emits no signals; failures are logged and leave the record as
    described at each function. Publishing is the session's work.
*/
class Q_ORVICUTIL_EXPORT QOrvicMetaDataSession : public QObject
{
    Q_OBJECT

public:
    /*!
        \brief Declared encoding of a subtitle line, as the engine reports it
        with the line.
    */
    enum SubtStrType_e : unsigned int {
        SubtStr_Latin1 = 0,  //!< ISO-8859-1 bytes.
        SubtStr_Utf8 = 1,    //!< UTF-8 bytes.
        SubtStr_Utf16LE = 2, //!< UTF-16, little-endian, two bytes a unit.
        SubtStr_Utf16BE = 3  //!< UTF-16, big-endian, two bytes a unit.
        // Any other value: not declared; the system codec decodes the line.
    };

    /*!
        \brief Creates a metadata session over the engine's metadata reader
        \a metaData (required) and player \a player (may be null).

        Neither engine object is owned: both must outlive this object. Any
        thread; the object lives in the thread that creates it.
    */
    QOrvicMetaDataSession(playback::SPMetaData *metaData, playback::SPPlayer *player,
                          QObject *parent = nullptr);
    /*!
        \brief Destroys the object; the engine objects are left alone.
    */
    ~QOrvicMetaDataSession() override;

    /*!
        \brief Full refresh of \a meta from the engine: media kind, then the
        audio, video and subtitle records of the first stream, the trick-play
        flag and the total time.

        An engine media kind of 3 leaves the previous \c mediaType in place;
        kinds other than 1, 2 and 4 are stored as 0. Calling thread; no lock
        taken, nothing emitted.
    */
    void updateAVMetadata(QOrvicPlayerSession::PlayerMetaData &meta);
    /*!
        \brief Rebuilds the audio record of \a meta for audio stream \a stream,
        with the stream count and the tag texts (raw bytes with their flags).

        The stream count comes from the player when it knows one, else from
        the metadata reader's \a program. The old audio record is released
        first. When no audio stream or no attribute is found, the video
        record is released too and \c audioAttribute stays null. Calling
        thread; no lock taken, nothing emitted.
    */
    void updateAudioMetadata(QOrvicPlayerSession::PlayerMetaData &meta, int stream, int program);
    /*!
        \brief Refreshes the video record of \a meta for video stream \a stream
        of the first program (\a program is not used).

        Only a medium whose \c mediaType is 2 (video) is looked at; for other
        kinds the record is left as it is. An existing record is reused and
        overwritten; it is released when the medium has no video stream or
        its attributes cannot be read. Calling thread; no lock taken, nothing
        emitted.
    */
    void updateVideoMetadata(QOrvicPlayerSession::PlayerMetaData &meta, int stream, int program);
    /*!
        \brief Refreshes the subtitle record of \a meta: stream count, current
        stream and the on/off switch (\a program is not used).

        The player is asked first; without a player, or when it reports no
        subtitle stream, the metadata reader gives the count and \a stream is
        taken as the current one. The record is released when \a stream is -1
        or a query fails. Calling thread; no lock taken, nothing emitted.
    */
    void updateSubtitleMetadata(QOrvicPlayerSession::PlayerMetaData &meta, int stream, int program);
    /*!
        \brief Sets \c trickPlay in \a meta from the player; without a player
        the field is left as it is. Calling thread; nothing emitted.
    */
    void updateTrickPlayFlag(QOrvicPlayerSession::PlayerMetaData &meta);
    /*!
        \brief Sets \c totalTime in \a meta to the metadata reader's duration,
        in the engine's unit. Calling thread; nothing emitted.
    */
    void updateTotalTime(QOrvicPlayerSession::PlayerMetaData &meta);

    /*!
        \brief Returns the cover picture embedded in the medium's tags as an
        RGB888 image, or a null image when there is none.

        The image refers to the engine's pixel memory without copying it and
        is valid only while the medium stays open; a caller that keeps it
        longer (or hands it to another thread) takes a deep copy with
        QImage::copy(). Calling thread; nothing emitted.
    */
    QImage updateID3Pic();

    /*!
        \brief Clears \a map and fills it from \a metaData under the
        QMediaMetaData key strings.

        Always \c Duration; with an audio record its language, channel count,
        codec, stream count and \c AudioStream (always 0); with tag texts the
        title, album artist, album title, genre, year and comment, decoded
        with the detected codecs (a text flagged as a newer tag is taken as
        UTF-8; an empty text gives an empty string, not a missing key); with a
        video record the frame rate, codec and resolution; with a subtitle
        record the subtitle count, language, current id and on/off switch.
        Codec and language values are the engine's text. Calling thread; no
        lock taken; the caller publishes the map (nothing is emitted here).
    */
    void fillMetadataMap(QMap<QString, QVariant> &map, QOrvicPlayerSession::PlayerMetaData metaData);

    /*!
        \brief Returns the device's configured system codec name, or
        "ISO-8859-1" when none is configured or it cannot be read.
        Any thread; nothing emitted.
    */
    QString getSysCodec();
    /*!
        \brief Runs character-set detection over the first \a length bytes of
        \a data and returns the codec name to decode them with (see
        detectResultMapping()).

        Short texts are repeated before detection so that they carry enough
        weight. Returns a null string when \a data is null, \a length is not
        positive or detection fails; a null name decodes as Latin-1 wherever
        the library uses one. Any thread; nothing emitted.
    */
    QString detect(const char *data, int length);
    /*!
        \brief Maps a detector answer \a detected to the codec the device
        serves for it (for example "EUC-TW" to "GB18030", "ISO_8859_2" to
        "windows-1250"); "unknown" gives the system codec, and a name with no
        mapping is returned unchanged. The comparison is exact and
        case-sensitive. Any thread; nothing emitted.
    */
    QString detectResultMapping(QString detected);
    /*!
        \brief Returns the codec name for one NUL-terminated \a text; an empty
        or null text gives the system codec without running the detector.
        Any thread; nothing emitted.
    */
    QString detectEncoding(const char *text);
    /*!
        \brief Returns one codec name for the three NUL-terminated texts \a a,
        \a b and \a c judged together (the session passes title, album and
        artist, so that the detector sees more text). A null text counts as
        empty; three empty texts give the system codec. Any thread; nothing
        emitted.
    */
    QString detectEncoding(const char *a, const char *b, const char *c);
    /*!
        \brief Detects the character set of the NUL-terminated \a text and
        returns it decoded.

        Returns a null string for an empty or null text, or when the platform
        cannot be asked for the system codec; with no system codec configured
        the bytes are decoded as ISO-8859-1. Any thread; nothing emitted.
    */
    QString fromCharToQstring(const char *text);
    /*!
        \brief Decodes one subtitle line \a text in the encoding \a type the
        engine declared for it.

        UTF-16 lines end at the first NUL unit or after 1024 units; a line of
        undeclared encoding is decoded with the system codec (ISO-8859-1 when
        none is configured). A null \a text gives a null string. Any thread
        (the session calls it on the engine's callback thread); nothing
        emitted.
    */
    QString SubCharToQstring(const char *text, SubtStrType_e type);
    /*!
        \brief Decodes one subtitle line \a text of which the engine tells the
        size, in the encoding \a type.

        A positive \a length (bytes) is never read past; 0 or less means "up
        to the end mark", as the two-argument form. UTF-16 units are taken as
        they are: a leading byte-order mark stays in the line. Any thread;
        nothing emitted.
    */
    QString SubCharToQstring(const char *text, SubtStrType_e type, int length);

    /*!
        \brief Releases every heap block of \a meta (the attribute records and
        the tag block) and nulls the pointers.

        Copies of \a meta share those blocks and must not be used afterwards.
        Calling thread; the caller serialises access to \a meta.
    */
    static void releaseMetaData(QOrvicPlayerSession::PlayerMetaData &meta);

private:
    playback::SPMetaData *mSPMetaData;
    playback::SPPlayer *mFilePlayer;

    Q_DISABLE_COPY(QOrvicMetaDataSession)
};

#endif // QORVICMETADATASESSION_H
