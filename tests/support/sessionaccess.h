// White-box access to a session's internals for tests that must see or drive
// the command queue's locks and flags directly (the adaptor and the pending
// list are private members of QOrvicPlayerSession).
#ifndef ORVICTEST_SESSIONACCESS_H
#define ORVICTEST_SESSIONACCESS_H

#include "qorvicplayersession_p.h"

namespace orvictest {

using PendingList = QList<QMap<QOrvicPlayerSession::MessageId, QVariant>>;

QOrvicPlayerSessionPrivate *sessionPrivate(QOrvicPlayerSession *session);
PendingList *pendingList(QOrvicPlayerSession *session);

// Number of waiting commands, read under the list mutex.
int pendingCount(QOrvicPlayerSession *session);

} // namespace orvictest

#endif // ORVICTEST_SESSIONACCESS_H
