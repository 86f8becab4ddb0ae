// The two players under measurement behind one face: our session on the PC
// platform and a stock QMediaPlayer (Qt's GStreamer back end). The moments
// of interest are stamped (benchcore's clock) in the signal handlers, on
// whatever thread the signal comes.
#ifndef ORVICBENCH_PLAYERS_H
#define ORVICBENCH_PLAYERS_H

#include <QtCore/QString>

#include <atomic>
#include <memory>

class QOrvicPlayerSession;

namespace orvicbench {

class BenchPlayer
{
public:
    virtual ~BenchPlayer() = default;

    // Stamps are reset by open().
    virtual void open(const QString &url) = 0;
    virtual void play() = 0;
    virtual void pause() = 0;
    virtual void seek(qint64 ms) = 0;
    virtual qint64 position() = 0;
    virtual bool isPlaying() = 0;
    virtual bool isPaused() = 0;
    // The open is over: every announcement the player makes for it was made.
    virtual bool openSettled() = 0;

    std::atomic<double> metadataAt{-1};
    std::atomic<double> preparedAt{-1};
    std::atomic<double> errorAt{-1};
};

// "ours" (the session), "stock" (QMediaPlayer on Qt's GStreamer back end)
// or "qt" (QMediaPlayer on our Qt Multimedia back end, plugin
// orvicmediaplayer of the build tree); nullptr for another name, or when
// QMediaPlayer did not take our back end. runner.cpp lists the players per
// set, report.cpp the rows.
std::unique_ptr<BenchPlayer> makePlayer(const QString &name, bool network);

// Opens `url` on `session` and waits (at most 15 s) until the open is over,
// which the rate announced at its end tells; false on a time-out.
bool openSession(QOrvicPlayerSession &session, const QString &url);

} // namespace orvicbench

#endif // ORVICBENCH_PLAYERS_H
