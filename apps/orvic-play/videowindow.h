// orvic-play --window: the session's video in a QVideoWidget (PC platform).
#ifndef ORVICPLAY_VIDEOWINDOW_H
#define ORVICPLAY_VIDEOWINDOW_H

#include <QtCore/QObject>

#include <memory>

class QOrvicPlayerSession;
class QOrvicVideoBinder;
class QOrvicVideoPresenter;
class QVideoWidget;

class VideoWindow : public QObject
{
    Q_OBJECT
public:
    explicit VideoWindow(const QString &title, QObject *parent = nullptr);
    ~VideoWindow() override;

    // Shows the window and binds its surface to `session`'s engine.
    void show(QOrvicPlayerSession *session);
    // Keeps the surface on the session's current engine (it changes when
    // the session recovers from a dead service): on every time update and
    // before every open.
    void check();

Q_SIGNALS:
    void closed();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    std::unique_ptr<QVideoWidget> m_widget;
    QOrvicVideoPresenter *m_presenter;
    QOrvicVideoBinder *m_binder;
};

#endif // ORVICPLAY_VIDEOWINDOW_H
