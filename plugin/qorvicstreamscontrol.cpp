#include "qorvicstreamscontrol.h"

#include "qorvicsessionlink.h"

#include <QtMultimedia/QMediaMetaData>

QOrvicStreamsControl::QOrvicStreamsControl(QOrvicSessionLink *link, QObject *parent)
    : QMediaStreamsControl(parent),
      m_link(link)
{
    QOrvicSessionHost *host = link->host();
    connect(host, &QOrvicSessionHost::metadata, this,
            [this](int generation, const QVariantMap &map, const QImage &, const QList<QOrvicStreamInfo> &streams) {
                onMetadata(generation, map, streams);
            });
    connect(host, &QOrvicSessionHost::metadataValue, this, &QOrvicStreamsControl::onValue);
    connect(host, &QOrvicSessionHost::commandDone, this, &QOrvicStreamsControl::onCommandDone);
}

void QOrvicStreamsControl::clear()
{
    m_pendingSerial = 0;
    if (m_streams.isEmpty())
        return;
    QOrvicBusyScope busy(m_link);
    m_streams.clear();
    m_audio = m_subtitle = 0;
    m_subtitlesOn = false;
    Q_EMIT streamsChanged();
}

QMediaStreamsControl::StreamType QOrvicStreamsControl::streamType(int streamNumber)
{
    if (streamNumber < 0 || streamNumber >= m_streams.size())
        return UnknownStream;
    return m_streams.at(streamNumber).subtitle ? SubPictureStream : AudioStream;
}

QVariant QOrvicStreamsControl::metaData(int streamNumber, const QString &key)
{
    if (streamNumber < 0 || streamNumber >= m_streams.size())
        return QVariant();
    const QOrvicStreamInfo &info = m_streams.at(streamNumber);
    if (key == QMediaMetaData::Language)
        return info.language;
    if (key == QMediaMetaData::AudioCodec && !info.subtitle)
        return info.codec;
    return QVariant();
}

bool QOrvicStreamsControl::isActive(int streamNumber)
{
    if (streamNumber < 0 || streamNumber >= m_streams.size())
        return false;
    const QOrvicStreamInfo &info = m_streams.at(streamNumber);
    return info.subtitle ? (m_subtitlesOn && info.index == m_subtitle) : info.index == m_audio;
}

void QOrvicStreamsControl::setActive(int streamNumber, bool state)
{
    if (streamNumber < 0 || streamNumber >= m_streams.size())
        return;
    const QOrvicStreamInfo &info = m_streams.at(streamNumber);
    if (!info.subtitle) {
        // One audio stream always plays: only activation switches.
        if (!state || info.index == m_audio)
            return;
        m_pendingSerial = m_link->post(QOrvicSessionHost::AudioStream, info.index);
        return;
    }
    if (state) {
        if (info.index != m_subtitle)
            m_link->post(QOrvicSessionHost::SubtitleStream, info.index);
        m_pendingSerial = m_link->post(QOrvicSessionHost::SubtitleOnOff, true);
    } else if (m_subtitlesOn && info.index == m_subtitle) {
        m_pendingSerial = m_link->post(QOrvicSessionHost::SubtitleOnOff, false);
    }
}

void QOrvicStreamsControl::onMetadata(int generation, const QVariantMap &map, const QList<QOrvicStreamInfo> &streams)
{
    if (generation != m_link->generation())
        return;
    QOrvicBusyScope busy(m_link);
    const bool changed = streams.size() != m_streams.size();
    m_streams = streams;
    m_subtitle = map.value(QMediaMetaData::SubtitleId).toInt();
    m_subtitlesOn = map.value(QMediaMetaData::SubtitleOnOff).toBool();
    if (changed)
        Q_EMIT streamsChanged();
}

void QOrvicStreamsControl::onValue(int generation, const QString &key, const QVariant &value)
{
    if (generation != m_link->generation())
        return;
    // The session names the stream it switched to.
    if (key == QMediaMetaData::AudioStream)
        m_audio = value.toInt();
    else if (key == QMediaMetaData::SubtitleId)
        m_subtitle = value.toInt();
    else if (key == QMediaMetaData::SubtitleOnOff)
        m_subtitlesOn = value.toBool();
}

void QOrvicStreamsControl::onCommandDone(const QOrvicCommandResult &result)
{
    if (result.serial != m_pendingSerial)
        return;
    m_pendingSerial = 0;
    QOrvicBusyScope busy(m_link);
    // The session names each stream it did switch to (see onValue); a
    // refused switch leaves the streams as they were.
    Q_EMIT activeStreamsChanged();
}
