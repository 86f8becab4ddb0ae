#include "coverart.h"

#include <QtCore/QMutexLocker>
#include <QtMultimedia/QMediaMetaData>
#include <QtMultimedia/QMediaObject>

const QString CoverArt::providerId = QStringLiteral("cover");

CoverArt::CoverArt(QObject *parent)
    : QObject(parent)
{
}

void CoverArt::follow(QObject *mediaPlayerItem)
{
    m_item = mediaPlayerItem;
    // The item makes its media object when its component is complete: it may
    // not exist yet, and it can be replaced.
    connect(mediaPlayerItem, SIGNAL(mediaObjectChanged()), this, SLOT(itemMediaObjectChanged()));
    itemMediaObjectChanged();
}

void CoverArt::itemMediaObjectChanged()
{
    attach(m_item ? m_item->property("mediaObject").value<QObject *>() : nullptr);
}

void CoverArt::attach(QObject *mediaObject)
{
    if (m_mediaObject)
        disconnect(m_mediaObject, nullptr, this, nullptr);
    m_mediaObject = qobject_cast<QMediaObject *>(mediaObject);
    if (m_mediaObject) {
        connect(m_mediaObject, qOverload<>(&QMediaObject::metaDataChanged), this, &CoverArt::update);
        connect(m_mediaObject, &QMediaObject::metaDataAvailableChanged, this, &CoverArt::update);
    }
    update();
}

void CoverArt::update()
{
    QImage picture;
    if (m_mediaObject) {
        // Back ends differ in where they put an embedded picture.
        for (const QString &key : {QMediaMetaData::CoverArtImage, QMediaMetaData::ThumbnailImage}) {
            picture = m_mediaObject->metaData(key).value<QImage>();
            if (!picture.isNull())
                break;
        }
    }
    {
        QMutexLocker locker(&m_mutex);
        if (picture.isNull() && m_image.isNull())
            return;
        if (!picture.isNull() && picture == m_image)
            return;
        // A copy of our own: the back end's picture may refer to memory it
        // frees with the medium.
        m_image = picture.copy();
        ++m_revision;
    }
    Q_EMIT changed();
}

QString CoverArt::source() const
{
    QMutexLocker locker(&m_mutex);
    if (m_image.isNull())
        return QString();
    return QStringLiteral("image://%1/%2").arg(providerId).arg(m_revision);
}

QSize CoverArt::size() const
{
    QMutexLocker locker(&m_mutex);
    return m_image.size();
}

QImage CoverArt::image() const
{
    QMutexLocker locker(&m_mutex);
    return m_image;
}

CoverArtProvider::CoverArtProvider(const CoverArt *cover)
    : QQuickImageProvider(QQuickImageProvider::Image), m_cover(cover)
{
}

QImage CoverArtProvider::requestImage(const QString &, QSize *size, const QSize &requestedSize)
{
    QImage picture = m_cover->image();
    if (size)
        *size = picture.size();
    if (!picture.isNull() && requestedSize.isValid())
        picture = picture.scaled(requestedSize, Qt::KeepAspectRatio, Qt::SmoothTransformation);
    return picture;
}
