// The cover picture of the medium a QML MediaPlayer plays, for an Image item.
//
// QML's MediaPlayer shows its tags through `metaData`, but the cover arrives
// only as a QImage under QMediaMetaData::CoverArtImage on the player's media
// object. CoverArt watches that media object and keeps a copy of the picture;
// CoverArtProvider hands it to `Image { source: coverArt.source }` under the
// image:// scheme.
#ifndef COVERART_H
#define COVERART_H

#include <QtCore/QMutex>
#include <QtCore/QObject>
#include <QtCore/QPointer>
#include <QtCore/QSize>
#include <QtGui/QImage>
#include <QtQuick/QQuickImageProvider>

class QMediaObject;

class CoverArt : public QObject
{
    Q_OBJECT
    // "image://cover/<n>", a new n for every new picture; empty when the
    // medium has none.
    Q_PROPERTY(QString source READ source NOTIFY changed)
    Q_PROPERTY(QSize size READ size NOTIFY changed)

public:
    static const QString providerId;

    explicit CoverArt(QObject *parent = nullptr);

    // Follows the media object of a QML MediaPlayer (its C++ property
    // "mediaObject", which QML itself does not see).
    void follow(QObject *mediaPlayerItem);

    QString source() const;
    QSize size() const;
    // The current picture; called by the provider, possibly on a loader thread.
    QImage image() const;

Q_SIGNALS:
    void changed();

private Q_SLOTS:
    void itemMediaObjectChanged();

private:
    void attach(QObject *mediaObject);
    void update();

    QPointer<QObject> m_item;
    QPointer<QMediaObject> m_mediaObject;
    mutable QMutex m_mutex;
    QImage m_image;
    int m_revision = 0;
};

class CoverArtProvider : public QQuickImageProvider
{
public:
    explicit CoverArtProvider(const CoverArt *cover);
    QImage requestImage(const QString &id, QSize *size, const QSize &requestedSize) override;

private:
    const CoverArt *m_cover;
};

#endif // COVERART_H
