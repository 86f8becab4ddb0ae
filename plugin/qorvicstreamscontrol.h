#ifndef QORVICSTREAMSCONTROL_H
#define QORVICSTREAMSCONTROL_H

#include "qorvicsessionhost.h"

#include <QtMultimedia/QMediaStreamsControl>

class QOrvicSessionLink;

// Audio streams first, then subtitle streams, as the session lists them.
// Activating an audio stream switches it; activating a subtitle stream
// switches to it and shows subtitles; deactivating it hides them.
class QOrvicStreamsControl : public QMediaStreamsControl
{
    Q_OBJECT
public:
    explicit QOrvicStreamsControl(QOrvicSessionLink *link, QObject *parent = nullptr);

    int streamCount() override { return m_streams.size(); }
    StreamType streamType(int streamNumber) override;
    QVariant metaData(int streamNumber, const QString &key) override;
    bool isActive(int streamNumber) override;
    void setActive(int streamNumber, bool state) override;

public Q_SLOTS:
    void clear();

private:
    void onMetadata(int generation, const QVariantMap &map, const QList<QOrvicStreamInfo> &streams);
    void onValue(int generation, const QString &key, const QVariant &value);
    void onCommandDone(const QOrvicCommandResult &result);

    QOrvicSessionLink *m_link;
    QList<QOrvicStreamInfo> m_streams;
    int m_audio = 0;
    int m_subtitle = 0;
    bool m_subtitlesOn = false;
    quint64 m_pendingSerial = 0;
};

#endif // QORVICSTREAMSCONTROL_H
