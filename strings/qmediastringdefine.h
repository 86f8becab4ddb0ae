#ifndef QMEDIASTRINGDEFINE_H
#define QMEDIASTRINGDEFINE_H

#include "qorvicutilglobal.h"

#include <QtCore/qstring.h>

// Display names for the engine's numeric codec and language identifiers.
class Q_ORVICUTIL_EXPORT QMediaStringDefine
{
public:
    QMediaStringDefine();
    ~QMediaStringDefine();

    static QString getVideoCodecString(unsigned int id);
    static QString getAudioCodecString(unsigned int id);
    static QString getLanguageString(unsigned int id);
};

#endif // QMEDIASTRINGDEFINE_H
