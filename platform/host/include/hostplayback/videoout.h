// Host-only extension of the PC libplayback.so: the decoded video of a
// player, delivered into this process. psserver copies each frame once into
// a shared-memory ring that this process maps; a VideoFrame refers to its
// slot without copying and gives the slot back when its last reference goes.
// There is no such thing on the device, whose engine draws on a hardware
// plane: nothing of the device build may include this header.
#ifndef HOSTPLAYBACK_VIDEOOUT_H
#define HOSTPLAYBACK_VIDEOOUT_H

#include <playback/spplayer.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace hostplayback {

// Pixel layouts as the bytes lie in memory.
enum class VideoPixelFormat : uint32_t {
    None = 0,
    BGRx = 1, // 32-bit RGB, 0xffRRGGBB on a little-endian machine
    BGRA = 2, // 32-bit ARGB, 0xAARRGGBB on a little-endian machine
    RGBx = 3,
    I420 = 4, // planar Y, U, V
    YV12 = 5, // planar Y, V, U
    NV12 = 6,
    NV21 = 7,
    UYVY = 8,
    YUY2 = 9,
};

struct VideoFrameLayout
{
    VideoPixelFormat format = VideoPixelFormat::None;
    int width = 0;
    int height = 0;
    int planes = 0;
    int strides[4] = {};
    size_t offsets[4] = {};
    size_t size = 0;
    // A new layout (size or format) starts a new generation.
    uint32_t generation = 0;
};

class VideoFrame
{
public:
    virtual ~VideoFrame() = default;
    virtual const VideoFrameLayout &layout() const = 0;
    // The frame's bytes in the shared ring, read-only.
    virtual const unsigned char *data() const = 0;
    // Stream time in ns, -1 when unknown.
    virtual int64_t ptsNs() const = 0;
};

class VideoReceiver
{
public:
    virtual ~VideoReceiver() = default;
    // On the channel's own thread, in order.
    virtual void frameArrived(const std::shared_ptr<const VideoFrame> &frame) = 0;
    // Playback stopped or the medium went away: stop showing frames.
    virtual void playbackStopped() = 0;
    // psserver went away; a new attachment is needed once it is back.
    virtual void channelLost() = 0;
};

// A player's video while it lives; destroying it detaches (no callback
// runs after the destructor returned). Frames still held stay readable.
class VideoAttachment
{
public:
    virtual ~VideoAttachment() = default;
};

// Attaches `receiver` to `player`, which must be a player of this library
// (SPPlayer::create), for the pixel formats `accepted` in order of
// preference. Null with *error set on failure: -22 not a player of this
// library or no format it can deliver, -111 no connection to psserver, or
// the engine's refusal.
std::unique_ptr<VideoAttachment> attachVideo(playback::SPPlayer *player,
                                             const std::vector<VideoPixelFormat> &accepted,
                                             VideoReceiver *receiver, int *error);

} // namespace hostplayback

#endif // HOSTPLAYBACK_VIDEOOUT_H
