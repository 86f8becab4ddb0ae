#include "scriptedplatform.h"
#include "scriptedplatform_p.h"

#include <QtCore/QMutexLocker>

namespace orvictest {

// ------------------------------------------------------------ metadata ----

ScriptedMetaData::ScriptedMetaData(const QString &name, const QString &config, CallRecorder *recorder)
    : m_name(name), m_config(config), m_recorder(recorder)
{
}

ScriptedMetaData::~ScriptedMetaData() = default;

void ScriptedMetaData::setAudioAttribute(int stream, const AudioAttribute &attr)
{
    QMutexLocker lock(&m_dataMutex);
    m_audio.insert(stream, attr);
}

void ScriptedMetaData::setVideoAttribute(int stream, const VideoAttribute &attr)
{
    QMutexLocker lock(&m_dataMutex);
    m_video.insert(stream, attr);
}

void ScriptedMetaData::setMetaString(const QByteArray &key, const QByteArray &bytes)
{
    QMutexLocker lock(&m_dataMutex);
    m_strings.insert(key, bytes);
}

void ScriptedMetaData::setPicture(const Picture &picture)
{
    QMutexLocker lock(&m_dataMutex);
    m_picture = picture;
}

QVariant ScriptedMetaData::answer(const QString &op, const QString &call, const QVariant &fallback)
{
    m_recorder->record(call);
    return m_script.next(op, fallback);
}

int ScriptedMetaData::setUrl(const char *url)
{
    return answer("setUrl", QStringLiteral("SPMetaData::setUrl(%1)").arg(nameText(url)), 0).toInt();
}

int ScriptedMetaData::getMediaType()
{
    return answer("getMediaType", QStringLiteral("getMediaType()"), 0).toInt();
}

long long ScriptedMetaData::getDuration()
{
    return answer("getDuration", QStringLiteral("SPMetaData::getDuration()"), 0).toLongLong();
}

int ScriptedMetaData::getProgramNum()
{
    return answer("getProgramNum", QStringLiteral("getProgramNum()"), 0).toInt();
}

int ScriptedMetaData::getAudioStreamNum(int program)
{
    return answer("getAudioStreamNum", QStringLiteral("getAudioStreamNum(%1)").arg(program), 0).toInt();
}

int ScriptedMetaData::getVideoStreamNum(int program)
{
    return answer("getVideoStreamNum", QStringLiteral("getVideoStreamNum(%1)").arg(program), 0).toInt();
}

int ScriptedMetaData::getSubtitleStreamNum(int program)
{
    return answer("getSubtitleStreamNum", QStringLiteral("getSubtitleStreamNum(%1)").arg(program), 0).toInt();
}

int ScriptedMetaData::getAudioAttribute(int program, int stream, AudioAttribute &attr)
{
    const int status = answer("getAudioAttribute",
                              QStringLiteral("getAudioAttribute(%1,%2)").arg(program).arg(stream), 0).toInt();
    QMutexLocker lock(&m_dataMutex);
    const auto it = m_audio.constFind(stream);
    if (it != m_audio.constEnd())
        attr = *it;
    return status;
}

int ScriptedMetaData::getVideoAttribute(int program, int stream, VideoAttribute &attr)
{
    const int status = answer("getVideoAttribute",
                              QStringLiteral("getVideoAttribute(%1,%2)").arg(program).arg(stream), 0).toInt();
    QMutexLocker lock(&m_dataMutex);
    const auto it = m_video.constFind(stream);
    if (it != m_video.constEnd())
        attr = *it;
    return status;
}

const char *ScriptedMetaData::getMetaString(const char *key)
{
    m_recorder->record(QStringLiteral("getMetaString(%1)").arg(nameText(key)));
    QMutexLocker lock(&m_dataMutex);
    const auto it = m_strings.constFind(QByteArray(key ? key : ""));
    return it == m_strings.constEnd() ? nullptr : it->constData();
}

int ScriptedMetaData::getPicture(Picture &picture, int index, int sizeLimit)
{
    const int status = answer("getPicture",
                              QStringLiteral("getPicture(%1,%2)").arg(index).arg(sizeLimit), 0).toInt();
    QMutexLocker lock(&m_dataMutex);
    picture = m_picture;
    return status;
}

bool ScriptedMetaData::isTagV2()
{
    return answer("isTagV2", QStringLiteral("isTagV2()"), false).toBool();
}
} // namespace orvictest
