// The video channel between psserver and a client player: a local
// SOCK_SEQPACKET socket of its own beside the service socket. One message
// layout serves every kind; the frames themselves lie in a shared-memory
// ring whose descriptor travels with the ring message (SCM_RIGHTS). A
// channel of the audio kind carries decoded audio buffers the same way
// (for probes: the played sound goes on to the configured sink).
//
//  client -> service  Hello (kind, token, accepted formats), Release (slot)
//  service -> client  Hello (acknowledged), Ring (descriptor, layout),
//                     Frame or Audio (slot, pts, layout),
//                     Stopped (stop, unload, new medium)
#ifndef ORVIC_VIDEOWIRE_H
#define ORVIC_VIDEOWIRE_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace videowire {

enum MessageType : uint32_t {
    MsgHello = 1,
    MsgRing = 2,
    MsgFrame = 3,
    MsgRelease = 4,
    MsgStopped = 5,
    MsgAudio = 6,
};

enum ChannelKind : uint32_t {
    KindVideo = 0,
    KindAudio = 1,
};

// Audio samples, interleaved. In an Audio message: format, width = sample
// rate, height = channels, frameSize = bytes.
enum SampleFormat : uint32_t {
    SamplesNone = 0,
    SamplesS16LE = 1,
    SamplesS32LE = 2,
    SamplesF32LE = 3,
    SamplesU8 = 4,
    SamplesCount
};

// Pixel layouts as the bytes lie in memory.
enum PixelFormat : uint32_t {
    FormatNone = 0,
    FormatBGRx = 1, // 32-bit RGB, little endian 0xffRRGGBB
    FormatBGRA = 2, // 32-bit ARGB, little endian 0xAARRGGBB
    FormatRGBx = 3,
    FormatI420 = 4, // planar Y, U, V
    FormatYV12 = 5, // planar Y, V, U
    FormatNV12 = 6, // Y, interleaved UV
    FormatNV21 = 7,
    FormatUYVY = 8,
    FormatYUY2 = 9,
    FormatCount
};

constexpr int kMaxPlanes = 4;
constexpr int kMaxFormats = 16;
constexpr int kTokenSize = 16;
// Slots of a ring: one shown, one queued, one being filled, one spare.
constexpr uint32_t kRingSlots = 4;

struct Message
{
    uint32_t type = 0;
    uint32_t generation = 0; // of the ring a Ring, Frame or Release is about
    uint32_t slot = 0;
    uint32_t slotCount = 0;
    uint64_t slotSize = 0;
    int64_t ptsNs = -1; // stream time; -1 unknown
    uint32_t format = FormatNone;
    int32_t width = 0;
    int32_t height = 0;
    uint32_t planes = 0;
    int32_t strides[kMaxPlanes] = {};
    uint64_t offsets[kMaxPlanes] = {};
    uint64_t frameSize = 0;
    uint32_t formatCount = 0;
    uint32_t formats[kMaxFormats] = {};
    uint8_t token[kTokenSize] = {};
    uint32_t kind = KindVideo;
};

// Abstract socket name of the video channel of runtime directory `dir`.
std::string socketName(const std::string &dir);
int listenOnSocket(const std::string &dir, std::string *error);
// A connected socket, or -1 (errno set).
int connectToSocket(const std::string &dir);

// One message, with a descriptor when `fd` >= 0. `wait`: block until the
// socket takes it; otherwise a full socket fails with EAGAIN.
bool sendMessage(int socket, const Message &message, int fd = -1, bool wait = false);
// One message (blocking unless the socket is non-blocking); a passed
// descriptor lands in *fd (else -1). 1: a message, 0: peer gone, -1: error
// (errno set; EAGAIN when nothing is waiting on a non-blocking socket).
int receiveMessage(int socket, Message *message, int *fd);

} // namespace videowire

#endif // ORVIC_VIDEOWIRE_H
