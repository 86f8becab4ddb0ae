// placeholder: filled in by the metadata work
#include "qorvicmetadatasession.h"
QString QOrvicMetaDataSession::getSysCodec() { return QString(); }
QString QOrvicMetaDataSession::detect(const char *, int) { return QString(); }
QString QOrvicMetaDataSession::detectResultMapping(QString d) { return d; }
QString QOrvicMetaDataSession::detectEncoding(const char *) { return QString(); }
QString QOrvicMetaDataSession::detectEncoding(const char *, const char *, const char *) { return QString(); }
QString QOrvicMetaDataSession::fromCharToQstring(const char *) { return QString(); }
QString QOrvicMetaDataSession::SubCharToQstring(const char *, SubtStrType_e) { return QString(); }
