#include "videowindow.h"

#include <videoout/qorvicvideobinder.h>
#include <videoout/qorvicvideopresenter.h>

#include <QtCore/QEvent>
#include <QtMultimediaWidgets/QVideoWidget>

VideoWindow::VideoWindow(const QString &title, QObject *parent)
    : QObject(parent),
      m_widget(std::make_unique<QVideoWidget>()),
      m_presenter(new QOrvicVideoPresenter(this)),
      m_binder(new QOrvicVideoBinder(this))
{
    m_widget->setWindowTitle(title);
    m_widget->resize(640, 360);
    m_widget->installEventFilter(this);
}

VideoWindow::~VideoWindow()
{
    // Detached before the presenter and the widget's surface go.
    m_binder->setSession(nullptr);
}

void VideoWindow::show(QOrvicPlayerSession *session)
{
    m_widget->show();
    m_binder->setReceiver(m_presenter->sink(), m_presenter->setSurface(m_widget->videoSurface()));
    m_binder->setSession(session);
}

void VideoWindow::check()
{
    m_binder->check();
}

bool VideoWindow::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_widget.get() && event->type() == QEvent::Close)
        Q_EMIT closed();
    return QObject::eventFilter(watched, event);
}
