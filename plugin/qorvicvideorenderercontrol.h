#ifndef QORVICVIDEORENDERERCONTROL_H
#define QORVICVIDEORENDERERCONTROL_H

#include <QtCore/QList>
#include <QtCore/QPointer>
#include <QtMultimedia/QMediaVideoProbeControl>
#include <QtMultimedia/QVideoRendererControl>
#include <QtMultimedia/QVideoSurfaceFormat>

#include <memory>

class QOrvicSessionLink;
class QOrvicVideoFrameSink;
class QOrvicVideoProbeControl;

// QVideoRendererControl: psserver's frames on the application's surface
// (QVideoWidget, QGraphicsVideoItem, QML VideoOutput). The surface is
// started with the frames' format and restarted when their size or format
// changes; stop, unload and a new medium stop it.
class QOrvicVideoRendererControl : public QVideoRendererControl
{
    Q_OBJECT
public:
    QOrvicVideoRendererControl(QOrvicSessionLink *link, QObject *parent = nullptr);
    ~QOrvicVideoRendererControl() override;

    QAbstractVideoSurface *surface() const override;
    void setSurface(QAbstractVideoSurface *surface) override;

    // On this control's thread.
    void presentFrame(const QVideoFrame &frame);
    void stopSurface();

    void addProbe(QOrvicVideoProbeControl *probe);
    void removeProbe(QOrvicVideoProbeControl *probe);

Q_SIGNALS:
    // A QMediaPlayer::Error with its text, for the player control.
    void videoError(int error, const QString &text);

private:
    void bind(const QList<QVideoFrame::PixelFormat> &formats);
    void refuse(const QString &text);

    QOrvicSessionLink *m_link;
    QPointer<QAbstractVideoSurface> m_surface;
    std::shared_ptr<QOrvicVideoFrameSink> m_sink;
    QVideoSurfaceFormat m_format;
    bool m_formatRefused = false;
    QList<QOrvicVideoProbeControl *> m_probes;
};

// QMediaVideoProbeControl: every frame as it is presented.
class QOrvicVideoProbeControl : public QMediaVideoProbeControl
{
    Q_OBJECT
public:
    explicit QOrvicVideoProbeControl(QOrvicVideoRendererControl *renderer, QObject *parent = nullptr);
    ~QOrvicVideoProbeControl() override;

    void probe(const QVideoFrame &frame) { Q_EMIT videoFrameProbed(frame); }
    void flushProbe() { Q_EMIT flush(); }

private:
    QPointer<QOrvicVideoRendererControl> m_renderer;
};

#endif // QORVICVIDEORENDERERCONTROL_H
