#include "eventprinter.h"

#include "qorvicplayersession.h"

#include <QtCore/QDateTime>
#include <QtCore/QJsonDocument>
#include <QtCore/QMetaEnum>
#include <QtCore/QSize>

EventPrinter::EventPrinter(bool json, bool liveLine)
    : m_json(json), m_liveLine(liveLine && !json)
{
}

void EventPrinter::writeJson(FILE *out, const QJsonObject &object)
{
    const QByteArray line = QJsonDocument(object).toJson(QJsonDocument::Compact);
    std::fwrite(line.constData(), 1, size_t(line.size()), out);
    std::fputc('\n', out);
    std::fflush(out);
}

void EventPrinter::finishLine()
{
    if (m_lineOpen) {
        std::fputc('\n', stdout);
        m_lineOpen = false;
    }
}

void EventPrinter::event(const QString &kind, const QJsonObject &fields, const QString &text)
{
    if (m_json) {
        QJsonObject object = fields;
        object.insert(QStringLiteral("event"), kind);
        writeJson(stdout, object);
        return;
    }
    finishLine();
    std::printf("%s\n", qPrintable(text));
    std::fflush(stdout);
}

void EventPrinter::error(int code, const QString &text)
{
    if (m_json) {
        writeJson(stdout, QJsonObject{{"event", "error"}, {"code", code}, {"text", text}});
    } else {
        finishLine();
    }
    std::fprintf(stderr, "error %d: %s\n", code, qPrintable(text));
    std::fflush(stderr);
}

void EventPrinter::progress(const QJsonObject &fields, const QString &text)
{
    if (m_json) {
        QJsonObject object = fields;
        object.insert(QStringLiteral("event"), QStringLiteral("progress"));
        writeJson(stdout, object);
        return;
    }
    if (!m_liveLine)
        return;
    std::printf("\r\x1b[K%s", qPrintable(text));
    std::fflush(stdout);
    m_lineOpen = true;
}

QString EventPrinter::stateName(int state)
{
    const QMetaEnum e = QMetaEnum::fromType<QOrvicPlayerSession::PlayerState>();
    const char *key = e.valueToKey(state);
    return key ? QString::fromLatin1(key) : QString::number(state);
}

QString EventPrinter::mediaMessageText(int message, const QVariant &info)
{
    switch (message) {
    case QMediaPlayer::BufferingMessage:
        return QStringLiteral("buffering %1%").arg(info.toInt());
    case QMediaPlayer::EngineNoticeMessage:
        return QStringLiteral("engine notice %1").arg(info.toString());
    case QMediaPlayer::SeekFailedMessage:
        return info.isValid() ? QStringLiteral("seek or rate change failed (%1)").arg(info.toString())
                              : QStringLiteral("seek failed");
    case QMediaPlayer::ResumeDataMessage:
        return QStringLiteral("resume point saved");
    default:
        return QStringLiteral("media message %1").arg(message);
    }
}

QString EventPrinter::formatTime(qint64 ms)
{
    if (ms < 0)
        ms = 0;
    const qint64 tenths = ms / 100;
    return QStringLiteral("%1:%2.%3")
        .arg(tenths / 600, 2, 10, QLatin1Char('0'))
        .arg((tenths / 10) % 60, 2, 10, QLatin1Char('0'))
        .arg(tenths % 10);
}

QJsonValue EventPrinter::jsonValue(const QVariant &value)
{
    if (value.userType() == QMetaType::QSize) {
        const QSize s = value.toSize();
        return QJsonObject{{"width", s.width()}, {"height", s.height()}};
    }
    return QJsonValue::fromVariant(value);
}

QString EventPrinter::displayValue(const QVariant &value)
{
    if (value.userType() == QMetaType::QSize) {
        const QSize s = value.toSize();
        return QStringLiteral("%1x%2").arg(s.width()).arg(s.height());
    }
    return value.toString();
}
