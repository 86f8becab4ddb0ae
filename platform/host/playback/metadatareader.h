// Metadata reader of the PC build of libplayback.so.
//
// Everything is read once per setUrl(): stream attributes from libavformat,
// ID3 tags with TagLib (so that legacy bytes reach the caller unchanged),
// and the encoded cover pictures; the getters only answer from that snapshot.
// setUrl() returns as soon as its answer is certain (for most formats the
// container's header tells) and leaves the rest of the reading to a thread
// of its own; a getter waits for it. The cover is decoded on request,
// because most opens never ask for it.
#ifndef HOSTPLATFORM_METADATAREADER_H
#define HOSTPLATFORM_METADATAREADER_H

#include <playback/spmetadata.h>

#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace hostplatform {
namespace metadatareader {

// Media kinds answered by getMediaType(). 3 is reserved for a kind that is
// not known yet (the session keeps its previous value for it); this reader
// always knows, so it never answers 3.
enum MediaKind {
    MediaKindNone = 0,     // nothing readable
    MediaKindAudio = 1,    // audio streams, no moving picture (a cover does not count)
    MediaKindVideo = 2,    // at least one video stream that is not a cover picture
    MediaKindPending = 3,  // reserved, never answered
    MediaKindPicture = 4   // a still image file (JPEG, PNG, ...)
};

// setUrl() results.
enum Status {
    StatusOk = 0,
    StatusBadUrl = -1,      // null, empty, or a scheme other than file://
    StatusNotReadable = -2, // missing, not a regular file, or no read permission
    StatusNotMedia = -3     // readable, but no demuxer recognises it
};

// Tag text as it stands in the file.
struct TagText {
    std::string bytes;
    // True when the source is Unicode by definition (an ID3v2 frame encoded
    // as UTF-16 or UTF-8, or a container tag): `bytes` is then UTF-8.
    // False for ID3v2 frames flagged Latin-1 and for ID3v1 fields: `bytes`
    // are then the raw bytes, in whatever legacy charset the tagger used.
    bool unicode = false;
};

struct AudioStream {
    int channels = 0;
    int sampleRate = 0;
    int bitRate = 0;      // bit/s, 0 when unknown
    int bitDepth = 0;     // bits per sample; 0 for lossy codecs, which carry none
    std::string codec;    // short codec text, at most 7 bytes
    std::string language; // ISO 639-2 code from the container, at most 7 bytes
};

struct VideoStream {
    int width = 0;
    int height = 0;
    int bitRate = 0;         // bit/s, 0 when unknown (first unnamed word of the record)
    int frameRate = 0;       // frames per second, rounded
    int frameRateMilli = 0;  // frames per 1000 seconds (last unnamed word of the record)
    std::string codec;
};

struct EncodedPicture {
    std::vector<unsigned char> bytes;
    int codecId = 0; // AVCodecID when the container said so; 0 = recognise by signature
};

struct MediaFacts {
    int mediaKind = MediaKindNone;
    long long durationMs = 0;
    int programs = 0;
    std::vector<AudioStream> audio;
    std::vector<VideoStream> video;
    int subtitles = 0;
    std::map<std::string, TagText> tags; // by reader key ("title", "artist_v1", ...)
    std::vector<EncodedPicture> pictures; // index 0 is the front cover when there is one
    bool hasId3 = false;                  // tags came from ID3 (v1 or v2)
};

// A forged header may claim a picture of gigapixels; no real cover or video
// frame is bigger than this, so decoders refuse before allocating.
constexpr long long kMaxPicturePixels = 40LL * 1000 * 1000;

struct RgbImage {
    std::vector<unsigned char> pixels; // RGB888, rows padded to 4 bytes
    int width = 0;
    int height = 0;
};

struct Size {
    int width;
    int height;
};

// The local path that `url` names (a plain path or a file:// URI with
// percent-escapes); empty when it names none.
std::string localPathFromUrl(const char *url);

// Where a medium's bytes are read from: a local file, or a buffer in memory
// that is read in place (it must outlive the read). Both give the same
// answers for the same bytes, except that a medium in memory has no name to
// hint at its format (read like a file whose name tells nothing) and may
// name no other file (a playlist's or a reference file's entries are not
// opened).
struct MediaSource {
    std::string path;                    // the file, when `data` is null
    const unsigned char *data = nullptr; // the bytes in memory
    size_t size = 0;

    static MediaSource file(const std::string &path);
    static MediaSource memory(const unsigned char *data, size_t size);
    bool inMemory() const { return data != nullptr; }
};

// Streams, duration, container tags and attached pictures. Bounded in time:
// a file that keeps the demuxer busy is given up.
int probeStreams(const MediaSource &source, MediaFacts &facts);
int probeStreams(const std::string &path, MediaFacts &facts);

// probeStreams() in two steps: openMedium() reads the container's header
// (StatusOk with the medium, or StatusNotMedia), readStreams() learns the
// streams' parameters (a few packets) and gives probeStreams()'s answer.
// Both steps share one deadline; the second may run on another thread.
struct OpenedMedium;
struct OpenedMediumDeleter {
    void operator()(OpenedMedium *medium) const;
};
using OpenedMediumPtr = std::unique_ptr<OpenedMedium, OpenedMediumDeleter>;
int openMedium(const MediaSource &source, OpenedMediumPtr &medium);
int readStreams(OpenedMedium &medium, MediaFacts &facts);
// True when the header alone shows that readStreams() answers StatusOk:
// the format lists its streams in its header, and one of them is audio,
// subtitles or a moving picture.
bool headerDecidesStatus(const OpenedMedium &medium);

// ID3v2 at the start and ID3v1 at the end of the file, of any format.
// Returns true when either was found; fills tags and pictures.
bool readId3Tags(const MediaSource &source, MediaFacts &facts);
bool readId3Tags(const std::string &path, MediaFacts &facts);

// Codec text for a libavformat codec id, short enough for the 8-byte fields.
std::string shortCodecName(int codecId);

// Size of a `width` x `height` picture scaled down to fit `limit` x `limit`
// with its aspect kept; unchanged when it fits or `limit` <= 0.
Size fitWithin(int width, int height, int limit);

// Decodes and scales a cover picture; false for anything undecodable.
bool decodePicture(const EncodedPicture &picture, int sizeLimit, RgbImage &image);

// Installs TagLib's byte-preserving string handlers (once per process).
void installTagStringHandlers();

// The reader's answers:
// - setUrl: a path or a file:// URI; StatusOk or a negative Status. Every
//   failure forgets the previous file.
// - getMediaType: a MediaKind. getDuration: milliseconds. getProgramNum: 1
//   for an opened file, else 0; program 0 is the only one.
// - Stream indexes count within their type, in container order; a cover
//   picture is no video stream. Audio: codec and ISO 639-2 language texts
//   NUL-terminated in their 8 bytes. Video: info1 = bit rate (bit/s),
//   frameRate = frames per second (rounded), info2 = frames per 1000 s.
// - getMetaString: "title", "artist", "album", "date", "comment", "genre"
//   from ID3v2, or from the container's tags when the file has no ID3 tag;
//   the same names with "_v1" from ID3v1, and "TP1_V1" / "TAL_V1" as the
//   ID3v1 artist / album under their ID3v2.2 frame names. Null when absent
//   or empty.
// - isTagV2: whether the last getMetaString answer is Unicode text (UTF-8):
//   true for ID3v2 frames encoded UTF-16/UTF-8 and container tags, false
//   for ID3v2 frames flagged Latin-1 (legacy bytes), ID3v1 fields, and after
//   a read that found nothing. The session takes true as "UTF-8, do not
//   detect", so a Latin-1-flagged frame holding GBK must answer false even
//   though it is an ID3v2 tag.
// - getPicture: picture `index` (0 = the front cover, else the first), RGB888
//   rows padded to 4 bytes, scaled to fit sizeLimit x sizeLimit keeping the
//   aspect (no limit when <= 0, never enlarged); the pixels stay valid until
//   the next getPicture or setUrl, or destruction.
class FileMetaData : public playback::SPMetaData
{
public:
    FileMetaData() = default;
    // Waits for a read that setUrl() left running.
    ~FileMetaData() override;

    int setUrl(const char *url) override;
    // The answers setUrl() gives for a file holding these `size` bytes, read
    // from memory: for callers that hold a medium's bytes and no file of it.
    // An empty buffer is StatusNotMedia, like an empty file.
    int setBytes(const unsigned char *data, size_t size);
    int getMediaType() override;
    long long getDuration() override;
    int getProgramNum() override;
    int getAudioStreamNum(int program) override;
    int getVideoStreamNum(int program) override;
    int getSubtitleStreamNum(int program) override;
    int getAudioAttribute(int program, int stream, AudioAttribute &attr) override;
    int getVideoAttribute(int program, int stream, VideoAttribute &attr) override;
    const char *getMetaString(const char *key) override;
    int getPicture(Picture &picture, int index, int sizeLimit) override;
    bool isTagV2() override;

private:
    bool hasProgram(int program) const { return program == 0 && mFacts.programs > 0; }
    // Forgets the previous medium; called with mLock held.
    void forget();
    // Reads the facts of a readable source; called with mLock held.
    int read(const MediaSource &source);
    // mLock, once the facts of the last setUrl() are there.
    std::unique_lock<std::mutex> lockFacts();
    // With mLock held: waits for a read left running and joins its thread.
    void finishRead(std::unique_lock<std::mutex> &locker);

    std::mutex mLock;
    // setUrl() answers once the container's header has shown its status;
    // the streams' parameters and the tags are then read on mReader while
    // the caller goes on (the session sets up and prepares the engine
    // meanwhile). mReading is true until its facts are in mFacts.
    std::thread mReader;
    std::condition_variable mRead;
    bool mReading = false;
    MediaFacts mFacts;
    std::string mLastString; // answer of the last getMetaString()
    bool mLastTagV2 = false;
    RgbImage mPicture;       // answer of the last getPicture()
};

} // namespace metadatareader
} // namespace hostplatform

#endif // HOSTPLATFORM_METADATAREADER_H
