// Engine player interface of the device's playback service (libplayback.so).
// The virtual operations are declared in the engine's slot order; a client
// compiled against this header calls them through the vtable, so the order is
// part of the binary interface and must never change.
#ifndef PLAYBACK_SPPLAYER_H
#define PLAYBACK_SPPLAYER_H

namespace playback {

class SPPlayer
{
public:
    // Engine states as reported by getState() and CallBack::stateChanged().
    enum state_e {
        STATE_IDLE = 0,
        STATE_INITIALIZED = 1,
        STATE_PREPARING = 2,
        STATE_PREPARED = 3,
        STATE_STOPPED = 4,
        STATE_PLAYING = 5,
        STATE_PAUSED = 6,
        STATE_COMPLETED = 7,
        STATE_ERROR = 8
    };

    enum stream_type_e {
        STREAM_VIDEO = 0,
        STREAM_AUDIO = 1,
        STREAM_OTHER = 2,
        STREAM_SUBTITLE = 3
    };

    // Event sink; the engine calls it on threads of its own.
    class CallBack
    {
    public:
        virtual ~CallBack() {}
        virtual void durationChanged(long long duration) = 0;
        virtual void positionChanged(long long position) = 0;
        virtual void stateChanged(state_e state) = 0;
        virtual void volumeChanged(int volume) = 0;
        virtual void bufferingProgessChanged(int percent) = 0;
        virtual void streamChanged(stream_type_e type, int index) = 0;
        virtual void seekableChanged(bool seekable) = 0;
        virtual void error(int no) = 0;
        virtual void speedChanged(double rate) = 0;
        virtual void prepared() = 0;
        virtual void playbackFinish() = 0;
        virtual void aboutToFinish() = 0;
        virtual void mediaAvailableChanged(stream_type_e type, int index) = 0;
        virtual void subtitleChanged(char *text, char type, int length) = 0;
        virtual void resumeDataChanged(void *data, int length) = 0;
    };

    static SPPlayer *create(const char *name, CallBack *callBack);
    static void destroy(SPPlayer *player);

    virtual int setUrl(const char *url) = 0;
    virtual int setSubUrl(const char *url) = 0;
    virtual int prepare(int arg1, int arg2) = 0;
    virtual int play() = 0;
    virtual int seekTo(long long positionMs) = 0;
    virtual int pause() = 0;
    virtual int stop() = 0;
    virtual int reset() = 0;
    virtual int getState() = 0;
    virtual long long getDuration() = 0;
    virtual long long getPosition() = 0;
    virtual int setSpeed(double speed) = 0;
    virtual double getSpeed() = 0;
    virtual bool isTrickPlaySupported() = 0;
    virtual int getVolume() = 0;
    virtual int changeStream(int streamType, int index) = 0;
    virtual int getCurrentStream(int streamType) = 0;
    virtual int setStreamVolume(int volume) = 0;
    virtual int setParameter(const char *target, const char *key, const void *value, int size) = 0;
    virtual int getParameter(const char *target, const char *key, void *value, int size) = 0;
    // Writes the language text of subtitle stream `index`; the buffer holds 8 bytes.
    virtual int getSubtitleLanguage(int index, char *language) = 0;

protected:
    SPPlayer() {}
    virtual ~SPPlayer() {}

private:
    SPPlayer(const SPPlayer &) = delete;
    SPPlayer &operator=(const SPPlayer &) = delete;
};

} // namespace playback

#endif // PLAYBACK_SPPLAYER_H
