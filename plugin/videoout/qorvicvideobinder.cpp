#include "qorvicvideobinder.h"

#include "qorvicvideobuffer.h"
#include "qorvicvideopresenter.h"

#include <qorvicplayersession_p.h>

#include <QtCore/QMutexLocker>

void QOrvicVideoFrameSink::setTarget(QOrvicVideoPresenter *target)
{
    QMutexLocker lock(&m_mutex);
    m_target = target;
}

void QOrvicVideoFrameSink::frameArrived(const std::shared_ptr<const hostplayback::VideoFrame> &frame)
{
    const QVideoFrame video = qorvicvideo::videoFrame(frame);
    QMutexLocker lock(&m_mutex);
    // Posted while the lock keeps the target alive; a target deleted later
    // takes its posted events with it.
    if (QOrvicVideoPresenter *target = m_target)
        QMetaObject::invokeMethod(target, [target, video] { target->presentFrame(video); },
                                  Qt::QueuedConnection);
}

void QOrvicVideoFrameSink::playbackStopped()
{
    QMutexLocker lock(&m_mutex);
    if (QOrvicVideoPresenter *target = m_target)
        QMetaObject::invokeMethod(target, [target] { target->stopSurface(); }, Qt::QueuedConnection);
}

void QOrvicVideoFrameSink::channelLost()
{
    m_lost = true;
    playbackStopped();
}

QOrvicVideoBinder::QOrvicVideoBinder(QObject *parent)
    : QObject(parent)
{
}

QOrvicVideoBinder::~QOrvicVideoBinder()
{
    detach();
}

void QOrvicVideoBinder::setSession(QOrvicPlayerSession *session)
{
    if (!session)
        detach();
    m_session = session;
    check();
}

void QOrvicVideoBinder::setReceiver(const std::shared_ptr<QOrvicVideoFrameSink> &sink,
                                    const std::vector<hostplayback::VideoPixelFormat> &formats)
{
    if (!sink || formats.empty()) {
        setAttach(nullptr, nullptr);
        return;
    }
    setAttach([sink, formats](playback::SPPlayer *player, int *error) {
        return hostplayback::attachVideo(player, formats, sink.get(), error);
    }, [sink] { return sink->takeLost(); });
}

void QOrvicVideoBinder::setAttach(const Attach &attach, const TakeLost &takeLost)
{
    detach();
    m_attach = attach;
    m_takeLost = takeLost;
    m_lastError = 0;
    check();
}

void QOrvicVideoBinder::detach()
{
    m_attachment.reset();
    m_player = nullptr;
}

void QOrvicVideoBinder::check()
{
    if (m_takeLost && m_takeLost())
        detach(); // the service went; its successor needs a new attachment
    if (!m_session || !m_attach) {
        detach();
        return;
    }
    QOrvicPlayerSessionPrivate::withEnginePlayer(m_session, [this](playback::SPPlayer *player) {
        if (player == m_player && m_attachment)
            return;
        detach();
        if (!player)
            return;
        int error = 0;
        m_attachment = m_attach(player, &error);
        if (m_attachment) {
            m_player = player;
            m_lastError = 0;
            return;
        }
        // Told once; tried again on the next tick (a service on its way back).
        if (error != m_lastError) {
            m_lastError = error;
            qWarning("orvic video: the player refused the attachment (%d)", error);
            Q_EMIT attachFailed(error);
        }
    });
}
