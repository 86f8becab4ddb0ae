// Opening and transport, measured the same way on both players.
#include "benchcore.h"
#include "players.h"
#include "workers.h"

#include <QtCore/QtGlobal>

namespace orvicbench {

namespace {

const int kOpenTimeoutMs = 15000;
// After the open announced itself prepared, this long is given to a
// player that has not announced its metadata yet.
const int kMetadataGraceMs = 3000;
const int kTransportTimeoutMs = 5000;
// Where the transport set seeks to; the media last at least 3 s.
const qint64 kSeekPlayingMs = 2000;
const qint64 kSeekPausedMs = 1000;
// A position is taken as the target when it is this close to it.
const qint64 kPositionToleranceMs = 40;
// How often the position is asked after play: well below the millisecond
// the positions count in, so that the poll's phase decides nothing.
const int kPlayPollUs = 100;

bool isNetwork(const QString &url)
{
    return url.startsWith(QLatin1String("http:")) || url.startsWith(QLatin1String("https:"));
}

// Opens and waits until the open has settled; the times are the player's
// stamps relative to the call, or -1 where an announcement is missing.
bool openAndSettle(BenchPlayer &player, const QString &url, double *toMetadata, double *toPrepared)
{
    const double t0 = nowMs();
    player.open(url);
    waitFor([&] { return player.openSettled() || (player.preparedAt >= 0 && nowMs() - player.preparedAt > kMetadataGraceMs); },
            kOpenTimeoutMs);
    *toMetadata = player.metadataAt >= 0 ? player.metadataAt - t0 : -1;
    *toPrepared = player.preparedAt >= 0 ? player.preparedAt - t0 : -1;
    return player.errorAt < 0 && *toPrepared >= 0;
}

} // namespace

int runOpen(const WorkerArgs &args)
{
    int failures = 0;
    for (int rep = -1; rep < args.reps; ++rep) {
        // A fresh player for every open; its construction is not measured.
        std::unique_ptr<BenchPlayer> player = makePlayer(args.player, isNetwork(args.url));
        if (!player)
            return 2;
        double toMetadata = -1, toPrepared = -1;
        const bool opened = openAndSettle(*player, args.url, &toMetadata, &toPrepared);
        if (rep < 0)
            continue; // warm-up: caches, plugin registry, the service's first engine
        if (!opened || toMetadata < 0) {
            emitNote(QStringLiteral("%1 %2: open failed (metadata %3 ms, prepared %4 ms)")
                             .arg(args.player, args.tag).arg(toMetadata).arg(toPrepared));
            ++failures;
            continue;
        }
        emitSample(QStringLiteral("open_metadata.%1/%2").arg(args.tag, args.player), toMetadata);
        emitSample(QStringLiteral("open_prepared.%1/%2").arg(args.tag, args.player), toPrepared);
    }
    return failures == 0 ? 0 : 1;
}

int runTransport(const WorkerArgs &args)
{
    int failures = 0;
    for (int rep = -1; rep < args.reps; ++rep) {
        std::unique_ptr<BenchPlayer> player = makePlayer(args.player, false);
        if (!player)
            return 2;
        double toMetadata = -1, toPrepared = -1;
        if (!openAndSettle(*player, args.url, &toMetadata, &toPrepared)) {
            ++failures;
            continue;
        }
        // play -> the first position after the start.
        const double playAt = nowMs();
        player->play();
        const double playing = waitForFine([&] { return player->position() > 0; }, kTransportTimeoutMs, kPlayPollUs);

        // Seek while playing -> the position runs on from the target.
        const double seekAt = nowMs();
        player->seek(kSeekPlayingMs);
        const double sought = waitFor([&] {
            const qint64 at = player->position();
            return at > kSeekPlayingMs && at < kSeekPlayingMs + 500;
        }, kTransportTimeoutMs);

        // Seek while paused -> the position is the target.
        player->pause();
        const bool paused = waitFor([&] { return player->isPaused(); }, kTransportTimeoutMs) >= 0;
        const double seekPausedAt = nowMs();
        player->seek(kSeekPausedMs);
        const double soughtPaused = waitFor([&] {
            return qAbs(player->position() - kSeekPausedMs) <= kPositionToleranceMs;
        }, kTransportTimeoutMs);

        if (rep < 0)
            continue;
        if (playing < 0 || sought < 0 || !paused || soughtPaused < 0) {
            emitNote(QStringLiteral("%1: transport failed (play %2, seek %3, paused %4, seek paused %5)")
                             .arg(args.player).arg(playing).arg(sought).arg(paused).arg(soughtPaused));
            ++failures;
            continue;
        }
        emitSample(QStringLiteral("play/%1").arg(args.player), playing - playAt);
        emitSample(QStringLiteral("seek_playing/%1").arg(args.player), sought - seekAt);
        emitSample(QStringLiteral("seek_paused/%1").arg(args.player), soughtPaused - seekPausedAt);
    }
    return failures == 0 ? 0 : 1;
}

} // namespace orvicbench
