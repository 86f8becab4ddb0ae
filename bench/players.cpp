#include "players.h"

#include "benchcore.h"

#include <qorvicplayersession.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QUrl>
#include <QtMultimedia/QMediaService>
#include <QtMultimedia/QMediaPlayer>

namespace orvicbench {

namespace {

using Session = QOrvicPlayerSession;

class OurPlayer : public BenchPlayer
{
public:
    explicit OurPlayer(bool network) : m_session(QMediaPlayer::Flags{})
    {
        QObject::connect(&m_session, &Session::stateChanged, [this](Session::PlayerState state) {
            if (state == Session::Player_Prepared)
                stampOnce(preparedAt);
        });
        QObject::connect(&m_session, &Session::metadataChanged, [this](const QVariantMap &) {
            stampOnce(metadataAt);
        });
        // A stream gets no metadata map from the open: what the session
        // knows of it first is the duration, from the engine.
        if (network) {
            QObject::connect(&m_session, &Session::durationChanged, [this](qint64 duration) {
                if (duration > 0)
                    stampOnce(metadataAt);
            });
        }
        // The open's last announcement.
        QObject::connect(&m_session, &Session::playbackRateChanged, [this](float) { stampOnce(m_settledAt); });
        QObject::connect(&m_session, &Session::error, [this](int, const QString &) { stampOnce(errorAt); });
    }

    ~OurPlayer() override { m_session.stop(); }

    void open(const QString &url) override
    {
        metadataAt = preparedAt = errorAt = m_settledAt = -1;
        m_session.manageActList(Session::Msg_SetMedia, url);
    }
    void play() override { m_session.manageActList(Session::Msg_Play, QVariant()); }
    void pause() override { m_session.manageActList(Session::Msg_Pause, QVariant()); }
    void seek(qint64 ms) override { m_session.manageActList(Session::Msg_Position, ms); }
    qint64 position() override { return m_session.position(); }
    bool isPlaying() override { return m_session.state() == Session::Player_Play; }
    bool isPaused() override { return m_session.state() == Session::Player_Pause; }
    bool openSettled() override { return errorAt >= 0 || (m_settledAt >= 0 && metadataAt >= 0); }

private:
    static void stampOnce(std::atomic<double> &at)
    {
        double unset = -1;
        at.compare_exchange_strong(unset, nowMs());
    }

    Session m_session;
    std::atomic<double> m_settledAt{-1};
};

// A QMediaPlayer on whichever back end Qt picked: its GStreamer one
// (stock), or ours when the worker preferred it (see makePlayer).
class QtPlayer : public BenchPlayer
{
public:
    // `streamDuration`: for a stream, the first duration counts as its
    // metadata, as for the session (our back end has no map for a stream).
    explicit QtPlayer(bool streamDuration = false)
    {
        if (streamDuration) {
            QObject::connect(&m_player, &QMediaPlayer::durationChanged, [this](qint64 duration) {
                if (duration > 0 && metadataAt < 0)
                    metadataAt = nowMs();
            });
        }
        QObject::connect(&m_player, &QMediaPlayer::mediaStatusChanged, [this](QMediaPlayer::MediaStatus status) {
            if (status == QMediaPlayer::LoadedMedia && preparedAt < 0)
                preparedAt = nowMs();
        });
        QObject::connect(&m_player, &QMediaPlayer::metaDataAvailableChanged, [this](bool available) {
            if (available && metadataAt < 0)
                metadataAt = nowMs();
        });
        QObject::connect(&m_player, QOverload<QMediaPlayer::Error>::of(&QMediaPlayer::error),
                         [this](QMediaPlayer::Error) {
                             if (errorAt < 0)
                                 errorAt = nowMs();
                         });
    }

    void open(const QString &url) override
    {
        metadataAt = preparedAt = errorAt = -1;
        const QUrl media = url.contains(QLatin1String("://")) ? QUrl(url) : QUrl::fromLocalFile(url);
        m_player.setMedia(media);
    }
    void play() override { m_player.play(); }
    void pause() override { m_player.pause(); }
    void seek(qint64 ms) override { m_player.setPosition(ms); }
    qint64 position() override { return m_player.position(); }
    bool isPlaying() override { return m_player.state() == QMediaPlayer::PlayingState; }
    bool isPaused() override { return m_player.state() == QMediaPlayer::PausedState; }
    bool openSettled() override { return errorAt >= 0 || (preparedAt >= 0 && metadataAt >= 0); }

    // The class name of the back end's media service.
    QByteArray backEnd() const
    {
        const QMediaService *service = m_player.service();
        return service ? QByteArray(service->metaObject()->className()) : QByteArray();
    }

private:
    QMediaPlayer m_player;
};

// Our Qt Multimedia back end, from the build tree, ahead of Qt's own. Set
// before the first QMediaPlayer: Qt reads both once per process.
void preferOurBackEnd()
{
    static const bool done = [] {
        qputenv("QT_MULTIMEDIA_PREFERRED_PLUGINS", "orvic");
        QCoreApplication::addLibraryPath(QCoreApplication::applicationDirPath() + QStringLiteral("/../plugins"));
        return true;
    }();
    Q_UNUSED(done);
}

} // namespace

std::unique_ptr<BenchPlayer> makePlayer(const QString &name, bool network)
{
    if (name == QLatin1String("ours"))
        return std::make_unique<OurPlayer>(network);
    if (name == QLatin1String("stock"))
        return std::make_unique<QtPlayer>();
    if (name == QLatin1String("qt")) {
        preferOurBackEnd();
        auto player = std::make_unique<QtPlayer>(network);
        // Never measure Qt's own back end under our name.
        if (!player->backEnd().startsWith("QOrvic")) {
            emitNote(QStringLiteral("qt: QMediaPlayer picked \"%1\", not our back end")
                             .arg(QString::fromLatin1(player->backEnd())));
            return nullptr;
        }
        return player;
    }
    return nullptr;
}

bool openSession(QOrvicPlayerSession &session, const QString &url)
{
    std::atomic<bool> settled{false};
    const QMetaObject::Connection done = QObject::connect(
            &session, &QOrvicPlayerSession::playbackRateChanged, [&](float) { settled = true; });
    session.manageActList(QOrvicPlayerSession::Msg_SetMedia, url);
    const bool ok = waitFor([&] { return bool(settled); }, 15000) >= 0;
    QObject::disconnect(done);
    return ok;
}

} // namespace orvicbench
