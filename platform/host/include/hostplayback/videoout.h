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

// Decoded audio as it goes to the sound output (for probes): interleaved.
enum class AudioSampleFormat : uint32_t {
    None = 0,
    S16LE = 1,
    S32LE = 2,
    F32LE = 3,
    U8 = 4,
};

struct AudioBufferLayout
{
    AudioSampleFormat format = AudioSampleFormat::None;
    int sampleRate = 0;
    int channels = 0;
    size_t size = 0; // bytes
    uint32_t generation = 0;
};

class AudioBuffer
{
public:
    virtual ~AudioBuffer() = default;
    virtual const AudioBufferLayout &layout() const = 0;
    virtual const unsigned char *data() const = 0;
    virtual int64_t ptsNs() const = 0;
};

class AudioReceiver
{
public:
    virtual ~AudioReceiver() = default;
    // On the channel's own thread, in order.
    virtual void audioArrived(const std::shared_ptr<const AudioBuffer> &buffer) = 0;
    virtual void playbackStopped() = 0;
    virtual void channelLost() = 0;
};

// Attaches `receiver` to `player`, which must be a player of this library
// (SPPlayer::create), for the pixel formats `accepted` in order of
// preference. Null with *error set on failure: -22 not a player of this
// library or no format it can deliver, -111 no connection to psserver, or
// the engine's refusal.
std::unique_ptr<VideoAttachment> attachVideo(playback::SPPlayer *player,
                                             const std::vector<VideoPixelFormat> &accepted,
                                             VideoReceiver *receiver, int *error);

// Attaches an audio receiver to `player` in the sample formats `accepted`
// (in order of preference; psserver converts others): a copy of what is
// played, the sound itself goes on as before. Errors as attachVideo().
std::unique_ptr<VideoAttachment> attachAudio(playback::SPPlayer *player,
                                             const std::vector<AudioSampleFormat> &accepted,
                                             AudioReceiver *receiver, int *error);

} // namespace hostplayback

#endif // HOSTPLAYBACK_VIDEOOUT_H
