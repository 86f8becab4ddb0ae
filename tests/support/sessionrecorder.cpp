#include "sessionrecorder.h"

#include <QtCore/QMutexLocker>

namespace orvictest {

QString RecordedSignal::text() const
{
    QStringList parts;
    for (const QVariant &a : args) {
        if (!a.isValid()) {
            parts.append(QStringLiteral("<invalid>"));
        } else if (a.userType() == QMetaType::QVariantMap) {
            parts.append(QStringLiteral("%1 keys").arg(a.toMap().size()));
        } else if (a.userType() == qMetaTypeId<QVariant>()) {
            const QVariant inner = a.value<QVariant>();
            parts.append(inner.isValid() ? inner.toString() : QStringLiteral("<invalid>"));
        } else {
            parts.append(a.toString());
        }
    }
    return name + QLatin1Char('(') + parts.join(QLatin1Char(',')) + QLatin1Char(')');
}

SessionRecorder::SessionRecorder(QOrvicPlayerSession *s)
{
    using S = QOrvicPlayerSession;
    const auto direct = Qt::DirectConnection;
    QObject::connect(s, &S::durationChanged, s, [this](qint64 v) { add("durationChanged", {v}); }, direct);
    QObject::connect(s, &S::positionChanged, s, [this](qint64 v) { add("positionChanged", {v}); }, direct);
    QObject::connect(s, &S::stateChanged, s, [this](S::PlayerState v) { add("stateChanged", {int(v)}); }, direct);
    QObject::connect(s, &S::metaDataChanged, s,
                     [this](const QString &k, const QVariant &v) { add("metaDataChanged", {k, QVariant::fromValue(v)}); }, direct);
    QObject::connect(s, &S::metadataChanged, s, [this](QVariantMap m) { add("metadataChanged", {m}); }, direct);
    QObject::connect(s, &S::volumeChanged, s, [this](int v) { add("volumeChanged", {v}); }, direct);
    QObject::connect(s, &S::mutedStateChanged, s, [this](bool v) { add("mutedStateChanged", {v}); }, direct);
    QObject::connect(s, &S::audioAvailableChanged, s, [this](bool v) { add("audioAvailableChanged", {v}); }, direct);
    QObject::connect(s, &S::videoAvailableChanged, s, [this](bool v) { add("videoAvailableChanged", {v}); }, direct);
    QObject::connect(s, &S::bufferingProgressChanged, s, [this](int v) { add("bufferingProgressChanged", {v}); }, direct);
    QObject::connect(s, &S::playbackRateChanged, s, [this](float v) { add("playbackRateChanged", {v}); }, direct);
    QObject::connect(s, &S::playbackComplete, s, [this]() { add("playbackComplete", {}); }, direct);
    QObject::connect(s, &S::seekableChanged, s, [this](bool v) { add("seekableChanged", {v}); }, direct);
    QObject::connect(s, &S::error, s, [this](int c, const QString &t) { add("error", {c, t}); }, direct);
    QObject::connect(s, &S::mediaMessageChanged, s,
                     [this](QMediaPlayer::MediaMessage m, QVariant v) { add("mediaMessageChanged", {int(m), QVariant::fromValue(v)}); }, direct);
}

void SessionRecorder::add(const QString &name, const QVariantList &args)
{
    QMutexLocker lock(&m_mutex);
    m_signals.append({name, args, QThread::currentThread()});
}

QList<RecordedSignal> SessionRecorder::signalsEmitted() const
{
    QMutexLocker lock(&m_mutex);
    return m_signals;
}

QStringList SessionRecorder::texts(const QStringList &names) const
{
    QMutexLocker lock(&m_mutex);
    QStringList out;
    for (const RecordedSignal &s : m_signals) {
        if (names.isEmpty() || names.contains(s.name))
            out.append(s.text());
    }
    return out;
}

void SessionRecorder::clear()
{
    QMutexLocker lock(&m_mutex);
    m_signals.clear();
}

} // namespace orvictest
