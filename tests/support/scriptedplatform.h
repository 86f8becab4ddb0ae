// Scriptable test doubles of the device platform, installed through the host
// platform libraries' injection point. Every operation is recorded with its
// arguments in call order; results come from per-operation answer queues with
// a default; out-parameters are filled as scripted.
#ifndef ORVICTEST_SCRIPTEDPLATFORM_H
#define ORVICTEST_SCRIPTEDPLATFORM_H

#include <hostplatform/hostplatform.h>

#include <QtCore/QByteArray>
#include <QtCore/QHash>
#include <QtCore/QList>
#include <QtCore/QMutex>
#include <QtCore/QPair>
#include <QtCore/QQueue>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QVariant>

#include <functional>
#include <memory>
#include <vector>

namespace orvictest {

// Ordered, thread-safe record of calls such as "seekTo(5000)".
class CallRecorder
{
public:
    void record(const QString &call);
    QStringList calls() const;
    // Calls whose name (the text before '(') is `name`.
    QStringList callsNamed(const QString &name) const;
    int count(const QString &name) const;
    void clear();

private:
    mutable QMutex m_mutex;
    QStringList m_calls;
};

// Answer queues per operation. next() pops the queue, or returns the default
// set for the operation, or `fallback`.
class Script
{
public:
    void setDefault(const QString &op, const QVariant &value);
    void push(const QString &op, const QVariant &value);
    void push(const QString &op, const QVariantList &values);
    QVariant next(const QString &op, const QVariant &fallback);
    bool has(const QString &op) const;
    void clear();

private:
    mutable QMutex m_mutex;
    QHash<QString, QQueue<QVariant>> m_queues;
    QHash<QString, QVariant> m_defaults;
};

// ---------------------------------------------------------------- engine ----

class ScriptedPlayer : public playback::SPPlayer
{
public:
    ScriptedPlayer(const QString &name, CallBack *callBack, CallRecorder *recorder);
    ~ScriptedPlayer() override;

    QString name() const { return m_name; }
    CallBack *callBack() const { return m_callBack; }

    // Results: script().push("prepare", -1), script().setDefault("getSpeed", 2.0), ...
    // Out-parameters:
    //   getParameter: status from "getParameter"; the int written from
    //     "getParameter/<key>" (nothing written when not scripted);
    //   getSubtitleLanguage: status from "getSubtitleLanguage"; the bytes
    //     written (at most 8, NUL included) from "getSubtitleLanguage/<index>".
    Script &script() { return m_script; }
    // Runs inside the operation before it answers (e.g. to block prepare()).
    void setHook(const QString &op, std::function<void()> hook);

    int setUrl(const char *url) override;
    int setSubUrl(const char *url) override;
    int prepare(int arg1, int arg2) override;
    int play() override;
    int seekTo(long long positionMs) override;
    int pause() override;
    int stop() override;
    int reset() override;
    int getState() override;
    long long getDuration() override;
    long long getPosition() override;
    int setSpeed(double speed) override;
    double getSpeed() override;
    bool isTrickPlaySupported() override;
    int getVolume() override;
    int changeStream(int streamType, int index) override;
    int getCurrentStream(int streamType) override;
    int setStreamVolume(int volume) override;
    int setParameter(const char *target, const char *key, const void *value, int size) override;
    int getParameter(const char *target, const char *key, void *value, int size) override;
    int getSubtitleLanguage(int index, char *language) override;

private:
    QVariant answer(const QString &op, const QString &call, const QVariant &fallback);

    QString m_name;
    CallBack *m_callBack;
    CallRecorder *m_recorder;
    Script m_script;
    QMutex m_hookMutex;
    QHash<QString, std::function<void()>> m_hooks;
};

class ScriptedMetaData : public playback::SPMetaData
{
public:
    ScriptedMetaData(const QString &name, const QString &config, CallRecorder *recorder);
    ~ScriptedMetaData() override;

    QString name() const { return m_name; }
    QString config() const { return m_config; }

    // Results by operation name as for ScriptedPlayer. Out-parameters:
    //   getAudioAttribute: status from "getAudioAttribute"; record from setAudioAttribute(stream);
    //   getVideoAttribute: status from "getVideoAttribute"; record from setVideoAttribute(stream);
    //   getMetaString(key): the bytes set with setMetaString(key) (null when unset);
    //   getPicture: status from "getPicture"; record from setPicture().
    Script &script() { return m_script; }
    void setAudioAttribute(int stream, const AudioAttribute &attr);
    void setVideoAttribute(int stream, const VideoAttribute &attr);
    void setMetaString(const QByteArray &key, const QByteArray &bytes);
    void setPicture(const Picture &picture);

    int setUrl(const char *url) override;
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
    QVariant answer(const QString &op, const QString &call, const QVariant &fallback);

    QString m_name;
    QString m_config;
    CallRecorder *m_recorder;
    Script m_script;
    QMutex m_dataMutex;
    QHash<int, AudioAttribute> m_audio;
    QHash<int, VideoAttribute> m_video;
    QHash<QByteArray, QByteArray> m_strings;
    Picture m_picture{};
};

// Installs itself as the engine factory for its lifetime. Players and readers
// it creates are recorded ("SPPlayer::create(Qspmediaplayer)", "SPPlayer::destroy",
// ...) in the shared recorder, together with every engine operation. Objects
// that the code under test abandons are deleted when the factory goes.
class ScriptedEngine : public hostplatform::EngineFactory
{
public:
    ScriptedEngine();
    ~ScriptedEngine() override;

    CallRecorder &recorder() { return m_recorder; }
    // Applied to each new player / reader before it is handed out.
    void onNewPlayer(std::function<void(ScriptedPlayer *)> setup);
    void onNewMetaData(std::function<void(ScriptedMetaData *)> setup);

    ScriptedPlayer *lastPlayer() const;
    ScriptedMetaData *lastMetaData() const;
    QList<ScriptedPlayer *> livePlayers() const;
    int createdPlayers() const;
    int destroyedPlayers() const;

    // Script of the static create() results: "create/player" or "create/metadata"
    // set to false make create() return null.
    Script &script() { return m_script; }

    playback::SPPlayer *createPlayer(const char *name, playback::SPPlayer::CallBack *callBack) override;
    void destroyPlayer(playback::SPPlayer *player) override;
    playback::SPMetaData *createMetaData(const char *name, const char *config) override;
    void destroyMetaData(playback::SPMetaData *metaData) override;

private:
    mutable QMutex m_mutex;
    CallRecorder m_recorder;
    Script m_script;
    std::function<void(ScriptedPlayer *)> m_setupPlayer;
    std::function<void(ScriptedMetaData *)> m_setupMetaData;
    std::vector<std::unique_ptr<ScriptedPlayer>> m_players;
    std::vector<std::unique_ptr<ScriptedMetaData>> m_readers;
    int m_created = 0;
    int m_destroyed = 0;
    hostplatform::EngineFactory *m_previous;
};

// --------------------------------------------------------- property service -

// Installs itself as the property service for its lifetime.
// Keys without a script behave like the device: "ctl.start"/"ctl.stop" of a
// service flip "init.svc.<service>" to "running"/"stopped", other keys store.
// A scripted key answers from its queue; the last answer is sticky.
class ScriptedPropertyService : public hostplatform::PropertyService
{
public:
    struct Answer {
        int result;          // what property_get returns; negative = failure
        QByteArray value;    // what it writes into the caller's buffer
    };

    ScriptedPropertyService();
    ~ScriptedPropertyService() override;

    void scriptGet(const QByteArray &key, const QList<Answer> &answers);
    // Convenience: each text answered with result = its length.
    void scriptGet(const QByteArray &key, const QList<QByteArray> &values);
    void scriptSetResult(int result);          // default 0
    void scriptInitResult(int result);         // default 0
    // Called on every property_get of `key` with the running count (0-based).
    void onGet(const QByteArray &key, std::function<void(int)> observer);

    QList<QPair<QByteArray, QByteArray>> sets() const;
    QList<QByteArray> gets() const;
    int getCount(const QByteArray &key) const;
    int initCount() const;
    QByteArray storedValue(const QByteArray &key) const;
    void clearLog();

    int init() override;
    int get(const char *key, char *value, const char *defaultValue) override;
    int set(const char *key, const char *value) override;

private:
    mutable QMutex m_mutex;
    QHash<QByteArray, QQueue<Answer>> m_scripts;
    QHash<QByteArray, QByteArray> m_store;
    QHash<QByteArray, std::function<void(int)>> m_observers;
    QHash<QByteArray, int> m_getCounts;
    QList<QPair<QByteArray, QByteArray>> m_sets;
    QList<QByteArray> m_gets;
    int m_setResult = 0;
    int m_initResult = 0;
    int m_initCount = 0;
    hostplatform::PropertyService *m_previous;
};

// ------------------------------------------------------- platform control --

// Installs itself as the platform control provider for its lifetime.
class ScriptedPlatformControl : public hostplatform::PlatformControlProvider,
                                public spplfctrl::SPPlatformControl
{
public:
    ScriptedPlatformControl();
    ~ScriptedPlatformControl() override;

    void setVendorText(int item, const QByteArray &text);  // raw bytes, copied up to `length`
    void setReadStatus(int status);                         // non-zero = read fails
    void setNullInstance(bool null);

    int getInstanceCount() const;
    int releaseCount() const;
    int readCount() const;
    QList<int> readItems() const;

    spplfctrl::SPPlatformControl *getInstance() override;
    void releaseInstance(spplfctrl::SPPlatformControl *instance) override;
    int Vendor_Data_Read_String(int item, int length, char *buffer) override;

private:
    mutable QMutex m_mutex;
    QHash<int, QByteArray> m_items;
    int m_status = 0;
    bool m_null = false;
    int m_gets = 0;
    int m_releases = 0;
    QList<int> m_reads;
    hostplatform::PlatformControlProvider *m_previous;
};

// Runs `fn` on a thread of its own (as the engine calls its sink) and joins it.
void runOnEngineThread(const std::function<void()> &fn);

} // namespace orvictest

#endif // ORVICTEST_SCRIPTEDPLATFORM_H
