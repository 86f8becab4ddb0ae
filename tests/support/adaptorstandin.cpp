// Minimal stand-ins for engine adaptor operations that the library does not
// define yet (see adaptorstandin.cmake, which enables exactly the missing ones).
//
// Each stand-in writes only what its adaptor operation is documented to begin
// with: mostly the verbose "called" line, "rate:%f" for setPlaybackRate,
// nothing for setResumeData (empty by design); setVolume also its second line,
// which carries the value, so that tests can see which value reached the
// adaptor. Nothing the tests could mistake for real engine work: no engine
// call, no state change, no signal. The readers answer, silently, what the
// adaptor answers right after init (no trick play, nothing playing). Tests
// assert only what holds for these stand-ins and the real operations alike.
#include "qorvicplayersession_p.h"
#include "qorviclogging_p.h"

#ifdef ORVIC_STANDIN_setMedia
void QOrvicPlayerSessionPrivate::setMedia(QString)
{
    OPSESSION_LOG("V/OPSession %s(%d) called");
}
#endif

#ifdef ORVIC_STANDIN_setResumeData
// Empty by design, also in the real adaptor: not even the "called" line.
void QOrvicPlayerSessionPrivate::setResumeData(QMediaPlayer::ResumeData *)
{
}
#endif

#ifdef ORVIC_STANDIN_play
void QOrvicPlayerSessionPrivate::play()
{
    OPSESSION_LOG("V/OPSession %s(%d) called");
}
#endif

#ifdef ORVIC_STANDIN_pause
void QOrvicPlayerSessionPrivate::pause()
{
    OPSESSION_LOG("V/OPSession %s(%d) called");
}
#endif

#ifdef ORVIC_STANDIN_stop
void QOrvicPlayerSessionPrivate::stop()
{
    OPSESSION_LOG("V/OPSession %s(%d) called");
}
#endif

#ifdef ORVIC_STANDIN_seek
void QOrvicPlayerSessionPrivate::seek(qint64)
{
    OPSESSION_LOG("V/OPSession %s(%d) called");
}
#endif

#ifdef ORVIC_STANDIN_setPlaybackRate
void QOrvicPlayerSessionPrivate::setPlaybackRate(qreal rate)
{
    OPSESSION_LOG("D/OPSession %s(%d):rate:%f", rate);
}
#endif

#ifdef ORVIC_STANDIN_playbackRate
qreal QOrvicPlayerSessionPrivate::playbackRate() const
{
    return 1.0;
}
#endif

#ifdef ORVIC_STANDIN_position
qint64 QOrvicPlayerSessionPrivate::position() const
{
    return 0;
}
#endif

#ifdef ORVIC_STANDIN_duration
qint64 QOrvicPlayerSessionPrivate::duration() const
{
    return 0;
}
#endif

#ifdef ORVIC_STANDIN_checkServer
void QOrvicPlayerSessionPrivate::checkServer(qint64)
{
    OPSESSION_LOG("V/OPSession %s(%d) called");
}
#endif

#ifdef ORVIC_STANDIN_setVolume
void QOrvicPlayerSessionPrivate::setVolume(int volume)
{
    OPSESSION_LOG("V/OPSession %s(%d) called");
    OPSESSION_LOG("D/OPSession %s(%d):set vol %d org vol %d ismute %d", volume, mVolume, int(mMuted));
}
#endif

#ifdef ORVIC_STANDIN_setMuted
void QOrvicPlayerSessionPrivate::setMuted(bool)
{
    OPSESSION_LOG("V/OPSession %s(%d) called");
}
#endif

#ifdef ORVIC_STANDIN_setAudioStream
void QOrvicPlayerSessionPrivate::setAudioStream(int)
{
    OPSESSION_LOG("V/OPSession %s(%d) called");
}
#endif

#ifdef ORVIC_STANDIN_setSubtitleNum
void QOrvicPlayerSessionPrivate::setSubtitleNum(int)
{
    OPSESSION_LOG("V/OPSession %s(%d) called");
}
#endif

#ifdef ORVIC_STANDIN_setSubtitleOnOff
void QOrvicPlayerSessionPrivate::setSubtitleOnOff(bool)
{
    OPSESSION_LOG("V/OPSession %s(%d) called");
}
#endif

#ifdef ORVIC_STANDIN_setVideoOnOff
void QOrvicPlayerSessionPrivate::setVideoOnOff(bool)
{
    OPSESSION_LOG("V/OPSession %s(%d) called");
}
#endif

#ifdef ORVIC_STANDIN_setAudioOnOff
void QOrvicPlayerSessionPrivate::setAudioOnOff(bool)
{
    OPSESSION_LOG("V/OPSession %s(%d) called");
}
#endif

#ifdef ORVIC_STANDIN_NavQueue
// The sink only has to exist: these tests fire no engine events.
MSPCBK_NavQueue::MSPCBK_NavQueue(QOrvicPlayerSessionPrivate *adaptor) : mAdaptor(adaptor) {}
MSPCBK_NavQueue::~MSPCBK_NavQueue() = default;
void MSPCBK_NavQueue::durationChanged(long long) {}
void MSPCBK_NavQueue::positionChanged(long long) {}
void MSPCBK_NavQueue::stateChanged(playback::SPPlayer::state_e) {}
void MSPCBK_NavQueue::volumeChanged(int) {}
void MSPCBK_NavQueue::bufferingProgessChanged(int) {}
void MSPCBK_NavQueue::streamChanged(playback::SPPlayer::stream_type_e, int) {}
void MSPCBK_NavQueue::seekableChanged(bool) {}
void MSPCBK_NavQueue::error(int) {}
void MSPCBK_NavQueue::speedChanged(double) {}
void MSPCBK_NavQueue::prepared() {}
void MSPCBK_NavQueue::playbackFinish() {}
void MSPCBK_NavQueue::aboutToFinish() {}
void MSPCBK_NavQueue::mediaAvailableChanged(playback::SPPlayer::stream_type_e, int) {}
void MSPCBK_NavQueue::subtitleChanged(char *, char, int) {}
void MSPCBK_NavQueue::resumeDataChanged(void *, int) {}
#endif
