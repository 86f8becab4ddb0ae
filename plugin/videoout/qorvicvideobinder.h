#ifndef QORVICVIDEOBINDER_H
#define QORVICVIDEOBINDER_H

#include <hostplayback/videoout.h>

#include <QtCore/QMutex>
#include <QtCore/QObject>
#include <QtCore/QPointer>

#include <atomic>
#include <functional>
#include <memory>
#include <vector>

class QOrvicPlayerSession;
class QOrvicVideoPresenter;

// Receives the frames of psserver on the channel's thread and hands them,
// as QVideoFrames without a copy, to the presenter's thread.
class QOrvicVideoFrameSink : public hostplayback::VideoReceiver
{
public:
    // Null: the presenter is going; nothing is handed on from now on.
    void setTarget(QOrvicVideoPresenter *target);

    void frameArrived(const std::shared_ptr<const hostplayback::VideoFrame> &frame) override;
    void playbackStopped() override;
    void channelLost() override;

    // Whether the channel was lost since the last call.
    bool takeLost() { return m_lost.exchange(false); }

private:
    QMutex m_mutex;
    QOrvicVideoPresenter *m_target = nullptr;
    std::atomic<bool> m_lost{false};
};

// On the session's thread: keeps a frame sink (or an audio receiver)
// attached to the session's current engine player. The session replaces its engine when it recovers
// from a dead service; its owner checks on every time update and before
// every open, and a new engine gets attached again.
class QOrvicVideoBinder : public QObject
{
    Q_OBJECT
public:
    explicit QOrvicVideoBinder(QObject *parent = nullptr);
    ~QOrvicVideoBinder() override;

    // Attaches a receiver to a player (the receiver kept alive by the
    // function), or null with the error number.
    using Attach = std::function<std::unique_ptr<hostplayback::VideoAttachment>(playback::SPPlayer *, int *)>;
    // Whether the receiver's channel was lost since the last call.
    using TakeLost = std::function<bool()>;

    void setSession(QOrvicPlayerSession *session);
    // The sink and the formats the surface takes (none: detach).
    void setReceiver(const std::shared_ptr<QOrvicVideoFrameSink> &sink,
                     const std::vector<hostplayback::VideoPixelFormat> &formats);
    // Any receiver (null `attach`: detach).
    void setAttach(const Attach &attach, const TakeLost &takeLost);
    void check();

Q_SIGNALS:
    // The engine refused the attachment (its error number).
    void attachFailed(int error);

private:
    void detach();

    QOrvicPlayerSession *m_session = nullptr;
    Attach m_attach;
    TakeLost m_takeLost;
    // After the receiver (held by m_attach): goes first, ending the
    // callbacks into it.
    std::unique_ptr<hostplayback::VideoAttachment> m_attachment;
    playback::SPPlayer *m_player = nullptr;
    int m_lastError = 0;
};

#endif // QORVICVIDEOBINDER_H
