#include "orvicplay.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QJsonObject>
#include <QtMultimedia/QMediaMetaData>

#include <algorithm>
#include <cmath>

namespace {
const qint64 kShortSeekMs = 5000;
const qint64 kLongSeekMs = 30000;
const int kVolumeStep = 5;
using Session = QOrvicPlayerSession;
} // namespace

const QList<float> &OrvicPlay::rateSteps()
{
    static const QList<float> steps = {-8.0f, -4.0f, -2.0f, 0.5f, 1.0f, 2.0f, 4.0f, 8.0f};
    return steps;
}

OrvicPlay::OrvicPlay(const PlayOptions &options, QObject *parent)
    : QObject(parent),
      m_options(options),
      m_printer(options.json, options.interactive)
{
    const QMediaPlayer::Flags flags = options.metadataOnly ? QMediaPlayer::Flags(QMediaPlayer::MetaDataOnly)
                                                           : QMediaPlayer::Flags();
    m_session = std::make_unique<Session>(flags);
    connectSession();
    connect(&m_progressTimer, &QTimer::timeout, this, &OrvicPlay::tick);
    if (options.interactive && !options.metadataOnly && m_terminal.enableRawInput())
        connect(&m_terminal, &Terminal::keyPressed, this, &OrvicPlay::onKey);
}

OrvicPlay::~OrvicPlay()
{
    m_printer.finishLine();
}

void OrvicPlay::connectSession()
{
    Session *s = m_session.get();
    connect(s, &Session::stateChanged, this, &OrvicPlay::onStateChanged);
    connect(s, &Session::metadataChanged, this, &OrvicPlay::onMetadata);
    connect(s, &Session::metaDataChanged, this, &OrvicPlay::onMetaDataChanged);
    connect(s, &Session::mediaMessageChanged, this, &OrvicPlay::onMediaMessage);
    connect(s, &Session::error, this, &OrvicPlay::onError);
    connect(s, &Session::playbackComplete, this, &OrvicPlay::onComplete);
    connect(s, &Session::durationChanged, this, [this](qint64 d) {
        m_printer.event("duration", {{"ms", double(d)}}, QStringLiteral("duration %1").arg(EventPrinter::formatTime(d)));
    });
    connect(s, &Session::seekableChanged, this, [this](bool on) {
        m_printer.event("seekable", {{"value", on}}, on ? QStringLiteral("seekable") : QStringLiteral("not seekable"));
    });
    connect(s, &Session::playbackRateChanged, this, [this](float rate) {
        m_printer.event("rate", {{"value", double(rate)}}, QStringLiteral("rate x%1").arg(double(rate)));
    });
    connect(s, &Session::volumeChanged, this, [this](int v) {
        m_printer.event("volume", {{"value", v}}, QStringLiteral("volume %1").arg(v));
    });
    connect(s, &Session::mutedStateChanged, this, [this](bool muted) {
        m_printer.event("muted", {{"value", muted}}, muted ? QStringLiteral("muted") : QStringLiteral("unmuted"));
    });
    connect(s, &Session::videoAvailableChanged, this, [this](bool on) {
        m_printer.event("videoAvailable", {{"value", on}}, QStringLiteral("video available: %1").arg(on ? "yes" : "no"));
    });
}

void OrvicPlay::start()
{
    Q_EMIT aboutToOpen();
    m_session->manageActList(Session::Msg_SetMedia, m_options.media);
    if (m_options.metadataOnly)
        return;
    if (m_options.volume >= 0)
        m_session->manageActList(Session::Msg_Volume, m_options.volume);
    // Before playing, so that the first line is not missed.
    if (m_options.subtitles)
        m_session->manageActList(Session::Msg_SubtitleOnOff, true);
    m_session->manageActList(Session::Msg_Play, QVariant());
    m_progressTimer.start(m_options.progressIntervalMs);
}

void OrvicPlay::onStateChanged(Session::PlayerState state)
{
    m_state = state;
    m_printer.event("state", {{"state", int(state)}, {"name", EventPrinter::stateName(state)}},
                    QStringLiteral("state %1").arg(EventPrinter::stateName(state)));
    if (state == Session::Player_Play && !m_startDone) {
        // Start position and rate apply once playback has really begun.
        m_startDone = true;
        if (m_options.startMs > 0)
            m_session->manageActList(Session::Msg_Position, qlonglong(m_options.startMs));
        if (m_options.rate != 1.0f)
            m_session->manageActList(Session::Msg_PlayBackRate, m_options.rate);
    }
}

void OrvicPlay::onMetadata(const QVariantMap &map)
{
    m_metadata = map;
    QJsonObject fields;
    QStringList lines{QStringLiteral("metadata:")};
    for (auto it = map.cbegin(); it != map.cend(); ++it) {
        fields.insert(it.key(), EventPrinter::jsonValue(it.value()));
        lines.append(QStringLiteral("  %1: %2").arg(it.key(), EventPrinter::displayValue(it.value())));
    }
    m_subtitlesOn = map.value(QMediaMetaData::SubtitleOnOff).toBool();
    m_printer.event("metadata", {{"metadata", fields}}, lines.join(QLatin1Char('\n')));
    if (!m_options.coverFile.isEmpty() && !m_coverSaved)
        saveCover();
    if (m_options.metadataOnly)
        quit(m_exitCode);
}

void OrvicPlay::saveCover()
{
    m_coverSaved = true;
    const QImage cover = m_session->getID3Pic();
    if (cover.isNull()) {
        m_printer.event("cover", {{"saved", false}}, QStringLiteral("no cover picture"));
        return;
    }
    // The image still refers to the engine's pixels: copy before keeping it.
    const bool ok = cover.copy().save(m_options.coverFile, "PNG");
    m_printer.event("cover",
                    {{"saved", ok}, {"file", m_options.coverFile}, {"width", cover.width()}, {"height", cover.height()}},
                    ok ? QStringLiteral("cover %1x%2 saved to %3").arg(cover.width()).arg(cover.height()).arg(m_options.coverFile)
                       : QStringLiteral("cover could not be saved to %1").arg(m_options.coverFile));
}

void OrvicPlay::onMetaDataChanged(const QString &key, const QVariant &value)
{
    if (key == QMediaMetaData::SubTitle) {
        m_printer.event("subtitle", {{"text", value.toString()}}, QStringLiteral("subtitle: %1").arg(value.toString()));
        return;
    }
    if (key == QMediaMetaData::SubtitleOnOff)
        m_subtitlesOn = value.toBool();
    m_metadata.insert(key, value);
    m_printer.event("metadataChanged", {{"key", key}, {"value", EventPrinter::jsonValue(value)}},
                    QStringLiteral("%1 = %2").arg(key, EventPrinter::displayValue(value)));
}

void OrvicPlay::onMediaMessage(QMediaPlayer::MediaMessage message, const QVariant &info)
{
    // Message 0 is buffering progress, or the end of an engine stop while the
    // session is announcing its transitional Player_Preparing.
    const bool stopDone = message == QMediaPlayer::BufferingMessage && m_quitting;
    if (message == QMediaPlayer::BufferingMessage && !stopDone)
        m_bufferingPercent = info.toInt();
    m_printer.event("mediaMessage", {{"message", int(message)}, {"info", QJsonValue::fromVariant(info)}},
                    stopDone ? QStringLiteral("engine stopped") : EventPrinter::mediaMessageText(message, info));
}

void OrvicPlay::onError(int code, const QString &text)
{
    m_printer.error(code, text);
    quit(1);
}

void OrvicPlay::onComplete()
{
    m_printer.event("end", {}, QStringLiteral("end of stream"));
    quit(m_exitCode);
}

void OrvicPlay::tick()
{
    const qint64 position = m_session->position();
    // The client's clock input of the service watchdog.
    m_session->timeUpdate(position);
    Q_EMIT ticked();
    const qint64 duration = m_session->duration();
    const float rate = m_session->playbackRate();
    QString text = QStringLiteral("%1 / %2  %3  x%4  vol %5%6")
                       .arg(EventPrinter::formatTime(position), EventPrinter::formatTime(duration),
                            EventPrinter::stateName(m_state))
                       .arg(double(rate))
                       .arg(m_session->volume())
                       .arg(m_session->isMuted() ? QStringLiteral(" (muted)") : QString());
    if (m_bufferingPercent >= 0 && m_bufferingPercent < 100)
        text += QStringLiteral("  buffering %1%").arg(m_bufferingPercent);
    // In JSON mode a progress object every second is enough for scripts.
    if (!m_printer.json() || ++m_ticks % qMax(1, 1000 / m_options.progressIntervalMs) == 0) {
        m_printer.progress({{"position", double(position)}, {"duration", double(duration)},
                            {"state", EventPrinter::stateName(m_state)}, {"rate", double(rate)},
                            {"volume", m_session->volume()}, {"muted", m_session->isMuted()}},
                           text);
    }
}

void OrvicPlay::seekBy(qint64 deltaMs)
{
    qint64 target = std::max<qint64>(0, m_session->position() + deltaMs);
    const qint64 duration = m_session->duration();
    if (duration > 0)
        target = std::min(target, duration);
    m_session->manageActList(Session::Msg_Position, qlonglong(target));
}

void OrvicPlay::stepRate(int direction)
{
    const QList<float> &steps = rateSteps();
    const float current = m_session->playbackRate();
    int index = 0;
    for (int i = 0; i < steps.size(); ++i) {
        if (std::fabs(steps.at(i) - current) < std::fabs(steps.at(index) - current))
            index = i;
    }
    index = std::clamp(index + direction, 0, int(steps.size()) - 1);
    m_session->manageActList(Session::Msg_PlayBackRate, steps.at(index));
}

void OrvicPlay::onKey(Terminal::Key key)
{
    switch (key) {
    case Terminal::KeySpace:
        m_session->manageActList(m_state == Session::Player_Play ? Session::Msg_Pause : Session::Msg_Play, QVariant());
        break;
    case Terminal::KeyLeft: seekBy(-kShortSeekMs); break;
    case Terminal::KeyRight: seekBy(kShortSeekMs); break;
    case Terminal::KeyDown: seekBy(-kLongSeekMs); break;
    case Terminal::KeyUp: seekBy(kLongSeekMs); break;
    case Terminal::KeyRateDown: stepRate(-1); break;
    case Terminal::KeyRateUp: stepRate(1); break;
    case Terminal::KeyVolumeUp:
        m_session->manageActList(Session::Msg_Volume, std::min(100, m_session->volume() + kVolumeStep));
        break;
    case Terminal::KeyVolumeDown:
        m_session->manageActList(Session::Msg_Volume, std::max(0, m_session->volume() - kVolumeStep));
        break;
    case Terminal::KeyMute:
        m_session->manageActList(Session::Msg_Muted, !m_session->isMuted());
        break;
    case Terminal::KeyAudio: {
        const int count = m_metadata.value(QMediaMetaData::AudioStreamCount).toInt();
        if (count > 1)
            m_session->manageActList(Session::Msg_AudioStream, (m_session->getCurrentAudioStream() + 1) % count);
        break;
    }
    case Terminal::KeySubtitle: {
        const int count = m_metadata.value(QMediaMetaData::SubtitleCount).toInt();
        if (count > 0)
            m_session->manageActList(Session::Msg_SubtitleNum,
                                     (m_metadata.value(QMediaMetaData::SubtitleId).toInt() + 1) % count);
        break;
    }
    case Terminal::KeySubtitleToggle:
        m_session->manageActList(Session::Msg_SubtitleOnOff, !m_subtitlesOn);
        break;
    case Terminal::KeyQuit:
        quit(0);
        break;
    case Terminal::KeyNone:
        break;
    }
}

void OrvicPlay::quit(int code)
{
    // An error outranks a normal end reported in the same breath.
    m_exitCode = std::max(m_exitCode, code);
    if (m_quitting)
        return;
    m_quitting = true;
    m_progressTimer.stop();
    // Leave the signal that asked for the end (it may come from inside a
    // running command) before stopping the session.
    QMetaObject::invokeMethod(this, [this]() {
        m_session->stop();
        m_printer.finishLine();
        Q_EMIT finished();
    }, Qt::QueuedConnection);
}
