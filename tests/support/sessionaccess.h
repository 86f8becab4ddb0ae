// White-box access to the command queue's pending list, which is a private
// member of QOrvicPlayerSession. (The adaptor is reached through
// QOrvicPlayerSessionPrivate::get().)
#ifndef ORVICTEST_SESSIONACCESS_H
#define ORVICTEST_SESSIONACCESS_H

#include "qorvicplayersession_p.h"

namespace orvictest {

using PendingList = QList<QMap<QOrvicPlayerSession::MessageId, QVariant>>;

PendingList *pendingList(QOrvicPlayerSession *session);

// Number of waiting commands, read under the list mutex.
int pendingCount(QOrvicPlayerSession *session);

// The adaptor's state lock, held from storing a state until its
// announcement is over.
QRecursiveMutex *stateLock(QOrvicPlayerSession *session);

} // namespace orvictest

#endif // ORVICTEST_SESSIONACCESS_H
