#include "videoout.h"

#include "hostruntime.h"

#include <QtCore/QHash>
#include <QtCore/QMutexLocker>
#include <QtCore/QSocketNotifier>

#include <gst/app/gstappsink.h>

#include <cerrno>
#include <cstring>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

const char *const kGstFormats[videowire::FormatCount] = {
    nullptr, "BGRx", "BGRA", "RGBx", "I420", "YV12", "NV12", "NV21", "UYVY", "YUY2",
};

const char *const kGstSampleFormats[videowire::SamplesCount] = {nullptr, "S16LE", "S32LE", "F32LE", "U8"};

uint32_t wireSampleFormat(const gchar *name)
{
    for (uint32_t i = 1; name && i < videowire::SamplesCount; ++i) {
        if (std::strcmp(kGstSampleFormats[i], name) == 0)
            return i;
    }
    return videowire::SamplesNone;
}

uint32_t wireFormat(GstVideoFormat format)
{
    const char *name = gst_video_format_to_string(format);
    for (uint32_t i = 1; name && i < videowire::FormatCount; ++i) {
        if (std::strcmp(kGstFormats[i], name) == 0)
            return i;
    }
    return videowire::FormatNone;
}

// A sample's position in the stream, -1 when it has no time stamp.
int64_t streamTimeNs(GstSample *sample)
{
    GstBuffer *buffer = gst_sample_get_buffer(sample);
    GstClockTime pts = buffer ? GST_BUFFER_PTS(buffer) : GST_CLOCK_TIME_NONE;
    if (!GST_CLOCK_TIME_IS_VALID(pts))
        return -1;
    if (const GstSegment *segment = gst_sample_get_segment(sample)) {
        const guint64 streamTime = gst_segment_to_stream_time(segment, GST_FORMAT_TIME, pts);
        if (GST_CLOCK_TIME_IS_VALID(streamTime))
            pts = streamTime;
    }
    return int64_t(pts);
}

// Channels that said hello and whose engine has not taken them yet.
QMutex g_pendingMutex;
QHash<QByteArray, std::shared_ptr<VideoOutChannel>> &pending()
{
    static auto *channels = new QHash<QByteArray, std::shared_ptr<VideoOutChannel>>;
    return *channels;
}

} // namespace

VideoOutChannel::VideoOutChannel(int socket, const videowire::Message &hello)
    : m_kind(hello.kind == videowire::KindAudio ? videowire::KindAudio : videowire::KindVideo),
      m_socket(socket)
{
    gst_video_info_init(&m_info);
    const uint32_t count = isAudio() ? uint32_t(videowire::SamplesCount) : uint32_t(videowire::FormatCount);
    for (uint32_t i = 0; i < qMin<uint32_t>(hello.formatCount, videowire::kMaxFormats); ++i) {
        if (hello.formats[i] > 0 && hello.formats[i] < count && !m_formats.contains(hello.formats[i]))
            m_formats.append(hello.formats[i]);
    }
}

VideoOutChannel::~VideoOutChannel()
{
    freeRing();
}

GstCaps *VideoOutChannel::caps() const
{
    GstCaps *caps = gst_caps_new_empty();
    if (isAudio()) {
        for (uint32_t format : m_formats) {
            gst_caps_append_structure(caps, gst_structure_new("audio/x-raw", "format", G_TYPE_STRING,
                                                              kGstSampleFormats[format], "layout",
                                                              G_TYPE_STRING, "interleaved", nullptr));
        }
        return caps;
    }
    for (uint32_t format : m_formats) {
        gst_caps_append_structure(caps, gst_structure_new("video/x-raw", "format", G_TYPE_STRING,
                                                          kGstFormats[format], nullptr));
    }
    return caps;
}

GstElement *VideoOutChannel::makeSink(const std::shared_ptr<VideoOutChannel> &channel)
{
    GstElement *bin = gst_bin_new("videoout");
    GstElement *convert = gst_element_factory_make("videoconvert", nullptr);
    GstElement *sink = gst_element_factory_make("appsink", nullptr);
    if (!bin || !convert || !sink) {
        qWarning("video out: videoconvert or appsink is not available");
        if (bin)
            gst_object_unref(bin);
        if (convert)
            gst_object_unref(convert);
        if (sink)
            gst_object_unref(sink);
        return nullptr;
    }
    GstCaps *caps = channel->caps();
    g_object_set(sink, "caps", caps, "sync", TRUE, "max-buffers", 1, "drop", TRUE,
                 "enable-last-sample", FALSE, nullptr);
    gst_caps_unref(caps);
    GstAppSinkCallbacks callbacks{};
    callbacks.new_preroll = [](GstAppSink *appsink, gpointer data) {
        if (GstSample *sample = gst_app_sink_pull_preroll(appsink)) {
            (*static_cast<std::shared_ptr<VideoOutChannel> *>(data))->push(sample);
            gst_sample_unref(sample);
        }
        return GST_FLOW_OK;
    };
    callbacks.new_sample = [](GstAppSink *appsink, gpointer data) {
        if (GstSample *sample = gst_app_sink_pull_sample(appsink)) {
            (*static_cast<std::shared_ptr<VideoOutChannel> *>(data))->push(sample);
            gst_sample_unref(sample);
        }
        return GST_FLOW_OK;
    };
    gst_app_sink_set_callbacks(GST_APP_SINK(sink), &callbacks,
                               new std::shared_ptr<VideoOutChannel>(channel),
                               [](gpointer data) { delete static_cast<std::shared_ptr<VideoOutChannel> *>(data); });
    gst_bin_add_many(GST_BIN(bin), convert, sink, nullptr);
    gst_element_link(convert, sink);
    GstPad *pad = gst_element_get_static_pad(convert, "sink");
    gst_element_add_pad(bin, gst_ghost_pad_new("sink", pad));
    gst_object_unref(pad);
    return bin;
}

GstElement *VideoOutChannel::makeAudioSink(const std::shared_ptr<VideoOutChannel> &channel, GstElement *passOn)
{
    GstElement *bin = gst_bin_new("audioout");
    GstElement *tee = gst_element_factory_make("tee", nullptr);
    GstElement *playQueue = gst_element_factory_make("queue", nullptr);
    GstElement *probeQueue = gst_element_factory_make("queue", nullptr);
    GstElement *convert = gst_element_factory_make("audioconvert", nullptr);
    GstElement *sink = gst_element_factory_make("appsink", nullptr);
    if (!bin || !tee || !playQueue || !probeQueue || !convert || !sink || !passOn) {
        qWarning("audio out: tee, queue, audioconvert or appsink is not available");
        for (GstElement *element : {bin, tee, playQueue, probeQueue, convert, sink})
            if (element)
                gst_object_unref(element);
        return passOn;
    }
    GstCaps *caps = channel->caps();
    // The copy goes out as it is played (on the same clock as the sound), so
    // that the client's slots come back in time; its queue is as deep as the
    // played branch's, and neither waits on the other for longer than that.
    g_object_set(sink, "caps", caps, "sync", TRUE, "async", FALSE, "enable-last-sample", FALSE, nullptr);
    gst_caps_unref(caps);
    GstAppSinkCallbacks callbacks{};
    callbacks.new_sample = [](GstAppSink *appsink, gpointer data) {
        if (GstSample *sample = gst_app_sink_pull_sample(appsink)) {
            (*static_cast<std::shared_ptr<VideoOutChannel> *>(data))->pushAudio(sample);
            gst_sample_unref(sample);
        }
        return GST_FLOW_OK;
    };
    gst_app_sink_set_callbacks(GST_APP_SINK(sink), &callbacks,
                               new std::shared_ptr<VideoOutChannel>(channel),
                               [](gpointer data) { delete static_cast<std::shared_ptr<VideoOutChannel> *>(data); });
    gst_bin_add_many(GST_BIN(bin), tee, playQueue, passOn, probeQueue, convert, sink, nullptr);
    gst_element_link_many(tee, playQueue, passOn, nullptr);
    gst_element_link_many(tee, probeQueue, convert, sink, nullptr);
    GstPad *pad = gst_element_get_static_pad(tee, "sink");
    gst_element_add_pad(bin, gst_ghost_pad_new("sink", pad));
    gst_object_unref(pad);
    return bin;
}

void VideoOutChannel::pushAudio(GstSample *sample)
{
    GstBuffer *buffer = gst_sample_get_buffer(sample);
    GstCaps *caps = gst_sample_get_caps(sample);
    const GstStructure *structure = caps ? gst_caps_get_structure(caps, 0) : nullptr;
    gint rate = 0;
    gint channels = 0;
    if (!buffer || !structure || !gst_structure_get_int(structure, "rate", &rate)
        || !gst_structure_get_int(structure, "channels", &channels))
        return;
    const uint32_t format = wireSampleFormat(gst_structure_get_string(structure, "format"));
    const gsize size = gst_buffer_get_size(buffer);
    if (format == videowire::SamplesNone || size == 0)
        return;

    QMutexLocker lock(&m_mutex);
    if (m_closed || m_muted)
        return;
    const uint32_t key[3] = {format, uint32_t(rate), uint32_t(channels)};
    if (!m_map || !std::equal(std::begin(key), std::end(key), std::begin(m_audioKey)) || size > m_slotSize) {
        // Room for a larger buffer than this one: decoders vary their sizes.
        if (!prepareRing(qMax<uint64_t>(size * 2, 64 * 1024)))
            return;
        std::copy(std::begin(key), std::end(key), std::begin(m_audioKey));
    }
    const int free = freeSlot();
    if (free < 0) {
        ++m_dropped;
        return;
    }
    const uint32_t slot = uint32_t(free);
    gst_buffer_extract(buffer, 0, m_map + slot * m_slotSize, size);
    videowire::Message message;
    message.type = videowire::MsgAudio;
    message.format = format;
    message.width = rate;
    message.height = channels;
    message.frameSize = size;
    message.ptsNs = streamTimeNs(sample);
    if (!announce(message, slot))
        ++m_dropped;
}

bool VideoOutChannel::prepareRing(uint64_t slotBytes)
{
    freeRing();
    const uint64_t slotSize = (slotBytes + 4095) & ~uint64_t(4095);
    const size_t mapSize = size_t(slotSize) * videowire::kRingSlots;
    m_memfd = ::memfd_create("orvic-video", MFD_CLOEXEC);
    if (m_memfd < 0 || ::ftruncate(m_memfd, off_t(mapSize)) != 0) {
        qWarning("video out: cannot make a frame ring of %zu bytes: %s", mapSize, std::strerror(errno));
        freeRing();
        return false;
    }
    void *map = ::mmap(nullptr, mapSize, PROT_READ | PROT_WRITE, MAP_SHARED, m_memfd, 0);
    if (map == MAP_FAILED) {
        qWarning("video out: cannot map a frame ring: %s", std::strerror(errno));
        freeRing();
        return false;
    }
    m_map = static_cast<uchar *>(map);
    m_mapSize = mapSize;
    m_slotSize = slotSize;
    ++m_generation;
    m_ringAnnounced = false;
    std::fill(std::begin(m_busy), std::end(m_busy), false);
    return true;
}

void VideoOutChannel::freeRing()
{
    if (m_map)
        ::munmap(m_map, m_mapSize);
    if (m_memfd >= 0)
        ::close(m_memfd);
    m_map = nullptr;
    m_mapSize = 0;
    m_memfd = -1;
    m_haveInfo = false;
    std::fill(std::begin(m_audioKey), std::end(m_audioKey), 0);
}

int VideoOutChannel::freeSlot() const
{
    for (uint32_t slot = 0; slot < videowire::kRingSlots; ++slot) {
        if (!m_busy[slot])
            return int(slot);
    }
    return -1;
}

bool VideoOutChannel::announce(videowire::Message &message, uint32_t slot)
{
    message.generation = m_generation;
    message.slotCount = videowire::kRingSlots;
    message.slotSize = m_slotSize;
    if (!m_ringAnnounced) {
        const uint32_t type = message.type;
        message.type = videowire::MsgRing;
        if (!videowire::sendMessage(m_socket, message, m_memfd))
            return false; // the socket is full: announced with a later frame
        m_ringAnnounced = true;
        message.type = type;
    }
    message.slot = slot;
    if (!videowire::sendMessage(m_socket, message))
        return false;
    m_busy[slot] = true;
    ++m_sent;
    return true;
}

void VideoOutChannel::push(GstSample *sample)
{
    GstBuffer *buffer = gst_sample_get_buffer(sample);
    GstCaps *caps = gst_sample_get_caps(sample);
    GstVideoInfo info;
    if (!buffer || !caps || !gst_video_info_from_caps(&info, caps))
        return;
    const uint32_t format = wireFormat(GST_VIDEO_INFO_FORMAT(&info));
    if (format == videowire::FormatNone)
        return;

    QMutexLocker lock(&m_mutex);
    if (m_closed || m_muted)
        return;
    if (!m_haveInfo || !gst_video_info_is_equal(&info, &m_info)) {
        if (!prepareRing(GST_VIDEO_INFO_SIZE(&info)))
            return;
        m_info = info;
        m_haveInfo = true;
    }
    videowire::Message message;
    message.type = videowire::MsgFrame;
    message.format = format;
    message.width = GST_VIDEO_INFO_WIDTH(&info);
    message.height = GST_VIDEO_INFO_HEIGHT(&info);
    message.planes = GST_VIDEO_INFO_N_PLANES(&info);
    for (uint32_t p = 0; p < message.planes && p < uint32_t(videowire::kMaxPlanes); ++p) {
        message.strides[p] = GST_VIDEO_INFO_PLANE_STRIDE(&info, p);
        message.offsets[p] = GST_VIDEO_INFO_PLANE_OFFSET(&info, p);
    }
    message.frameSize = GST_VIDEO_INFO_SIZE(&info);
    const int free = freeSlot();
    if (free < 0) {
        ++m_dropped; // the client holds every slot: never wait for it
        return;
    }
    const uint32_t slot = uint32_t(free);

    // The one copy: from the decoder's buffer into the slot, in the ring's
    // layout.
    GstVideoFrame source;
    if (!gst_video_frame_map(&source, &info, buffer, GST_MAP_READ))
        return;
    GstBuffer *target = gst_buffer_new_wrapped_full(GstMemoryFlags(0), m_map + slot * m_slotSize,
                                                    m_slotSize, 0, message.frameSize, nullptr, nullptr);
    GstVideoFrame destination;
    bool copied = false;
    if (gst_video_frame_map(&destination, &m_info, target, GST_MAP_WRITE)) {
        copied = gst_video_frame_copy(&destination, &source);
        gst_video_frame_unmap(&destination);
    }
    gst_buffer_unref(target);
    gst_video_frame_unmap(&source);
    if (!copied)
        return;

    message.ptsNs = streamTimeNs(sample);
    if (!announce(message, slot))
        ++m_dropped;
}

void VideoOutChannel::release(uint32_t generation, uint32_t slot)
{
    QMutexLocker lock(&m_mutex);
    if (generation == m_generation && slot < videowire::kRingSlots)
        m_busy[slot] = false;
}

void VideoOutChannel::sendStopped()
{
    QMutexLocker lock(&m_mutex);
    if (m_closed)
        return;
    videowire::Message message;
    message.type = videowire::MsgStopped;
    message.generation = m_generation;
    videowire::sendMessage(m_socket, message);
}

void VideoOutChannel::setMuted(bool muted)
{
    QMutexLocker lock(&m_mutex);
    m_muted = muted;
}

void VideoOutChannel::close()
{
    QMutexLocker lock(&m_mutex);
    m_closed = true;
    freeRing();
}

// ------------------------------------------------------------- server ----

VideoOutServer::VideoOutServer(const std::string &runtimeDir, QObject *parent)
    : QObject(parent),
      m_runtimeDir(runtimeDir)
{
}

VideoOutServer::~VideoOutServer()
{
    delete m_notifier;
    if (m_listenFd >= 0)
        ::close(m_listenFd);
}

bool VideoOutServer::listen()
{
    std::string error;
    m_listenFd = videowire::listenOnSocket(m_runtimeDir, &error);
    if (m_listenFd < 0) {
        qWarning("cannot listen on %s: %s", videowire::socketName(m_runtimeDir).c_str(), error.c_str());
        return false;
    }
    m_notifier = new QSocketNotifier(m_listenFd, QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &VideoOutServer::acceptConnections);
    return true;
}

std::shared_ptr<VideoOutChannel> VideoOutServer::takeChannel(const QByteArray &token)
{
    QMutexLocker lock(&g_pendingMutex);
    return pending().take(token);
}

void VideoOutServer::acceptConnections()
{
    int fd;
    while ((fd = ::accept4(m_listenFd, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK)) >= 0) {
        if (!hostruntime::peerIsThisUser(fd)) {
            qWarning("refusing a video client of another user");
            ::close(fd);
            continue;
        }
        new VideoOutConnection(fd, this);
    }
}

VideoOutConnection::VideoOutConnection(int socket, QObject *parent)
    : QObject(parent),
      m_socket(socket),
      m_notifier(new QSocketNotifier(socket, QSocketNotifier::Read, this))
{
    connect(m_notifier, &QSocketNotifier::activated, this, &VideoOutConnection::readMessages);
}

VideoOutConnection::~VideoOutConnection()
{
    if (m_channel)
        m_channel->close();
    if (!m_token.isEmpty()) {
        QMutexLocker lock(&g_pendingMutex);
        pending().remove(m_token);
    }
    delete m_notifier;
    ::close(m_socket);
}

void VideoOutConnection::readMessages()
{
    for (;;) {
        videowire::Message message;
        int fd = -1;
        const int result = videowire::receiveMessage(m_socket, &message, &fd);
        if (fd >= 0)
            ::close(fd); // clients pass none
        if (result < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
            return;
        if (result <= 0) {
            closeConnection();
            return;
        }
        if (message.type == videowire::MsgHello && !m_channel) {
            m_channel = std::make_shared<VideoOutChannel>(m_socket, message);
            if (!m_channel->hasFormats()) {
                qWarning("video out: refusing a client that takes no format known here");
                closeConnection();
                return;
            }
            m_token = QByteArray(reinterpret_cast<const char *>(message.token), videowire::kTokenSize);
            {
                QMutexLocker lock(&g_pendingMutex);
                pending().insert(m_token, m_channel);
            }
            // Known from now on: the client's player may name the token.
            videowire::Message ack;
            ack.type = videowire::MsgHello;
            videowire::sendMessage(m_socket, ack);
        } else if (message.type == videowire::MsgRelease && m_channel) {
            m_channel->release(message.generation, message.slot);
        }
    }
}

void VideoOutConnection::closeConnection()
{
    // The client is gone (or broke the framing): its ring goes now, its
    // engine renders on into nothing until it is told otherwise.
    m_notifier->setEnabled(false);
    deleteLater();
}
