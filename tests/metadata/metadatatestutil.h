// Shared pieces of the metadata tests: a metadata session over scripted
// engine objects, and an owner for the heap blocks of the record.
#ifndef ORVICTEST_METADATATESTUTIL_H
#define ORVICTEST_METADATATESTUTIL_H

#include "enginerecords.h"
#include "logcapture.h"
#include "qorvicmetadatasession.h"
#include "scriptedplatform.h"

namespace orvictest {

// A metadata session over a scripted reader and, unless told otherwise, a
// scripted player; both record into one recorder.
struct MetaRig {
    explicit MetaRig(bool withPlayer = true)
        : reader(QStringLiteral("SpMetadata"), QStringLiteral("default"), &recorder),
          player(QStringLiteral("Qspmediaplayer"), nullptr, &recorder),
          session(&reader, withPlayer ? &player : nullptr)
    {
    }

    CallRecorder recorder;
    ScriptedMetaData reader;
    ScriptedPlayer player;
    QOrvicMetaDataSession session;
};

// Releases the record's blocks when the test leaves, pass or fail.
class MetaDataOwner
{
public:
    MetaDataOwner() = default;
    ~MetaDataOwner() { QOrvicMetaDataSession::releaseMetaData(meta); }

    QOrvicPlayerSession::PlayerMetaData meta;

private:
    Q_DISABLE_COPY(MetaDataOwner)
};

} // namespace orvictest

#endif // ORVICTEST_METADATATESTUTIL_H
