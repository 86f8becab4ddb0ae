// The client side of the video channel (hostplayback/videoout.h): a socket
// of its own to psserver, read on a thread of the attachment.
#include <hostplayback/videoout.h>

#include <hostruntime.h>
#include <videowire.h>

#include <QtCore/QMutex>
#include <QtCore/QMutexLocker>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <poll.h>
#include <sys/mman.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace hostplayback {

// In engine.cpp: whether `player` was made by this library's own factory.
bool isClientPlayer(playback::SPPlayer *player);

namespace {

static_assert(uint32_t(VideoPixelFormat::YUY2) == videowire::FormatYUY2, "formats agree");
static_assert(uint32_t(AudioSampleFormat::U8) == videowire::SamplesU8, "sample formats agree");
const int kHelloWaitMs = 2000;

// One mapped ring; frames keep it mapped after a new one replaced it.
class Ring
{
public:
    Ring(uchar *map, size_t size) : m_map(map), m_size(size) {}
    ~Ring() { ::munmap(m_map, m_size); }
    Ring(const Ring &) = delete;
    Ring &operator=(const Ring &) = delete;
    const uchar *slot(uint32_t index, uint64_t slotSize) const { return m_map + index * slotSize; }

private:
    uchar *m_map;
    size_t m_size;
};

// The socket, shared by the reader thread and the frames that send their
// slot back from whatever thread drops them.
struct Socket
{
    QMutex mutex;
    int fd = -1;

    void release(uint32_t generation, uint32_t slot)
    {
        QMutexLocker lock(&mutex);
        if (fd < 0)
            return;
        videowire::Message message;
        message.type = videowire::MsgRelease;
        message.generation = generation;
        message.slot = slot;
        videowire::sendMessage(fd, message);
    }
};

class RingFrame : public VideoFrame
{
public:
    RingFrame(std::shared_ptr<Ring> ring, std::shared_ptr<Socket> socket, const VideoFrameLayout &layout,
              uint32_t slot, const uchar *data, int64_t pts)
        : m_ring(std::move(ring)), m_socket(std::move(socket)), m_layout(layout), m_slot(slot),
          m_data(data), m_pts(pts)
    {
    }
    ~RingFrame() override { m_socket->release(m_layout.generation, m_slot); }
    const VideoFrameLayout &layout() const override { return m_layout; }
    const unsigned char *data() const override { return m_data; }
    int64_t ptsNs() const override { return m_pts; }

private:
    std::shared_ptr<Ring> m_ring;
    std::shared_ptr<Socket> m_socket;
    VideoFrameLayout m_layout;
    uint32_t m_slot;
    const uchar *m_data;
    int64_t m_pts;
};

class RingAudio : public AudioBuffer
{
public:
    RingAudio(std::shared_ptr<Ring> ring, std::shared_ptr<Socket> socket, const AudioBufferLayout &layout,
              uint32_t slot, const uchar *data, int64_t pts)
        : m_ring(std::move(ring)), m_socket(std::move(socket)), m_layout(layout), m_slot(slot),
          m_data(data), m_pts(pts)
    {
    }
    ~RingAudio() override { m_socket->release(m_layout.generation, m_slot); }
    const AudioBufferLayout &layout() const override { return m_layout; }
    const unsigned char *data() const override { return m_data; }
    int64_t ptsNs() const override { return m_pts; }

private:
    std::shared_ptr<Ring> m_ring;
    std::shared_ptr<Socket> m_socket;
    AudioBufferLayout m_layout;
    uint32_t m_slot;
    const uchar *m_data;
    int64_t m_pts;
};

class VideoClient : public VideoAttachment
{
public:
    // One of the receivers, as the channel's kind.
    VideoClient(int fd, VideoReceiver *receiver, AudioReceiver *audio)
        : m_socket(std::make_shared<Socket>()), m_receiver(receiver), m_audio(audio)
    {
        m_socket->fd = fd;
        m_readFd = fd;
        m_thread = std::thread([this] { run(); });
    }
    ~VideoClient() override
    {
        m_detaching = true;
        ::shutdown(m_readFd, SHUT_RDWR); // ends the reader's wait
        m_thread.join();
        QMutexLocker lock(&m_socket->mutex);
        ::close(m_socket->fd);
        m_socket->fd = -1;
    }

private:
    void run()
    {
        for (;;) {
            videowire::Message message;
            int fd = -1;
            const int result = videowire::receiveMessage(m_readFd, &message, &fd);
            if (result <= 0) {
                if (fd >= 0)
                    ::close(fd);
                if (!m_detaching.load()) {
                    if (m_receiver)
                        m_receiver->channelLost();
                    else
                        m_audio->channelLost();
                }
                return;
            }
            switch (message.type) {
            case videowire::MsgRing:
                mapRing(message, fd);
                break;
            case videowire::MsgFrame:
                if (m_receiver)
                    deliver(message);
                break;
            case videowire::MsgAudio:
                if (m_audio)
                    deliverAudio(message);
                break;
            case videowire::MsgStopped:
                if (m_receiver)
                    m_receiver->playbackStopped();
                else
                    m_audio->playbackStopped();
                break;
            default:
                break;
            }
            if (fd >= 0 && message.type != videowire::MsgRing)
                ::close(fd);
        }
    }

    void mapRing(const videowire::Message &message, int fd)
    {
        m_ring.reset();
        if (fd < 0)
            return;
        const size_t size = size_t(message.slotSize) * message.slotCount;
        void *map = ::mmap(nullptr, size, PROT_READ, MAP_SHARED, fd, 0);
        ::close(fd);
        if (map == MAP_FAILED)
            return;
        m_ring = std::make_shared<Ring>(static_cast<uchar *>(map), size);
        m_ringGeneration = message.generation;
        m_slotSize = message.slotSize;
        m_slotCount = message.slotCount;
    }

    // A frame or buffer that names no slot of the mapped ring is given back.
    bool inRing(const videowire::Message &message)
    {
        if (m_ring && message.generation == m_ringGeneration && message.slot < m_slotCount
            && message.frameSize <= m_slotSize)
            return true;
        m_socket->release(message.generation, message.slot);
        return false;
    }

    void deliverAudio(const videowire::Message &message)
    {
        if (!inRing(message))
            return;
        AudioBufferLayout layout;
        layout.format = AudioSampleFormat(message.format);
        layout.sampleRate = message.width;
        layout.channels = message.height;
        layout.size = size_t(message.frameSize);
        layout.generation = message.generation;
        m_audio->audioArrived(std::make_shared<RingAudio>(m_ring, m_socket, layout, message.slot,
                                                          m_ring->slot(message.slot, m_slotSize), message.ptsNs));
    }

    void deliver(const videowire::Message &message)
    {
        if (!inRing(message))
            return;
        VideoFrameLayout layout;
        layout.format = VideoPixelFormat(message.format);
        layout.width = message.width;
        layout.height = message.height;
        layout.planes = int(qMin<uint32_t>(message.planes, videowire::kMaxPlanes));
        for (int p = 0; p < layout.planes; ++p) {
            layout.strides[p] = message.strides[p];
            layout.offsets[p] = size_t(message.offsets[p]);
        }
        layout.size = size_t(message.frameSize);
        layout.generation = message.generation;
        m_receiver->frameArrived(std::make_shared<RingFrame>(
                m_ring, m_socket, layout, message.slot, m_ring->slot(message.slot, m_slotSize),
                message.ptsNs));
    }

    std::shared_ptr<Socket> m_socket;
    int m_readFd = -1;
    VideoReceiver *m_receiver;
    AudioReceiver *m_audio;
    std::thread m_thread;
    std::shared_ptr<Ring> m_ring;
    uint32_t m_ringGeneration = 0;
    uint64_t m_slotSize = 0;
    uint32_t m_slotCount = 0;
    std::atomic<bool> m_detaching{false};
};

bool awaitHelloAck(int fd)
{
    pollfd p{fd, POLLIN, 0};
    int ready;
    while ((ready = ::poll(&p, 1, kHelloWaitMs)) < 0 && errno == EINTR) {
    }
    if (ready != 1)
        return false;
    videowire::Message message;
    int passed = -1;
    const bool ok = videowire::receiveMessage(fd, &message, &passed) == 1 && message.type == videowire::MsgHello;
    if (passed >= 0)
        ::close(passed);
    return ok;
}

} // namespace

namespace {

std::unique_ptr<VideoAttachment> attach(playback::SPPlayer *player, videowire::Message &hello,
                                        VideoReceiver *video, AudioReceiver *audio, int *error)
{
    int ignored = 0;
    int &result = error ? *error : ignored;
    if (!player || (!video && !audio) || !isClientPlayer(player) || hello.formatCount == 0) {
        result = -22;
        return nullptr;
    }
    hello.type = videowire::MsgHello;
    if (::getrandom(hello.token, sizeof hello.token, 0) != ssize_t(sizeof hello.token)) {
        result = -1;
        return nullptr;
    }
    const int fd = videowire::connectToSocket(hostruntime::runtimeDirectory());
    if (fd < 0) {
        result = -111;
        return nullptr;
    }
    if (!videowire::sendMessage(fd, hello, -1, true) || !awaitHelloAck(fd)) {
        ::close(fd);
        result = -111;
        return nullptr;
    }
    const int status = player->setParameter("mRenderer", "video-out", hello.token, int(sizeof hello.token));
    if (status != 0) {
        ::close(fd);
        result = status;
        return nullptr;
    }
    result = 0;
    return std::make_unique<VideoClient>(fd, video, audio);
}

// The known values of `accepted`, at most as many as a hello carries.
template <typename T>
void addFormats(videowire::Message *hello, const std::vector<T> &accepted, uint32_t count)
{
    for (T format : accepted) {
        const uint32_t value = uint32_t(format);
        if (value > 0 && value < count && hello->formatCount < uint32_t(videowire::kMaxFormats))
            hello->formats[hello->formatCount++] = value;
    }
}

} // namespace

std::unique_ptr<VideoAttachment> attachVideo(playback::SPPlayer *player,
                                             const std::vector<VideoPixelFormat> &accepted,
                                             VideoReceiver *receiver, int *error)
{
    videowire::Message hello;
    hello.kind = videowire::KindVideo;
    addFormats(&hello, accepted, videowire::FormatCount);
    return attach(player, hello, receiver, nullptr, error);
}

std::unique_ptr<VideoAttachment> attachAudio(playback::SPPlayer *player,
                                             const std::vector<AudioSampleFormat> &accepted,
                                             AudioReceiver *receiver, int *error)
{
    videowire::Message hello;
    hello.kind = videowire::KindAudio;
    addFormats(&hello, accepted, videowire::SamplesCount);
    return attach(player, hello, nullptr, receiver, error);
}

} // namespace hostplayback
