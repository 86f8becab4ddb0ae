#ifndef QORVICMETADATACONTROL_H
#define QORVICMETADATACONTROL_H

#include "qorvicsessionhost.h"

#include <QtMultimedia/QMetaDataReaderControl>

class QOrvicSessionLink;

// The session's metadata map under the QMediaMetaData keys, plus the cover
// picture as CoverArtImage.
class QOrvicMetaDataControl : public QMetaDataReaderControl
{
    Q_OBJECT
public:
    explicit QOrvicMetaDataControl(QOrvicSessionLink *link, QObject *parent = nullptr);

    bool isMetaDataAvailable() const override { return !m_values.isEmpty(); }
    QVariant metaData(const QString &key) const override { return m_values.value(key); }
    QStringList availableMetaData() const override { return m_values.keys(); }

public Q_SLOTS:
    void clear();

private:
    void onMetadata(int generation, const QVariantMap &map, const QImage &cover);
    void onValue(int generation, const QString &key, const QVariant &value);
    void replace(const QVariantMap &values);

    QOrvicSessionLink *m_link;
    QVariantMap m_values;
};

#endif // QORVICMETADATACONTROL_H
