// One playback engine of psserver: a GStreamer playbin driven by the calls of
// one client player. Lives on a thread of its own so that a slow pipeline
// operation never holds up the service's socket thread.
#ifndef PSSERVER_PLAYBINENGINE_H
#define PSSERVER_PLAYBINENGINE_H

#include "externalsubtitles.h"
#include "pipelinewriter.h"
#include "subtitlescheduler.h"

#include <QtCore/QByteArray>
#include <QtCore/QElapsedTimer>
#include <QtCore/QObject>
#include <QtCore/QString>
#include <QtCore/QTimer>
#include <QtCore/QVariant>
#include <QtCore/QVector>

#include <gst/gst.h>

#include <atomic>
#include <functional>

#include <playback/spplayer.h>

#include <memory>

class VideoOutChannel;

struct SinkConfig
{
    // gst-launch descriptions; empty means a synchronised fakesink.
    QByteArray audioSink;
    QByteArray videoSink;

    // From ORVIC_AUDIO_SINK / ORVIC_VIDEO_SINK.
    static SinkConfig fromEnvironment();
};

class PlaybinEngine : public QObject
{
    Q_OBJECT

public:
    // Bounded waits of a preparation (preroll).
    static constexpr int kPrepareLocalMs = 10000;
    static constexpr int kPrepareNetworkMs = 30000;

    explicit PlaybinEngine(const SinkConfig &sinks, QObject *parent = nullptr);
    ~PlaybinEngine() override;

    // Runs one operation of the client; the answer comes as replyReady (for
    // a preparation once the preroll ended).
    void handleCall(quint32 sequence, quint32 operation, const QVariantList &arguments);

    // An answer from the values the engine keeps, for the service's socket
    // thread: state, rate, volume and the on/off switches are read, and a
    // volume is stored and queued for the pipeline writer. Only while no
    // other call of the client is in the engine's hands (the pipeline is
    // replaced only inside calls), so that none is overtaken. False: the call needs
    // the engine thread. `events` are what the call announces, to be sent
    // before the answer.
    struct StoredAnswer
    {
        QVariant result;
        QByteArray output;
        QList<QPair<quint32, QVariantList>> events;
        // To run once the answer is out (the pipeline write of a volume):
        // the client need not wait for the writer thread to be woken.
        std::function<void()> afterwards;
    };
    bool answerFromStore(quint32 operation, const QVariantList &arguments, StoredAnswer *answer);

Q_SIGNALS:
    void replyReady(quint32 sequence, const QVariant &result, const QByteArray &output);
    void eventReady(quint32 event, const QVariantList &arguments);

private:
    using State = playback::SPPlayer::state_e;

    bool createPipeline();
    void destroyPipeline();

    int setUrl(const QString &url);
    int setSubUrl(const QString &url);
    void prepare(quint32 sequence);
    int play();
    int seekTo(qint64 positionMs);
    int pause();
    int stop();
    int reset();
    qint64 position();
    bool queryPosition(gint64 *ns) const;
    qint64 duration();
    int setSpeed(double rate);
    int changeStream(int type, int index);
    int currentStream(int type) const;
    int setStreamVolume(int volume);
    void writeVolume(int volume);
    int setParameter(const QByteArray &key, const QByteArray &value);
    int getParameter(const QByteArray &key, QByteArray *output) const;
    int subtitleLanguage(int index, QByteArray *output) const;
    // The tags of embedded subtitle stream `index`, waited for a little when
    // they have not come yet (see the definition); null: none.
    GstTagList *textTags(int index) const;
    // Video to a client's channel (videoout_engine.cpp).
    int attachVideoOut(const QByteArray &token);
    GstElement *makeVideoSink();
    GstElement *makeAudioSink();

    void finishPrepare(int result);
    void checkPrerollProgress();
    bool demuxerHaltedWithoutStreams() const;
    void cancelPrepare();
    void setEngineState(State state);
    void emitEvent(quint32 event, const QVariantList &arguments = QVariantList());
    bool isPrepared() const;
    bool seekWithRate(double rate, qint64 positionMs);
    // Ahead of a flushing seek: starts a flush of each chain whose stream
    // was switched since the last one, through its newly active input (see
    // the definition). The pads flushed, to stop the flush if no seek follows.
    QVector<GstPad *> flushSwitchedChains();
    void seekSettled();
    void clearSeek();
    static void applyPlayFlag(GstElement *playbin, int flag, bool on);
    // Through the writer: may wait for the sink bin.
    void setPlayFlag(int flag, bool on);
    int streamCount(const char *property) const;

    // Subtitle files beside the medium: streams after the embedded ones.
    int subtitleCount() const;
    QList<int> loadExternalSubtitles();
    void showExternalSubtitles(int index);
    double videoFrameRate() const;

    // Pipeline side; these run on the engine thread.
    void handleMessage(GstMessage *message);
    void handleError(GstMessage *message);
    void handleWarning(GstMessage *message);
    void handleBuffering(GstMessage *message);
    void addSubtitleSample(qint64 startMs, qint64 durationMs, const QByteArray &text);
    void updateSubtitle();
    void updateTicking();
    void reportStreamCounts(bool onlyChanges);

    // Streaming-thread entry points.
    static GstBusSyncReply busSyncHandler(GstBus *bus, GstMessage *message, gpointer self);
    static GstFlowReturn onNewTextSample(GstElement *sink, gpointer self);
    static void onAboutToFinish(GstElement *playbin, gpointer self);
    static void onStreamsChanged(GstElement *playbin, gpointer self);

    SinkConfig m_sinks;
    // Declared before the pipeline's members: destroyed after them, once
    // every queued write ran.
    PipelineWriter m_writer;
    GstElement *m_playbin = nullptr;
    GstElement *m_textSink = nullptr;
    std::shared_ptr<VideoOutChannel> m_videoOut;
    std::shared_ptr<VideoOutChannel> m_audioOut; // a probe's copy of the sound

    // Read by the socket thread too (answerFromStore).
    std::atomic<State> m_state{playback::SPPlayer::STATE_IDLE};
    QString m_uri;
    bool m_network = false;
    std::atomic<bool> m_seekable{false};
    std::atomic<qint64> m_durationMs{0};
    std::atomic<qint64> m_lastPositionMs{0};
    std::atomic<double> m_rate{1.0};
    std::atomic<int> m_volume{100};
    std::atomic<bool> m_subtitleOn{false};
    std::atomic<bool> m_videoOn{true};
    std::atomic<bool> m_audioOn{true};
    std::atomic<bool> m_hasPipeline{false};
    // No error and no failed or broken-off preroll on this playbin: it may
    // serve the next pipeline (playbinpool.h).
    // Also cleared by the bus handler on a streaming thread, at once: an
    // error still queued for the engine when the pipeline ends counts.
    std::atomic<bool> m_pipelineReusable{true};
    // Counts the pipelines built; read by the bus handler on a streaming
    // thread to tag what it queues for the engine.
    std::atomic<quint32> m_pipelineGeneration{0};
    int m_bufferingPercent = -1; // last reported
    QElapsedTimer m_bufferingReported;
    QList<int> m_noticesSent;
    bool m_aboutToFinishSent = false;
    // Stream counts (video, audio, text) as last reported.
    int m_streamCounts[3] = {0, 0, 0};

    bool m_preparePending = false;
    quint32 m_prepareSequence = 0;
    QTimer m_prepareTimer;
    QTimer m_prerollCheck;
    int m_haltedChecks = 0;
    // Until a seek has settled the pipeline's position is that of before the
    // flush or in between: the target is reported instead.
    QTimer m_seekSettle;
    // Read by the socket thread too (a position asked of the store).
    std::atomic<bool> m_seekPending{false};
    bool m_speedPending = false;
    // Kinds of stream switched since the last flushing seek (1 << type).
    unsigned m_switchedStreams = 0;
    QTimer m_tick;
    SubtitleScheduler m_subtitles;
    ExternalSubtitles m_external;
    // Index among the files' streams of the one shown; -1: an embedded one.
    int m_externalCurrent = -1;
};

#endif // PSSERVER_PLAYBINENGINE_H
