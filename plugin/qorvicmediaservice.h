#ifndef QORVICMEDIASERVICE_H
#define QORVICMEDIASERVICE_H

#include <QtMultimedia/QMediaService>

class QOrvicSessionLink;
class QOrvicPlayerControl;
class QOrvicMetaDataControl;
class QOrvicStreamsControl;
class QOrvicAvailabilityControl;
class QOrvicVideoRendererControl;
class QOrvicAudioProbeHub;

// The media player service of one QMediaPlayer: one session, its thread,
// and the controls that translate between the two.
class QOrvicMediaService : public QMediaService
{
    Q_OBJECT
public:
    explicit QOrvicMediaService(QObject *parent = nullptr);
    ~QOrvicMediaService() override;

    QMediaControl *requestControl(const char *name) override;
    void releaseControl(QMediaControl *control) override;

    // A control is emitting: deleting the service now would pull it from
    // under that control.
    bool isBusy() const;

private:
    QOrvicSessionLink *m_link;
    QOrvicPlayerControl *m_player;
    QOrvicMetaDataControl *m_metaData;
    QOrvicStreamsControl *m_streams;
    QOrvicAvailabilityControl *m_availability;
#if ORVIC_HOST_VIDEO
    QOrvicVideoRendererControl *m_renderer;
    QOrvicAudioProbeHub *m_audioProbes;
#endif
};

#endif // QORVICMEDIASERVICE_H
