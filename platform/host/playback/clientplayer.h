// The engine player of the host libplayback.so: a client of psserver. Every
// operation is a call to the service's engine for this player; events come
// back through the CallBack on a thread of this player (the engine thread).
// A dead or frozen service makes operations fail (or answer the last value
// known) within about half a second; nothing waits on it longer. Once another
// service runs in place of a dead one (restarted for some other player of
// the process), the next operation connects to it and first brings the
// medium back as the dead service had it: URL, subtitle file, position,
// playing or paused.
#ifndef HOSTPLAYBACK_CLIENTPLAYER_H
#define HOSTPLAYBACK_CLIENTPLAYER_H

#include "serviceconnection.h"

#include <playback/spplayer.h>

#include <QtCore/QMutex>
#include <QtCore/QVariantList>

#include <QtCore/QString>

#include <atomic>
#include <memory>
#include <string>
#include <sys/types.h>

namespace hostplayback {

class EventQueue;

class ClientPlayer : public playback::SPPlayer
{
public:
    // Longest wait for an answer to an ordinary call of a live service, and
    // for a preparation (the service bounds it at 10 s, 30 s for network media).
    static constexpr int kCallLimitMs = 3000;
    static constexpr int kPrepareLimitMs = 32000;
    static constexpr int kConnectTimeoutMs = 500;

    ClientPlayer(const char *name, CallBack *callBack);
    ~ClientPlayer() override;

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
    // What the service said last; answers of a service that is gone.
    struct LastKnown
    {
        int state = STATE_IDLE;
        long long duration = 0;
        long long position = 0;
        double speed = 1.0;
        int volume = 100;
        bool seekable = false;
        // The medium as the service was given it; empty: none.
        QString url;
        QString subUrl;
    };

    using ConnectionPtr = std::shared_ptr<ServiceConnection>;

    ServiceConnection::Answer ask(pswire::Operation operation, const QVariantList &arguments = {},
                                  int limitMs = kCallLimitMs);
    // The operation's int status: the service's result, or why there is none.
    int command(pswire::Operation operation, const QVariantList &arguments = {},
                int limitMs = kCallLimitMs);
    void onEvent(quint32 event, const QVariantList &arguments);
    void deliver(quint32 event, const QVariantList &arguments);

    // The link for the next call: the current one, or a new one to a service
    // that runs in place of the one the link was lost to.
    ConnectionPtr connection();
    // Connects to the service running now and opens this player's engine
    // there; the volume it answers is the last known one.
    ConnectionPtr connectToService();
    // Brings the medium back on a new service's engine as `before` was.
    void restore(ServiceConnection &connection, const LastKnown &before);
    // An int status of a call on `connection`.
    static int statusOf(const ServiceConnection::Answer &answer);

    CallBack *m_callBack;
    const QString m_name;
    const std::string m_runtimeDir;
    mutable QMutex m_lastKnownMutex;
    LastKnown m_lastKnown;
    std::unique_ptr<EventQueue> m_events;
    // While a medium is brought back, the new engine's events are not handed
    // on: to the callback, the engine is the one it had all along.
    std::atomic<bool> m_restoring{false};
    // Guards the link and the service it went to; held while a new link is
    // made, so that callers of other threads wait for it, then use it.
    QMutex m_connectionMutex;
    ConnectionPtr m_connection;
    pid_t m_servicePid = 0; // the process of m_connection's service; 0: none
};

} // namespace hostplayback

#endif // HOSTPLAYBACK_CLIENTPLAYER_H
