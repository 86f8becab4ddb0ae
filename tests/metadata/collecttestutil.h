// Shared by the stream metadata collection tests: the tag fields of the
// record read back by name, the tag keys the collection asks for, and a
// reader scripted with one audio stream.
#ifndef ORVICTEST_COLLECTTESTUTIL_H
#define ORVICTEST_COLLECTTESTUTIL_H

#include "metadatatestutil.h"

#include <QtCore/QByteArray>
#include <QtCore/QString>
#include <QtCore/QStringList>

#include <climits>

namespace orvictest {

using Id3Info = QOrvicPlayerSession::Id3Info;

// A field value the collection did not write.
const int kNotWritten = INT_MIN;

// The text of the tag field `field` ("title", "artist", "album", "genre",
// "date", "comment") up to its first NUL, and its flag.
QByteArray tagText(const Id3Info &tags, const QString &field);
int tagFlag(const Id3Info &tags, const QString &field);

extern const QStringList allTagFields;

// Every tag key in the order the collection asks when nothing is found.
extern const QStringList allTagQueries;

// A reader with one program and one audio stream whose attribute reads fine.
void scriptOneAudioStream(MetaRig &rig);

// The recorded tag reads (getMetaString and isTagV2), in order.
QStringList tagCalls(const CallRecorder &recorder);

} // namespace orvictest

#endif // ORVICTEST_COLLECTTESTUTIL_H
