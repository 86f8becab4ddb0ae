// Records what a QMediaPlayer announces, as text in arrival order, for
// comparing exact sequences of state and media status changes.
#ifndef ORVICTEST_PLAYERRECORDER_H
#define ORVICTEST_PLAYERRECORDER_H

#include <QtCore/QMetaEnum>
#include <QtCore/QObject>
#include <QtCore/QStringList>
#include <QtMultimedia/QMediaPlayer>
#include <QtTest/QTest>

class PlayerRecorder : public QObject
{
public:
    explicit PlayerRecorder(QMediaPlayer *player) : m_player(player)
    {
        connect(player, &QMediaPlayer::stateChanged, this, [this](QMediaPlayer::State s) {
            m_events.append(QStringLiteral("state:") + name("State", s));
        });
        connect(player, &QMediaPlayer::mediaStatusChanged, this, [this](QMediaPlayer::MediaStatus s) {
            m_events.append(QStringLiteral("status:") + name("MediaStatus", s));
        });
        connect(player, QOverload<QMediaPlayer::Error>::of(&QMediaPlayer::error), this,
                [this](QMediaPlayer::Error e) { m_events.append(QStringLiteral("error:") + name("Error", e)); });
        connect(player, &QMediaPlayer::positionChanged, this, [this](qint64 p) { m_positions.append(p); });
    }

    // QMediaPlayer's enumerations are published by name only.
    static QString name(const char *enumeration, int value)
    {
        const QMetaObject &mo = QMediaPlayer::staticMetaObject;
        return QString::fromLatin1(mo.enumerator(mo.indexOfEnumerator(enumeration)).valueToKey(value));
    }

    // State, status and error events, in order.
    QStringList events() const { return m_events; }
    QList<qint64> positions() const { return m_positions; }
    void clear()
    {
        m_events.clear();
        m_positions.clear();
    }
    // Bounded wait for a media status (the player's, not the record's).
    bool waitForStatus(QMediaPlayer::MediaStatus status, int timeoutMs = 20000)
    {
        return QTest::qWaitFor([&] { return m_player->mediaStatus() == status; }, timeoutMs);
    }
    bool waitForEvent(const QString &event, int timeoutMs = 20000)
    {
        return QTest::qWaitFor([&] { return m_events.contains(event); }, timeoutMs);
    }

private:
    QMediaPlayer *m_player;
    QStringList m_events;
    QList<qint64> m_positions;
};

#endif // ORVICTEST_PLAYERRECORDER_H
