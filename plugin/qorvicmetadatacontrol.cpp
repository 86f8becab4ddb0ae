#include "qorvicmetadatacontrol.h"

#include "qorvicsessionlink.h"

#include <QtCore/QPointer>
#include <QtMultimedia/QMediaMetaData>

QOrvicMetaDataControl::QOrvicMetaDataControl(QOrvicSessionLink *link, QObject *parent)
    : QMetaDataReaderControl(parent),
      m_link(link)
{
    connect(link->host(), &QOrvicSessionHost::metadata, this,
            [this](int generation, const QVariantMap &map, const QImage &cover) { onMetadata(generation, map, cover); });
    connect(link->host(), &QOrvicSessionHost::metadataValue, this, &QOrvicMetaDataControl::onValue);
}

void QOrvicMetaDataControl::clear()
{
    replace(QVariantMap());
}

void QOrvicMetaDataControl::onMetadata(int generation, const QVariantMap &map, const QImage &cover)
{
    if (generation != m_link->generation())
        return;
    QVariantMap values = map;
    if (!cover.isNull())
        values.insert(QMediaMetaData::CoverArtImage, cover);
    replace(values);
}

void QOrvicMetaDataControl::onValue(int generation, const QString &key, const QVariant &value)
{
    if (generation != m_link->generation() || m_values.value(key) == value)
        return;
    QOrvicBusyScope busy(m_link);
    QPointer<QOrvicMetaDataControl> self(this);
    const bool wasAvailable = !m_values.isEmpty();
    m_values.insert(key, value);
    if (!wasAvailable)
        Q_EMIT metaDataAvailableChanged(true);
    if (self)
        Q_EMIT metaDataChanged(key, value);
    if (self)
        Q_EMIT metaDataChanged();
}

void QOrvicMetaDataControl::replace(const QVariantMap &values)
{
    if (values == m_values)
        return;
    QOrvicBusyScope busy(m_link);
    QPointer<QOrvicMetaDataControl> self(this);
    const QVariantMap old = m_values;
    m_values = values;
    if (old.isEmpty() != values.isEmpty())
        Q_EMIT metaDataAvailableChanged(!values.isEmpty());
    for (auto it = values.cbegin(); self && it != values.cend(); ++it) {
        if (old.value(it.key()) != it.value())
            Q_EMIT metaDataChanged(it.key(), it.value());
    }
    for (auto it = old.cbegin(); self && it != old.cend(); ++it) {
        if (!values.contains(it.key()))
            Q_EMIT metaDataChanged(it.key(), QVariant());
    }
    if (self)
        Q_EMIT metaDataChanged();
}
