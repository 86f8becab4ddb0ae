#include "qorvicmediaservice.h"

#include "qorvicavailabilitycontrol.h"
#include "qorvicmetadatacontrol.h"
#include "qorvicplayercontrol.h"
#include "qorvicsessionlink.h"
#include "qorvicstreamscontrol.h"
#if ORVIC_HOST_VIDEO
#include "qorvicaudioprobecontrol.h"
#include "qorvicvideorenderercontrol.h"
#endif

#include <QtMultimedia/QMediaAvailabilityControl>
#include <QtMultimedia/QMediaPlayerControl>
#include <QtMultimedia/QMediaStreamsControl>
#include <QtMultimedia/QMetaDataReaderControl>

QOrvicMediaService::QOrvicMediaService(QObject *parent)
    : QMediaService(parent),
      m_link(new QOrvicSessionLink(this)),
      m_player(new QOrvicPlayerControl(m_link, this)),
      m_metaData(new QOrvicMetaDataControl(m_link, this)),
      m_streams(new QOrvicStreamsControl(m_link, this)),
      m_availability(new QOrvicAvailabilityControl(m_link, this))
#if ORVIC_HOST_VIDEO
      , m_renderer(new QOrvicVideoRendererControl(m_link, this)),
      m_audioProbes(new QOrvicAudioProbeHub(m_link, this))
#endif
{
#if ORVIC_HOST_VIDEO
    // A surface that takes no format the player delivers is the player's error.
    connect(m_renderer, &QOrvicVideoRendererControl::videoError, m_player, &QMediaPlayerControl::error);
#endif
    connect(m_player, &QOrvicPlayerControl::mediaReset, m_metaData, &QOrvicMetaDataControl::clear);
    connect(m_player, &QOrvicPlayerControl::mediaReset, m_streams, &QOrvicStreamsControl::clear);
}

QOrvicMediaService::~QOrvicMediaService()
{
    // Controls first (they hold the stream server and refer to the link),
    // then the link, which ends the session and its thread.
    delete m_player;
    delete m_metaData;
    delete m_streams;
    delete m_availability;
#if ORVIC_HOST_VIDEO
    delete m_renderer;
    delete m_audioProbes;
#endif
    delete m_link;
}

QMediaControl *QOrvicMediaService::requestControl(const char *name)
{
    if (qstrcmp(name, QMediaPlayerControl_iid) == 0)
        return m_player;
    if (qstrcmp(name, QMetaDataReaderControl_iid) == 0)
        return m_metaData;
    if (qstrcmp(name, QMediaStreamsControl_iid) == 0)
        return m_streams;
    if (qstrcmp(name, QMediaAvailabilityControl_iid) == 0)
        return m_availability;
#if ORVIC_HOST_VIDEO
    if (qstrcmp(name, QVideoRendererControl_iid) == 0)
        return m_renderer;
    // One probe control per QVideoProbe, released by it.
    if (qstrcmp(name, QMediaVideoProbeControl_iid) == 0)
        return new QOrvicVideoProbeControl(m_renderer->presenter(), this);
    if (qstrcmp(name, QMediaAudioProbeControl_iid) == 0)
        return new QOrvicAudioProbeControl(m_audioProbes, this);
#endif
    return nullptr;
}

void QOrvicMediaService::releaseControl(QMediaControl *control)
{
    // The controls live as long as the service, the probes as long as
    // their QVideoProbe.
#if ORVIC_HOST_VIDEO
    if (qobject_cast<QOrvicVideoProbeControl *>(control) || qobject_cast<QOrvicAudioProbeControl *>(control))
        delete control;
#else
    Q_UNUSED(control);
#endif
}

bool QOrvicMediaService::isBusy() const
{
    return m_link->isBusy();
}
