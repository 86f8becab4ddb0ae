// The session's getters, as a thread that loads a session with reads calls
// them. The published interface only, so that tests of the shared library
// use it too.
#ifndef ORVICTEST_SESSIONGETTERS_H
#define ORVICTEST_SESSIONGETTERS_H

#include <qorvicplayersession.h>

namespace orvictest {

// The getters that read values the session keeps (no engine call).
inline void readStoredValues(const QOrvicPlayerSession &session)
{
    (void)session.state();
    (void)session.volume();
    (void)session.isMuted();
    (void)session.isAudioAvailable();
    (void)session.isVideoAvailable();
    (void)session.isSeekable();
    (void)session.availablePlaybackRanges();
    (void)session.getCurrentAudioStream();
}

// Those and the getters that ask the engine.
inline void readAllValues(const QOrvicPlayerSession &session)
{
    readStoredValues(session);
    (void)session.position();
    (void)session.duration();
    (void)session.playbackRate();
}

} // namespace orvictest

#endif // ORVICTEST_SESSIONGETTERS_H
