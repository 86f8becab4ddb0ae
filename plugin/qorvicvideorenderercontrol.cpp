#include "qorvicvideorenderercontrol.h"

#include "qorvicsessionlink.h"
#include "qorvicvideobinder.h"
#include "qorvicvideobuffer.h"

#include <QtMultimedia/QAbstractVideoSurface>
#include <QtMultimedia/QMediaPlayer>

QOrvicVideoRendererControl::QOrvicVideoRendererControl(QOrvicSessionLink *link, QObject *parent)
    : QVideoRendererControl(parent),
      m_link(link),
      m_sink(std::make_shared<QOrvicVideoFrameSink>())
{
    m_sink->setTarget(this);
}

QOrvicVideoRendererControl::~QOrvicVideoRendererControl()
{
    m_sink->setTarget(nullptr);
    bind({});
    stopSurface();
}

QAbstractVideoSurface *QOrvicVideoRendererControl::surface() const
{
    return m_surface;
}

void QOrvicVideoRendererControl::setSurface(QAbstractVideoSurface *surface)
{
    if (surface == m_surface)
        return;
    stopSurface();
    m_surface = surface;
    if (!surface) {
        bind({});
        return;
    }
    const QList<QVideoFrame::PixelFormat> formats =
            surface->supportedPixelFormats(QAbstractVideoBuffer::NoHandle);
    if (qorvicvideo::deliverable(formats).empty()) {
        refuse(QStringLiteral("The video surface takes none of the pixel formats the player delivers"));
        bind({});
        return;
    }
    bind(formats);
}

void QOrvicVideoRendererControl::bind(const QList<QVideoFrame::PixelFormat> &formats)
{
    QOrvicVideoBinder *binder = m_link->host()->videoBinder();
    const std::vector<hostplayback::VideoPixelFormat> accepted = qorvicvideo::deliverable(formats);
    const std::shared_ptr<QOrvicVideoFrameSink> sink = accepted.empty() ? nullptr : m_sink;
    QMetaObject::invokeMethod(binder, [binder, sink, accepted] { binder->setReceiver(sink, accepted); },
                              Qt::QueuedConnection);
}

void QOrvicVideoRendererControl::refuse(const QString &text)
{
    qWarning("orvic video: %s", qPrintable(text));
    Q_EMIT videoError(QMediaPlayer::FormatError, text);
}

void QOrvicVideoRendererControl::presentFrame(const QVideoFrame &frame)
{
    for (QOrvicVideoProbeControl *probe : qAsConst(m_probes))
        probe->probe(frame);
    if (!m_surface)
        return;
    const QVideoSurfaceFormat format(frame.size(), frame.pixelFormat());
    if (!m_surface->isActive() || format != m_format) {
        if (m_surface->isActive())
            m_surface->stop();
        if (format == m_format && m_formatRefused)
            return; // said once
        m_format = format;
        m_formatRefused = !m_surface->start(format);
        if (m_formatRefused) {
            refuse(QStringLiteral("The video surface refused frames of %1x%2 in pixel format %3")
                           .arg(frame.width()).arg(frame.height()).arg(int(frame.pixelFormat())));
            return;
        }
    }
    m_surface->present(frame);
}

void QOrvicVideoRendererControl::stopSurface()
{
    for (QOrvicVideoProbeControl *probe : qAsConst(m_probes))
        probe->flushProbe();
    if (m_surface && m_surface->isActive())
        m_surface->stop();
    m_format = QVideoSurfaceFormat();
    m_formatRefused = false;
}

void QOrvicVideoRendererControl::addProbe(QOrvicVideoProbeControl *probe)
{
    if (!m_probes.contains(probe))
        m_probes.append(probe);
}

void QOrvicVideoRendererControl::removeProbe(QOrvicVideoProbeControl *probe)
{
    m_probes.removeAll(probe);
}

QOrvicVideoProbeControl::QOrvicVideoProbeControl(QOrvicVideoRendererControl *renderer, QObject *parent)
    : QMediaVideoProbeControl(parent),
      m_renderer(renderer)
{
    m_renderer->addProbe(this);
}

QOrvicVideoProbeControl::~QOrvicVideoProbeControl()
{
    if (m_renderer)
        m_renderer->removeProbe(this);
}
