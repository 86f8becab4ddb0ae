#include "sessionaccess.h"

#include <QtCore/QMutexLocker>

namespace orvictest {

namespace {
// Explicit instantiation may name private members (access checking does not
// apply there); the friend function it defines hands the member pointer out.
template <typename Tag, typename Tag::type Member>
struct MemberAccess {
    friend typename Tag::type memberOf(Tag) { return Member; }
};

struct PendingTag {
    using type = PendingList *QOrvicPlayerSession::*;
    friend type memberOf(PendingTag);
};

template struct MemberAccess<PendingTag, &QOrvicPlayerSession::mPendingList>;

struct StateLockTag {
    using type = QRecursiveMutex QOrvicPlayerSessionPrivate::*;
    friend type memberOf(StateLockTag);
};

template struct MemberAccess<StateLockTag, &QOrvicPlayerSessionPrivate::mStateLock>;
} // namespace

QRecursiveMutex *stateLock(QOrvicPlayerSession *session)
{
    return &(QOrvicPlayerSessionPrivate::get(session)->*memberOf(StateLockTag()));
}

PendingList *pendingList(QOrvicPlayerSession *session)
{
    return session->*memberOf(PendingTag());
}

int pendingCount(QOrvicPlayerSession *session)
{
    // The list mutex directly, not listLock(): no log lines of the test's own.
    QMutexLocker lock(&QOrvicPlayerSessionPrivate::get(session)->mListLock);
    return pendingList(session)->size();
}

} // namespace orvictest
