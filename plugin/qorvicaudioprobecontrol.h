#ifndef QORVICAUDIOPROBECONTROL_H
#define QORVICAUDIOPROBECONTROL_H

#include <hostplayback/videoout.h>

#include <QtCore/QMutex>
#include <QtCore/QObject>
#include <QtCore/QPointer>
#include <QtMultimedia/QAudioBuffer>
#include <QtMultimedia/QMediaAudioProbeControl>

#include <atomic>
#include <memory>

class QOrvicAudioProbeHub;
class QOrvicSessionLink;

// Receives psserver's copy of the played sound on the channel's thread and
// hands it on as QAudioBuffers in their real format.
class QOrvicAudioProbeSink : public hostplayback::AudioReceiver
{
public:
    void setTarget(QOrvicAudioProbeHub *target);
    void audioArrived(const std::shared_ptr<const hostplayback::AudioBuffer> &buffer) override;
    void playbackStopped() override;
    void channelLost() override;
    bool takeLost() { return m_lost.exchange(false); }

private:
    QMutex m_mutex;
    QOrvicAudioProbeHub *m_target = nullptr;
    std::atomic<bool> m_lost{false};
};

// The player's audio probes: the sound is asked of psserver only while at
// least one QAudioProbe watches.
class QOrvicAudioProbeHub : public QObject
{
    Q_OBJECT
public:
    QOrvicAudioProbeHub(QOrvicSessionLink *link, QObject *parent = nullptr);
    ~QOrvicAudioProbeHub() override;

    void addProbe();
    void removeProbe();

    // The format of a buffer of `layout`, invalid for an unknown one.
    static QAudioFormat audioFormat(const hostplayback::AudioBufferLayout &layout);

Q_SIGNALS:
    void audioBufferProbed(const QAudioBuffer &buffer);
    void flush();

private:
    void bind(bool on);

    QOrvicSessionLink *m_link;
    std::shared_ptr<QOrvicAudioProbeSink> m_sink;
    int m_probes = 0;
};

// QMediaAudioProbeControl: the decoded sound as it is played.
class QOrvicAudioProbeControl : public QMediaAudioProbeControl
{
    Q_OBJECT
public:
    QOrvicAudioProbeControl(QOrvicAudioProbeHub *hub, QObject *parent = nullptr);
    ~QOrvicAudioProbeControl() override;

private:
    // The service may go before a QAudioProbe releases this control.
    QPointer<QOrvicAudioProbeHub> m_hub;
};

#endif // QORVICAUDIOPROBECONTROL_H
