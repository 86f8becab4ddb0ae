#include "adaptorharness.h"
#include "enginerecords.h"

#include <QtCore/QThread>
#include <QtMultimedia/QMediaMetaData>

namespace orvictest {

namespace {
// The harness's media all have 16-bit audio.
playback::SPMetaData::AudioAttribute audio(int channels, int rate, int bitRate, const char *codec,
                                           const char *language)
{
    return engineAudio(channels, rate, bitRate, codec, language, 16);
}

void tags(ScriptedMetaData *reader)
{
    reader->setMetaString("title", "Night Drive");
    reader->setMetaString("artist", "The Open Road");
    reader->setMetaString("album", "Highway Songs");
    reader->setMetaString("date", "2019");
    reader->setMetaString("genre", "Rock");
}

QStringList sorted(QStringList keys)
{
    keys.sort();
    return keys;
}

QStringList audioKeys()
{
    return {QMediaMetaData::Language, QMediaMetaData::ChannelCount, QMediaMetaData::AudioCodec,
            QMediaMetaData::AudioStreamCount, QMediaMetaData::AudioStream};
}

QStringList tagKeys()
{
    return {QMediaMetaData::Title, QMediaMetaData::AlbumArtist, QMediaMetaData::AlbumTitle,
            QMediaMetaData::Genre, QMediaMetaData::Year, QMediaMetaData::Comment};
}

QStringList videoKeys()
{
    return {QMediaMetaData::VideoFrameRate, QMediaMetaData::VideoCodec, QMediaMetaData::Resolution};
}

QStringList subtitleKeys()
{
    return {QMediaMetaData::SubtitleCount, QMediaMetaData::SubtitleLanguage, QMediaMetaData::SubtitleId,
            QMediaMetaData::SubtitleOnOff};
}
} // namespace

namespace media {

void localVideo(ScriptedPlayer *player)
{
    Script &s = player->script();
    s.setDefault("getParameter/get-audio-count", 2);
    s.setDefault("getParameter/get-subtitle-count", 2);
    s.setDefault("isTrickPlaySupported", true);
    s.setDefault("getDuration", 120000);
}

void localVideo(ScriptedMetaData *reader)
{
    Script &s = reader->script();
    s.setDefault("getMediaType", 2);
    s.setDefault("getProgramNum", 1);
    s.setDefault("getDuration", 120000);
    s.setDefault("getAudioStreamNum", 2);
    s.setDefault("getVideoStreamNum", 1);
    s.setDefault("getSubtitleStreamNum", 2);
    reader->setAudioAttribute(0, audio(2, 48000, 128000, "aac", "eng"));
    reader->setAudioAttribute(1, audio(6, 48000, 384000, "ac3", "fra"));
    reader->setVideoAttribute(0, engineVideo(1920, 1080, 0, 25, 0, "h264"));
    tags(reader);
}

void audioOnly(ScriptedPlayer *player)
{
    Script &s = player->script();
    s.setDefault("getParameter/get-audio-count", 1);
    s.setDefault("getDuration", 200000);
}

void audioOnly(ScriptedMetaData *reader)
{
    Script &s = reader->script();
    s.setDefault("getMediaType", 1);
    s.setDefault("getProgramNum", 1);
    s.setDefault("getDuration", 200000);
    s.setDefault("getAudioStreamNum", 1);
    reader->setAudioAttribute(0, audio(2, 44100, 320000, "mp3", ""));
    tags(reader);
}

void withoutSubtitles(ScriptedPlayer *player)
{
    // Every parameter query fails: the subtitle count cannot be had from the player.
    player->script().setDefault("getParameter", -1);
    player->script().setDefault("getDuration", 200000);
}

void withoutSubtitles(ScriptedMetaData *reader)
{
    // No program: the reader cannot tell subtitles either.
    Script &s = reader->script();
    s.setDefault("getMediaType", 1);
    s.setDefault("getProgramNum", 0);
    s.setDefault("getDuration", 200000);
    s.setDefault("getAudioStreamNum", 1);
    reader->setAudioAttribute(0, audio(2, 44100, 320000, "mp3", ""));
    tags(reader);
}

QStringList localVideoKeys()
{
    return sorted(QStringList{QMediaMetaData::Duration} + audioKeys() + tagKeys() + videoKeys() + subtitleKeys());
}

QStringList audioOnlyKeys()
{
    return sorted(QStringList{QMediaMetaData::Duration} + audioKeys() + tagKeys() + subtitleKeys());
}

QStringList withoutSubtitlesKeys()
{
    return sorted(QStringList{QMediaMetaData::Duration} + audioKeys() + tagKeys());
}

QStringList localOpenCalls(const QString &url)
{
    return {"SPMetaData::setUrl(" + url + ")", "setUrl(" + url + ")", "setSubUrl(" + url + ")",
            "prepare(0,0)", "getDuration()"};
}

QStringList localOpenSignals()
{
    return {"stateChanged(3)", "stateChanged(4)",
            QStringLiteral("metadataChanged(%1 keys)").arg(localVideoKeys().size()),
            "seekableChanged(true)", "videoAvailableChanged(true)", "audioAvailableChanged(true)",
            "positionChanged(0)", "durationChanged(120000)", "playbackRateChanged(1)"};
}

QStringList availabilityDropped()
{
    return {"videoAvailableChanged(false)", "audioAvailableChanged(false)"};
}

} // namespace media

QString closeHarness(std::unique_ptr<AdaptorHarness> &harness)
{
    const QStringList violations =
        harness && harness->checker ? harness->checker->violations() : QStringList();
    harness.reset();
    return violations.join(QLatin1Char('\n'));
}

bool isMetadataQuery(const QString &call)
{
    static const QStringList names = {
        "getMediaType", "SPMetaData::getDuration", "getProgramNum", "getAudioStreamNum",
        "getVideoStreamNum", "getSubtitleStreamNum", "getAudioAttribute", "getVideoAttribute",
        "getMetaString", "getPicture", "isTagV2", "isTrickPlaySupported", "getParameter",
        "getCurrentStream"};
    return names.contains(call.section(QLatin1Char('('), 0, 0));
}

AdaptorHarness::AdaptorHarness()
    : log(new LogCapture)
{
    QOrvicPlayerSessionPrivate::stallCounter.storeRelaxed(0);
}

AdaptorHarness::~AdaptorHarness()
{
    checker.reset();
    recorder.reset();
    m_extra.clear();
    session.reset();
    log.reset();
    QOrvicPlayerSessionPrivate::stallCounter.storeRelaxed(0);
}

void AdaptorHarness::useMedium(Medium medium)
{
    m_medium = medium;
    installSetups();
}

void AdaptorHarness::alsoForNewPlayers(std::function<void(ScriptedPlayer *)> setup)
{
    m_extraPlayerSetup = std::move(setup);
    installSetups();
}

void AdaptorHarness::installSetups()
{
    using PlayerSetup = void (*)(ScriptedPlayer *);
    using ReaderSetup = void (*)(ScriptedMetaData *);
    PlayerSetup player = nullptr;
    ReaderSetup reader = nullptr;
    switch (m_medium) {
    case Medium::Plain:
        break;
    case Medium::LocalVideo:
        player = media::localVideo;
        reader = media::localVideo;
        break;
    case Medium::AudioOnly:
        player = media::audioOnly;
        reader = media::audioOnly;
        break;
    case Medium::WithoutSubtitles:
        player = media::withoutSubtitles;
        reader = media::withoutSubtitles;
        break;
    }
    const std::function<void(ScriptedPlayer *)> extra = m_extraPlayerSetup;
    engine.onNewPlayer([player, extra](ScriptedPlayer *p) {
        if (player)
            player(p);
        if (extra)
            extra(p);
    });
    engine.onNewMetaData([reader](ScriptedMetaData *r) {
        if (reader)
            reader(r);
    });
}

void AdaptorHarness::start(QMediaPlayer::Flags flags)
{
    session.reset(new QOrvicPlayerSession(flags));
    d = QOrvicPlayerSessionPrivate::get(session.get());
    recorder.reset(new SessionRecorder(session.get()));
    checker.reset(new StateTransitionChecker(session.get(), log.get()));
    clear();
}

QOrvicPlayerSession *AdaptorHarness::addSession(QMediaPlayer::Flags flags)
{
    m_extra.emplace_back(new QOrvicPlayerSession(flags));
    return m_extra.back().get();
}

void AdaptorHarness::clear()
{
    if (recorder)
        recorder->clear();
    log->clear();
    engine.recorder().clear();
    props.clearLog();
}

QStringList AdaptorHarness::transportCalls()
{
    QStringList out;
    for (const QString &call : engine.recorder().calls()) {
        if (!isMetadataQuery(call))
            out.append(call);
    }
    return out;
}

QStringList AdaptorHarness::sessionLog() const
{
    return log->matching(QStringLiteral("^[DEV]/OPSession "));
}

void AdaptorHarness::openAndPlay(const QString &url)
{
    d->setMedia(url);
    d->play();
}

void AdaptorHarness::openIn(const QString &url, QOrvicPlayerSession::PlayerState state)
{
    d->setMedia(url);
    d->mCurrentState = state;
    checker.reset(new StateTransitionChecker(session.get(), log.get()));
    clear();
}


void AdaptorHarness::stopDuringEngineCall(const QString &op)
{
    QOrvicPlayerSession *target = session.get();
    QOrvicPlayerSessionPrivate *adaptor = d;
    player()->setHook(op, [this, target, adaptor] {
        m_stopper = std::thread([target] { target->stop(); });
        while (!adaptor->mIsStopping.loadAcquire())
            QThread::yieldCurrentThread();
    });
}

void AdaptorHarness::joinStop()
{
    if (m_stopper.joinable())
        m_stopper.join();
}

} // namespace orvictest
