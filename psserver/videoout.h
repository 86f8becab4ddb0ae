// Video of psserver's engines to client processes. A client connects to the
// video socket and says hello with a token and the pixel formats its surface
// takes; its player then hands the token to its engine ("video-out"), which
// renders into an appsink that copies each frame once into a shared-memory
// ring of the channel. Frames are dropped, never waited for, when the client
// holds every slot.
#ifndef PSSERVER_VIDEOOUT_H
#define PSSERVER_VIDEOOUT_H

#include "videowire.h"

#include <QtCore/QByteArray>
#include <QtCore/QMutex>
#include <QtCore/QObject>

#include <gst/gst.h>
#include <gst/video/video.h>

#include <atomic>
#include <memory>
#include <string>

class QSocketNotifier;

class VideoOutChannel
{
public:
    VideoOutChannel(int socket, const videowire::Message &hello);
    ~VideoOutChannel();
    VideoOutChannel(const VideoOutChannel &) = delete;
    VideoOutChannel &operator=(const VideoOutChannel &) = delete;

    bool isAudio() const { return m_kind == videowire::KindAudio; }
    // Whether the client named any format this side knows.
    bool hasFormats() const { return !m_formats.isEmpty(); }
    // Caps of the sink: the accepted formats, the client's order.
    GstCaps *caps() const;
    // A sink bin rendering into this channel (converting only when the
    // decoder gives none of the accepted formats).
    static GstElement *makeSink(const std::shared_ptr<VideoOutChannel> &channel);
    // An audio sink bin: everything goes on to `passOn` (the configured
    // sink, which keeps the clock and the sound), a copy to this channel.
    static GstElement *makeAudioSink(const std::shared_ptr<VideoOutChannel> &channel, GstElement *passOn);

    // Streaming thread: one frame (a preroll or a rendered sample).
    void push(GstSample *sample);
    // Streaming thread: one buffer of decoded audio.
    void pushAudio(GstSample *sample);
    // The client is done with a slot.
    void release(uint32_t generation, uint32_t slot);
    // Playback stopped or the medium went: the client stops its surface.
    void sendStopped();
    // Frames pushed while muted are dropped unseen.
    void setMuted(bool muted);
    // The client is gone: no more sends, the ring is freed.
    void close();

    int framesSent() const { return m_sent.load(); }
    int framesDropped() const { return m_dropped.load(); }

private:
    bool prepareRing(uint64_t slotBytes);
    void freeRing();
    // The frame in `slot` announced (and the ring first when it is new).
    bool announce(videowire::Message &message, uint32_t slot);
    int freeSlot() const;

    mutable QMutex m_mutex;
    uint32_t m_kind;
    int m_socket;
    bool m_closed = false;
    bool m_muted = false;
    QList<uint32_t> m_formats;
    int m_memfd = -1;
    uchar *m_map = nullptr;
    size_t m_mapSize = 0;
    uint64_t m_slotSize = 0;
    uint32_t m_generation = 0;
    bool m_ringAnnounced = false;
    bool m_busy[videowire::kRingSlots] = {};
    GstVideoInfo m_info;
    bool m_haveInfo = false;
    // Audio: format, rate and channels of the ring's buffers.
    uint32_t m_audioKey[3] = {};
    std::atomic<int> m_sent{0};
    std::atomic<int> m_dropped{0};
};

class VideoOutServer : public QObject
{
    Q_OBJECT

public:
    explicit VideoOutServer(const std::string &runtimeDir, QObject *parent = nullptr);
    ~VideoOutServer() override;

    bool listen();
    // The channel that said hello with `token`, once: null when unknown.
    static std::shared_ptr<VideoOutChannel> takeChannel(const QByteArray &token);

private:
    void acceptConnections();

    std::string m_runtimeDir;
    int m_listenFd = -1;
    QSocketNotifier *m_notifier = nullptr;
};

// One client's video socket on the service thread.
class VideoOutConnection : public QObject
{
    Q_OBJECT

public:
    VideoOutConnection(int socket, QObject *parent);
    ~VideoOutConnection() override;

private:
    void readMessages();
    void closeConnection();

    int m_socket;
    QSocketNotifier *m_notifier;
    QByteArray m_token;
    std::shared_ptr<VideoOutChannel> m_channel;
};

#endif // PSSERVER_VIDEOOUT_H
