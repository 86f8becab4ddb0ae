#include "qorvicvideorenderercontrol.h"

#include "qorvicsessionlink.h"
#include "videoout/qorvicvideobinder.h"
#include "videoout/qorvicvideopresenter.h"

QOrvicVideoRendererControl::QOrvicVideoRendererControl(QOrvicSessionLink *link, QObject *parent)
    : QVideoRendererControl(parent),
      m_link(link),
      m_presenter(new QOrvicVideoPresenter(this))
{
    connect(m_presenter, &QOrvicVideoPresenter::videoError, this, &QOrvicVideoRendererControl::videoError);
}

QOrvicVideoRendererControl::~QOrvicVideoRendererControl()
{
    setSurface(nullptr);
}

QAbstractVideoSurface *QOrvicVideoRendererControl::surface() const
{
    return m_presenter->surface();
}

void QOrvicVideoRendererControl::setSurface(QAbstractVideoSurface *surface)
{
    const std::vector<hostplayback::VideoPixelFormat> formats = m_presenter->setSurface(surface);
    // The session and its engine live on the host's thread.
    QOrvicVideoBinder *binder = m_link->host()->videoBinder();
    const std::shared_ptr<QOrvicVideoFrameSink> sink = formats.empty() ? nullptr : m_presenter->sink();
    QMetaObject::invokeMethod(binder, [binder, sink, formats] { binder->setReceiver(sink, formats); },
                              Qt::QueuedConnection);
}

QOrvicVideoProbeControl::QOrvicVideoProbeControl(QOrvicVideoPresenter *presenter, QObject *parent)
    : QMediaVideoProbeControl(parent)
{
    connect(presenter, &QOrvicVideoPresenter::framePresented, this, &QMediaVideoProbeControl::videoFrameProbed);
    connect(presenter, &QOrvicVideoPresenter::stopped, this, &QMediaVideoProbeControl::flush);
}
