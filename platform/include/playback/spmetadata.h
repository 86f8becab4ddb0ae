// Metadata reader of the device's playback service (libplayback.so).
// The records are the engine's own layout in 32-bit words; virtual operations
// are in the engine's slot order (binary interface: do not reorder).
#ifndef PLAYBACK_SPMETADATA_H
#define PLAYBACK_SPMETADATA_H

namespace playback {

class SPMetaData
{
public:
    struct AudioAttribute {
        int channel;
        int samplingRate;
        int bitRate;
        char codec[8];
        char language[8];
        int bitDepth;
    };

    struct VideoAttribute {
        int width;
        int height;
        int info1;
        int frameRate;
        int info2;
        char codec[8];
    };

    // Only the language text (from the fourth word on) is defined for clients.
    struct SubtitleAttribute {
        int reserved[3];
        char language[8];
    };

    // Decoded cover picture: RGB888 pixels owned by the reader.
    struct Picture {
        unsigned char *data;
        int reserved[7];
        int width;
        int height;
        int reserved2;
    };

    static SPMetaData *create(const char *name, const char *config);
    static void destroy(SPMetaData *metaData);

    virtual int setUrl(const char *url) = 0;
    virtual int getMediaType() = 0;
    virtual long long getDuration() = 0;
    virtual int getProgramNum() = 0;
    virtual int getAudioStreamNum(int program) = 0;
    virtual int getVideoStreamNum(int program) = 0;
    virtual int getSubtitleStreamNum(int program) = 0;
    virtual int getAudioAttribute(int program, int stream, AudioAttribute &attr) = 0;
    virtual int getVideoAttribute(int program, int stream, VideoAttribute &attr) = 0;
    // Tag bytes for `key`, NUL-terminated, valid until the next call; null when absent.
    virtual const char *getMetaString(const char *key) = 0;
    virtual int getPicture(Picture &picture, int index, int sizeLimit) = 0;
    virtual bool isTagV2() = 0;

protected:
    SPMetaData() {}
    virtual ~SPMetaData() {}

private:
    SPMetaData(const SPMetaData &) = delete;
    SPMetaData &operator=(const SPMetaData &) = delete;
};

#if defined(__arm__) || (defined(__SIZEOF_POINTER__) && __SIZEOF_POINTER__ == 4)
static_assert(sizeof(SPMetaData::AudioAttribute) == 32, "engine audio record is eight words");
static_assert(sizeof(SPMetaData::VideoAttribute) == 28, "engine video record is seven words");
static_assert(sizeof(SPMetaData::Picture) == 44, "engine picture record is eleven words");
static_assert(__builtin_offsetof(SPMetaData::Picture, width) == 32, "picture width is word 9");
static_assert(__builtin_offsetof(SPMetaData::Picture, height) == 36, "picture height is word 10");
#endif
static_assert(__builtin_offsetof(SPMetaData::AudioAttribute, codec) == 12, "codec follows three words");
static_assert(__builtin_offsetof(SPMetaData::SubtitleAttribute, language) == 12, "language from word 4");

} // namespace playback

#endif // PLAYBACK_SPMETADATA_H
