#include "qorvicmediaserviceplugin.h"

#include "qorvicmediaservice.h"

QMediaService *QOrvicMediaServicePlugin::create(const QString &key)
{
    if (key == QLatin1String(Q_MEDIASERVICE_MEDIAPLAYER))
        return new QOrvicMediaService;
    return nullptr;
}

void QOrvicMediaServicePlugin::release(QMediaService *service)
{
    // A player deleted from a slot connected to one of its signals is
    // released while a control is still emitting: delete the service once
    // control has returned to the event loop.
    auto *orvic = qobject_cast<QOrvicMediaService *>(service);
    if (orvic && orvic->isBusy())
        orvic->deleteLater();
    else
        delete service;
}

QMultimedia::SupportEstimate QOrvicMediaServicePlugin::hasSupport(const QString &mimeType,
                                                                 const QStringList &codecs) const
{
    Q_UNUSED(codecs);
    // The playback service decides by content; these are what it plays.
    if (supportedMimeTypes().contains(mimeType))
        return QMultimedia::ProbablySupported;
    if (mimeType.startsWith(QLatin1String("audio/")) || mimeType.startsWith(QLatin1String("video/")))
        return QMultimedia::MaybeSupported;
    return QMultimedia::NotSupported;
}

QStringList QOrvicMediaServicePlugin::supportedMimeTypes() const
{
    return {QStringLiteral("audio/mpeg"), QStringLiteral("audio/mp4"), QStringLiteral("audio/ogg"),
            QStringLiteral("audio/x-wav"), QStringLiteral("audio/aac"), QStringLiteral("audio/flac"),
            QStringLiteral("video/mp4"), QStringLiteral("video/mp2t"), QStringLiteral("video/ogg"),
            QStringLiteral("video/x-matroska"), QStringLiteral("video/webm")};
}

QMediaServiceProviderHint::Features QOrvicMediaServicePlugin::supportedFeatures(const QByteArray &service) const
{
    if (service == Q_MEDIASERVICE_MEDIAPLAYER)
        return QMediaServiceProviderHint::StreamPlayback;
    return QMediaServiceProviderHint::Features();
}
