#ifndef QORVICMEDIASERVICEPLUGIN_H
#define QORVICMEDIASERVICEPLUGIN_H

#include <QtMultimedia/QMediaServiceProviderPlugin>

// Qt Multimedia back end that plays through QOrvicPlayerSession: one
// session (and one playback-service client) per QMediaPlayer.
class QOrvicMediaServicePlugin : public QMediaServiceProviderPlugin,
                                 public QMediaServiceSupportedFormatsInterface,
                                 public QMediaServiceFeaturesInterface
{
    Q_OBJECT
    Q_INTERFACES(QMediaServiceSupportedFormatsInterface)
    Q_INTERFACES(QMediaServiceFeaturesInterface)
    Q_PLUGIN_METADATA(IID "org.qt-project.qt.mediaserviceproviderfactory/5.0" FILE "orvicmediaplayer.json")
public:
    QMediaService *create(const QString &key) override;
    void release(QMediaService *service) override;

    QMultimedia::SupportEstimate hasSupport(const QString &mimeType, const QStringList &codecs) const override;
    QStringList supportedMimeTypes() const override;

    QMediaServiceProviderHint::Features supportedFeatures(const QByteArray &service) const override;
};

#endif // QORVICMEDIASERVICEPLUGIN_H
