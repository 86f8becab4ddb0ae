// What the QMediaPlayer suites through the back end plugin share: each test
// function gets a runtime directory of its own (so its own psserver), one
// player with a 100 ms notify interval, and a record of what it announces.
#ifndef ORVICTEST_PLUGINPLAYERTEST_H
#define ORVICTEST_PLUGINPLAYERTEST_H

#include "e2esupport.h"
#include "playerrecorder.h"

#include <QtCore/QObject>
#include <QtMultimedia/QMediaContent>
#include <QtMultimedia/QMediaPlayer>
#include <QtTest/QtTest>

#include <memory>

namespace orvice2e {

// Generous: the service bounds a network preparation at 30 s.
constexpr int kLoadMs = 40000;

inline QMediaContent media(const QString &name)
{
    return QMediaContent(QUrl::fromLocalFile(mediaPath(name)));
}

// Base of the player test classes: QtTest runs its init() and cleanup()
// around each test function of a derived class.
class PluginPlayerTestBase : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        m_runtime = std::make_unique<RuntimeDir>();
        QVERIFY(m_runtime->isValid());
        m_player = std::make_unique<QMediaPlayer>();
        m_player->setNotifyInterval(100);
        m_rec = std::make_unique<PlayerRecorder>(m_player.get());
    }

    void cleanup()
    {
        m_rec.reset();
        m_player.reset();
        m_runtime.reset();
    }

protected:
    void loadAndWait(const QString &name)
    {
        m_player->setMedia(media(name));
        QVERIFY(m_rec->waitForStatus(QMediaPlayer::LoadedMedia, kLoadMs));
    }

    std::unique_ptr<RuntimeDir> m_runtime;
    std::unique_ptr<QMediaPlayer> m_player;
    std::unique_ptr<PlayerRecorder> m_rec;
};

} // namespace orvice2e

#endif // ORVICTEST_PLUGINPLAYERTEST_H
