#ifndef QMEDIASTRINGDEFINE_H
#define QMEDIASTRINGDEFINE_H

#include "qorvicutilglobal.h"

#include <QtCore/qstring.h>

/*!
    \class QMediaStringDefine
    \brief Display names for the engine's numeric codec and language
    identifiers.

    The session publishes the engine's numbers; a client that wants a
    printable name passes them here. The names are short, fixed and
    lower-case; several identifiers of one codec family share one name.

    \par Threads
    The lookups are static and stateless: any thread, any number at once.

    \par Signals
    None: the class is not a QObject.
*/
class Q_ORVICUTIL_EXPORT QMediaStringDefine
{
public:
    /*! \brief Constructs an object; it holds nothing (the lookups are static). */
    QMediaStringDefine();
    /*! \brief Destroys the object. */
    ~QMediaStringDefine();

    /*!
        \brief Returns the video codec name for \a id: "none" (0), "unknown"
        (1), "mpeg 1/2" (2, 3), "mpeg4", "h.264", "vc1", "mjpeg", "rv" (8);
        any id above 8 gives "none". Any thread.
    */
    static QString getVideoCodecString(unsigned int id);
    /*!
        \brief Returns the audio codec name for \a id: "none" (0), "unknown"
        (1), "mpeg1/2" (2 to 4), "mpeg2", "ac3", "truehd", "pcm", "wma",
        "aac" (10 to 12), "dts" (13, 18, 19), "ogg", "cook", "flac", "ape",
        "alac" (20); any id above 20 gives "none". Any thread.
    */
    static QString getAudioCodecString(unsigned int id);
    /*!
        \brief Returns the language tag for \a id: "eng" (0), "spa", "por",
        "rus", "ara", "gre", "tha", "ger", "ita", "fre", "vie", "per",
        "zho-CH" (12, simplified Chinese), "zho-TW" (13, traditional
        Chinese), "kor", "jis" (15, Japanese), "dan", "dut", "nor" (18).
        The engine's -1 (all ones) and any other id give "und". Any thread.
    */
    static QString getLanguageString(unsigned int id);
};

#endif // QMEDIASTRINGDEFINE_H
