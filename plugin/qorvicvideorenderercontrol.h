#ifndef QORVICVIDEORENDERERCONTROL_H
#define QORVICVIDEORENDERERCONTROL_H

#include <QtCore/QPointer>
#include <QtMultimedia/QMediaVideoProbeControl>
#include <QtMultimedia/QVideoRendererControl>

class QOrvicSessionLink;
class QOrvicVideoPresenter;

// QVideoRendererControl: psserver's frames on the application's surface
// (QVideoWidget, QGraphicsVideoItem, QML VideoOutput), set or unset at any
// time. The frames reach this process through the session's engine player,
// to which the session host's video binder attaches the presenter's sink.
class QOrvicVideoRendererControl : public QVideoRendererControl
{
    Q_OBJECT
public:
    QOrvicVideoRendererControl(QOrvicSessionLink *link, QObject *parent = nullptr);
    ~QOrvicVideoRendererControl() override;

    QAbstractVideoSurface *surface() const override;
    void setSurface(QAbstractVideoSurface *surface) override;

    QOrvicVideoPresenter *presenter() const { return m_presenter; }

Q_SIGNALS:
    // A QMediaPlayer::Error with its text, for the player control.
    void videoError(int error, const QString &text);

private:
    QOrvicSessionLink *m_link;
    QOrvicVideoPresenter *m_presenter;
};

// QMediaVideoProbeControl: every frame as it is presented.
class QOrvicVideoProbeControl : public QMediaVideoProbeControl
{
    Q_OBJECT
public:
    explicit QOrvicVideoProbeControl(QOrvicVideoPresenter *presenter, QObject *parent = nullptr);
};

#endif // QORVICVIDEORENDERERCONTROL_H
