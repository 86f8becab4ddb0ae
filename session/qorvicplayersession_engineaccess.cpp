// The engine player of a session for the library's own Qt Multimedia back
// end (private API, see QOrvicPlayerSessionPrivate::withEnginePlayer).
#include "qorvicplayersession_p.h"

bool QOrvicPlayerSessionPrivate::withEnginePlayer(QOrvicPlayerSession *session,
                                                  const std::function<void(playback::SPPlayer *)> &use)
{
    if (!session || !use)
        return false;
    QOrvicPlayerSessionPrivate *d = session->d;
    // Never wait: a preparation holds the lock for seconds, and the caller
    // is an application's GUI thread.
    PlayerLocker locker(d, PlayerLocker::TryLock);
    if (!locker.ownsLock())
        return false;
    use(d->mFilePlayer);
    return true;
}
