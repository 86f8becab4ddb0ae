// Records every signal of a QOrvicPlayerSession, across all signals, in the
// order emitted (direct connections, so the emitting thread does not matter):
// "stateChanged(5)", "error(1,video format not support)", "metadataChanged(3 keys)", ...
#ifndef ORVICTEST_SESSIONRECORDER_H
#define ORVICTEST_SESSIONRECORDER_H

#include "qorvicplayersession.h"

#include <QtCore/QMutex>
#include <QtCore/QStringList>
#include <QtCore/QThread>
#include <QtCore/QVariant>

namespace orvictest {

struct RecordedSignal {
    QString name;        // "stateChanged"
    QVariantList args;   // the arguments as emitted
    QThread *thread;     // emitting thread
    QString text() const;  // "stateChanged(5)"
};

class SessionRecorder
{
public:
    explicit SessionRecorder(QOrvicPlayerSession *session);

    QList<RecordedSignal> signalsEmitted() const;
    // Texts of the recorded signals, optionally only those named in `names`.
    QStringList texts(const QStringList &names = QStringList()) const;
    void clear();

private:
    void add(const QString &name, const QVariantList &args);

    mutable QMutex m_mutex;
    QList<RecordedSignal> m_signals;
};

} // namespace orvictest

#endif // ORVICTEST_SESSIONRECORDER_H
