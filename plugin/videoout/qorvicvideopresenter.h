#ifndef QORVICVIDEOPRESENTER_H
#define QORVICVIDEOPRESENTER_H

#include <hostplayback/videoout.h>

#include <QtCore/QObject>
#include <QtCore/QPointer>
#include <QtMultimedia/QAbstractVideoSurface>
#include <QtMultimedia/QVideoFrame>
#include <QtMultimedia/QVideoSurfaceFormat>

#include <memory>
#include <vector>

class QOrvicVideoFrameSink;

// Shows psserver's frames on one QAbstractVideoSurface, on the presenter's
// thread: starts the surface with the frames' format, restarts it when
// their size or format changes, stops it when playback stops or the medium
// goes. Shared by the Qt Multimedia back end and orvic-play's window.
class QOrvicVideoPresenter : public QObject
{
    Q_OBJECT
public:
    explicit QOrvicVideoPresenter(QObject *parent = nullptr);
    ~QOrvicVideoPresenter() override;

    QAbstractVideoSurface *surface() const { return m_surface; }
    // The formats of `surface` the player can deliver, in its order; none
    // (and videoError) when it takes none of them.
    std::vector<hostplayback::VideoPixelFormat> setSurface(QAbstractVideoSurface *surface);
    // The receiver to attach to the player (see QOrvicVideoBinder).
    std::shared_ptr<QOrvicVideoFrameSink> sink() const { return m_sink; }

    void presentFrame(const QVideoFrame &frame);
    void stopSurface();

Q_SIGNALS:
    // A QMediaPlayer::Error with its text (also logged).
    void videoError(int error, const QString &text);
    // Every frame as it is presented, and the end of a run of frames.
    void framePresented(const QVideoFrame &frame);
    void stopped();

private:
    void refuse(const QString &text);

    QPointer<QAbstractVideoSurface> m_surface;
    std::shared_ptr<QOrvicVideoFrameSink> m_sink;
    QVideoSurfaceFormat m_format;
    bool m_formatRefused = false;
};

#endif // QORVICVIDEOPRESENTER_H
