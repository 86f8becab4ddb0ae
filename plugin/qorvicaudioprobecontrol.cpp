#include "qorvicaudioprobecontrol.h"

#include "qorvicsessionlink.h"
#include "videoout/qorvicvideobinder.h"

#include <QtCore/QMutexLocker>

using hostplayback::AudioSampleFormat;

void QOrvicAudioProbeSink::setTarget(QOrvicAudioProbeHub *target)
{
    QMutexLocker lock(&m_mutex);
    m_target = target;
}

void QOrvicAudioProbeSink::audioArrived(const std::shared_ptr<const hostplayback::AudioBuffer> &buffer)
{
    const QAudioFormat format = QOrvicAudioProbeHub::audioFormat(buffer->layout());
    if (!format.isValid())
        return;
    // A probe's buffer is the application's to keep: copied out of the ring,
    // whose slot goes back at once.
    const QByteArray bytes(reinterpret_cast<const char *>(buffer->data()), int(buffer->layout().size));
    const QAudioBuffer audio(bytes, format, buffer->ptsNs() >= 0 ? buffer->ptsNs() / 1000 : -1);
    QMutexLocker lock(&m_mutex);
    if (QOrvicAudioProbeHub *target = m_target)
        QMetaObject::invokeMethod(target, [target, audio] { Q_EMIT target->audioBufferProbed(audio); },
                                  Qt::QueuedConnection);
}

void QOrvicAudioProbeSink::playbackStopped()
{
    QMutexLocker lock(&m_mutex);
    if (QOrvicAudioProbeHub *target = m_target)
        QMetaObject::invokeMethod(target, [target] { Q_EMIT target->flush(); }, Qt::QueuedConnection);
}

void QOrvicAudioProbeSink::channelLost()
{
    m_lost = true;
    playbackStopped();
}

QOrvicAudioProbeHub::QOrvicAudioProbeHub(QOrvicSessionLink *link, QObject *parent)
    : QObject(parent),
      m_link(link),
      m_sink(std::make_shared<QOrvicAudioProbeSink>())
{
    m_sink->setTarget(this);
}

QOrvicAudioProbeHub::~QOrvicAudioProbeHub()
{
    m_sink->setTarget(nullptr);
    if (m_probes > 0)
        bind(false);
}

void QOrvicAudioProbeHub::addProbe()
{
    if (m_probes++ == 0)
        bind(true);
}

void QOrvicAudioProbeHub::removeProbe()
{
    if (--m_probes == 0)
        bind(false);
}

void QOrvicAudioProbeHub::bind(bool on)
{
    QOrvicVideoBinder *binder = m_link->host()->audioBinder();
    const std::shared_ptr<QOrvicAudioProbeSink> sink = on ? m_sink : nullptr;
    QMetaObject::invokeMethod(binder, [binder, sink] {
        if (!sink) {
            binder->setAttach(nullptr, nullptr);
            return;
        }
        // Qt's probes take any PCM: the decoder's own format where it is one
        // of these.
        binder->setAttach([sink](playback::SPPlayer *player, int *error) {
            return hostplayback::attachAudio(player, {AudioSampleFormat::S16LE, AudioSampleFormat::F32LE,
                                                      AudioSampleFormat::S32LE, AudioSampleFormat::U8},
                                             sink.get(), error);
        }, [sink] { return sink->takeLost(); });
    }, Qt::QueuedConnection);
}

QAudioFormat QOrvicAudioProbeHub::audioFormat(const hostplayback::AudioBufferLayout &layout)
{
    QAudioFormat format;
    switch (layout.format) {
    case AudioSampleFormat::S16LE:
        format.setSampleSize(16);
        format.setSampleType(QAudioFormat::SignedInt);
        break;
    case AudioSampleFormat::S32LE:
        format.setSampleSize(32);
        format.setSampleType(QAudioFormat::SignedInt);
        break;
    case AudioSampleFormat::F32LE:
        format.setSampleSize(32);
        format.setSampleType(QAudioFormat::Float);
        break;
    case AudioSampleFormat::U8:
        format.setSampleSize(8);
        format.setSampleType(QAudioFormat::UnSignedInt);
        break;
    default:
        return QAudioFormat();
    }
    format.setCodec(QStringLiteral("audio/pcm"));
    format.setByteOrder(QAudioFormat::LittleEndian);
    format.setSampleRate(layout.sampleRate);
    format.setChannelCount(layout.channels);
    return format;
}

QOrvicAudioProbeControl::QOrvicAudioProbeControl(QOrvicAudioProbeHub *hub, QObject *parent)
    : QMediaAudioProbeControl(parent),
      m_hub(hub)
{
    connect(hub, &QOrvicAudioProbeHub::audioBufferProbed, this, &QMediaAudioProbeControl::audioBufferProbed);
    connect(hub, &QOrvicAudioProbeHub::flush, this, &QMediaAudioProbeControl::flush);
    m_hub->addProbe();
}

QOrvicAudioProbeControl::~QOrvicAudioProbeControl()
{
    if (m_hub)
        m_hub->removeProbe();
}
