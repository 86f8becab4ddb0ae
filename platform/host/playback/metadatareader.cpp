#include "metadatareader.h"
#include "filemetadata.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cstring>
#include <system_error>
#include <utility>
#include <strings.h>

namespace hostplatform {
namespace metadatareader {

namespace {

int hexValue(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

// Percent-escapes of a URI path; empty when an escape is malformed or
// decodes to a NUL, which no file name can hold.
std::string percentDecoded(const std::string &text)
{
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            out += text[i];
            continue;
        }
        if (i + 2 >= text.size())
            return std::string();
        const int high = hexValue(text[i + 1]);
        const int low = hexValue(text[i + 2]);
        if (high < 0 || low < 0 || (high == 0 && low == 0))
            return std::string();
        out += char(high * 16 + low);
        i += 2;
    }
    return out;
}

bool startsWithNoCase(const char *text, const char *prefix)
{
    return strncasecmp(text, prefix, strlen(prefix)) == 0;
}

// "scheme://" at the start, the scheme being a letter followed by letters,
// digits, "+", "-" or ".".
bool hasScheme(const char *text)
{
    if (!isalpha(static_cast<unsigned char>(text[0])))
        return false;
    const char *p = text + 1;
    while (isalnum(static_cast<unsigned char>(*p)) || *p == '+' || *p == '-' || *p == '.')
        ++p;
    return strncmp(p, "://", 3) == 0;
}

// Keys that name the same field under another tag's frame name.
const char *canonicalKey(const char *key)
{
    if (strcmp(key, "TP1_V1") == 0)
        return "artist_v1";
    if (strcmp(key, "TAL_V1") == 0)
        return "album_v1";
    return key;
}

template <size_t N>
void copyText(char (&field)[N], const std::string &text)
{
    const size_t n = text.size() < N - 1 ? text.size() : N - 1;
    memcpy(field, text.data(), n);
    memset(field + n, 0, N - n);
}

} // namespace

std::string localPathFromUrl(const char *url)
{
    if (!url || !*url)
        return std::string();
    if (!hasScheme(url))
        return url;
    if (!startsWithNoCase(url, "file://"))
        return std::string();
    std::string rest(url + strlen("file://"));
    // file:///path and file://localhost/path name a local file; any other
    // host does not.
    if (rest.compare(0, strlen("localhost/"), "localhost/") == 0)
        rest.erase(0, strlen("localhost"));
    if (rest.empty() || rest[0] != '/')
        return std::string();
    const size_t query = rest.find_first_of("?#");
    if (query != std::string::npos)
        rest.erase(query);
    return percentDecoded(rest);
}

MediaSource MediaSource::file(const std::string &path)
{
    MediaSource source;
    source.path = path;
    return source;
}

MediaSource MediaSource::memory(const unsigned char *data, size_t size)
{
    // A null pointer with no bytes still names an (empty) buffer.
    static const unsigned char kNoBytes = 0;
    MediaSource source;
    source.data = data ? data : &kNoBytes;
    source.size = data ? size : 0;
    return source;
}

int probeStreams(const std::string &path, MediaFacts &facts)
{
    return probeStreams(MediaSource::file(path), facts);
}

bool readId3Tags(const std::string &path, MediaFacts &facts)
{
    return readId3Tags(MediaSource::file(path), facts);
}

void FileMetaData::forget()
{
    mFacts = MediaFacts();
    mLastString.clear();
    mLastTagV2 = false;
    mPicture = RgbImage();
}

namespace {

// The facts of an opened medium: its streams, then its ID3 tags, read once
// libavformat has let go of the file.
int readFacts(const MediaSource &source, OpenedMediumPtr medium, MediaFacts &facts)
{
    const int status = readStreams(*medium, facts);
    medium.reset();
    if (status != StatusOk)
        return status;
    // ID3 tags are read by TagLib and replace the container's view of them:
    // libavformat decodes Latin-1 frames and merges both ID3 versions, which
    // loses the raw bytes and which version answered.
    MediaFacts id3;
    if (readId3Tags(source, id3)) {
        facts.tags = std::move(id3.tags);
        if (!id3.pictures.empty())
            facts.pictures = std::move(id3.pictures);
        facts.hasId3 = true;
    }
    return StatusOk;
}

} // namespace

FileMetaData::~FileMetaData()
{
    std::unique_lock<std::mutex> locker(mLock);
    finishRead(locker);
}

void FileMetaData::finishRead(std::unique_lock<std::mutex> &locker)
{
    mRead.wait(locker, [this] { return !mReading; });
    // The reader sets mReading last and takes mLock no more: it is ending.
    if (mReader.joinable())
        mReader.join();
}

std::unique_lock<std::mutex> FileMetaData::lockFacts()
{
    std::unique_lock<std::mutex> locker(mLock);
    finishRead(locker);
    return locker;
}

int FileMetaData::setUrl(const char *url)
{
    std::unique_lock<std::mutex> locker(mLock);
    finishRead(locker);
    forget();
    const std::string path = localPathFromUrl(url);
    if (path.empty())
        return StatusBadUrl;
    // Only regular files: opening a FIFO or a device would block or never end.
    struct stat st;
    if (stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode) || access(path.c_str(), R_OK) != 0)
        return StatusNotReadable;
    const MediaSource source = MediaSource::file(path);
    OpenedMediumPtr medium;
    const int opened = openMedium(source, medium);
    if (opened != StatusOk)
        return opened;
    if (!headerDecidesStatus(*medium)) {
        MediaFacts facts;
        const int status = readFacts(source, std::move(medium), facts);
        if (status == StatusOk)
            mFacts = std::move(facts);
        return status;
    }
    // The answer is known: the rest is read while the caller goes on.
    mReading = true;
    try {
        mReader = std::thread([this, source, m = std::move(medium)]() mutable {
            MediaFacts facts;
            const bool ok = readFacts(source, std::move(m), facts) == StatusOk;
            const std::lock_guard<std::mutex> guard(mLock);
            if (ok)
                mFacts = std::move(facts);
            mReading = false;
            mRead.notify_all();
        });
    } catch (const std::system_error &) {
        // No thread to be had: read here, as a medium whose header tells nothing.
        mReading = false;
        return read(source);
    }
    return StatusOk;
}

int FileMetaData::setBytes(const unsigned char *data, size_t size)
{
    std::unique_lock<std::mutex> locker(mLock);
    finishRead(locker);
    forget();
    return read(MediaSource::memory(data, size));
}

int FileMetaData::read(const MediaSource &source)
{
    OpenedMediumPtr medium;
    const int opened = openMedium(source, medium);
    if (opened != StatusOk)
        return opened;
    MediaFacts facts;
    const int status = readFacts(source, std::move(medium), facts);
    if (status == StatusOk)
        mFacts = std::move(facts);
    return status;
}

int FileMetaData::getMediaType()
{
    const std::unique_lock<std::mutex> locker = lockFacts();
    return mFacts.mediaKind;
}

long long FileMetaData::getDuration()
{
    const std::unique_lock<std::mutex> locker = lockFacts();
    return mFacts.durationMs;
}

int FileMetaData::getProgramNum()
{
    const std::unique_lock<std::mutex> locker = lockFacts();
    return mFacts.programs;
}

int FileMetaData::getAudioStreamNum(int program)
{
    const std::unique_lock<std::mutex> locker = lockFacts();
    return hasProgram(program) ? int(mFacts.audio.size()) : 0;
}

int FileMetaData::getVideoStreamNum(int program)
{
    const std::unique_lock<std::mutex> locker = lockFacts();
    return hasProgram(program) ? int(mFacts.video.size()) : 0;
}

int FileMetaData::getSubtitleStreamNum(int program)
{
    const std::unique_lock<std::mutex> locker = lockFacts();
    return hasProgram(program) ? mFacts.subtitles : 0;
}

int FileMetaData::getAudioAttribute(int program, int stream, AudioAttribute &attr)
{
    const std::unique_lock<std::mutex> locker = lockFacts();
    if (!hasProgram(program) || stream < 0 || size_t(stream) >= mFacts.audio.size())
        return -1;
    const AudioStream &a = mFacts.audio[size_t(stream)];
    attr.channel = a.channels;
    attr.samplingRate = a.sampleRate;
    attr.bitRate = a.bitRate;
    copyText(attr.codec, a.codec);
    copyText(attr.language, a.language);
    attr.bitDepth = a.bitDepth;
    return 0;
}

int FileMetaData::getVideoAttribute(int program, int stream, VideoAttribute &attr)
{
    const std::unique_lock<std::mutex> locker = lockFacts();
    if (!hasProgram(program) || stream < 0 || size_t(stream) >= mFacts.video.size())
        return -1;
    const VideoStream &v = mFacts.video[size_t(stream)];
    attr.width = v.width;
    attr.height = v.height;
    attr.info1 = v.bitRate;
    attr.frameRate = v.frameRate;
    attr.info2 = v.frameRateMilli;
    copyText(attr.codec, v.codec);
    return 0;
}

const char *FileMetaData::getMetaString(const char *key)
{
    const std::unique_lock<std::mutex> locker = lockFacts();
    mLastTagV2 = false;
    if (!key)
        return nullptr;
    const auto it = mFacts.tags.find(canonicalKey(key));
    if (it == mFacts.tags.end())
        return nullptr;
    mLastString = it->second.bytes;
    mLastTagV2 = it->second.unicode;
    return mLastString.c_str();
}

int FileMetaData::getPicture(Picture &picture, int index, int sizeLimit)
{
    const std::unique_lock<std::mutex> locker = lockFacts();
    mPicture = RgbImage();
    if (index < 0 || size_t(index) >= mFacts.pictures.size())
        return -1;
    if (!decodePicture(mFacts.pictures[size_t(index)], sizeLimit, mPicture)) {
        mPicture = RgbImage();
        return -1;
    }
    picture.data = mPicture.pixels.data();
    picture.width = mPicture.width;
    picture.height = mPicture.height;
    return 0;
}

bool FileMetaData::isTagV2()
{
    const std::unique_lock<std::mutex> locker = lockFacts();
    return mLastTagV2;
}

} // namespace metadatareader

playback::SPMetaData *createFileMetaData(const char *, const char *)
{
    metadatareader::installTagStringHandlers();
    return new metadatareader::FileMetaData;
}

void destroyFileMetaData(playback::SPMetaData *metaData)
{
    delete static_cast<metadatareader::FileMetaData *>(metaData);
}

} // namespace hostplatform
