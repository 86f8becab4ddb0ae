#include "qorvicvideopresenter.h"

#include "qorvicvideobinder.h"
#include "qorvicvideobuffer.h"

#include <QtMultimedia/QAbstractVideoSurface>
#include <QtMultimedia/QMediaPlayer>

QOrvicVideoPresenter::QOrvicVideoPresenter(QObject *parent)
    : QObject(parent),
      m_sink(std::make_shared<QOrvicVideoFrameSink>())
{
    m_sink->setTarget(this);
}

QOrvicVideoPresenter::~QOrvicVideoPresenter()
{
    m_sink->setTarget(nullptr);
    stopSurface();
}

std::vector<hostplayback::VideoPixelFormat> QOrvicVideoPresenter::setSurface(QAbstractVideoSurface *surface)
{
    if (surface != m_surface) {
        stopSurface();
        m_surface = surface;
    }
    if (!surface)
        return {};
    const std::vector<hostplayback::VideoPixelFormat> formats =
            qorvicvideo::deliverable(surface->supportedPixelFormats(QAbstractVideoBuffer::NoHandle));
    if (formats.empty())
        refuse(QStringLiteral("The video surface takes none of the pixel formats the player delivers"));
    return formats;
}

void QOrvicVideoPresenter::refuse(const QString &text)
{
    qWarning("orvic video: %s", qPrintable(text));
    Q_EMIT videoError(QMediaPlayer::FormatError, text);
}

void QOrvicVideoPresenter::presentFrame(const QVideoFrame &frame)
{
    Q_EMIT framePresented(frame);
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

void QOrvicVideoPresenter::stopSurface()
{
    Q_EMIT stopped();
    if (m_surface && m_surface->isActive())
        m_surface->stop();
    m_format = QVideoSurfaceFormat();
    m_formatRefused = false;
}
