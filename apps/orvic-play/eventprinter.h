// Prints the session's events for a person (text) or a script (one JSON
// object per line).
#ifndef ORVICPLAY_EVENTPRINTER_H
#define ORVICPLAY_EVENTPRINTER_H

#include <QtCore/QJsonObject>
#include <QtCore/QString>
#include <QtCore/QVariant>

#include <cstdio>

class EventPrinter
{
public:
    EventPrinter(bool json, bool liveLine);

    void event(const QString &kind, const QJsonObject &fields, const QString &text);
    void error(int code, const QString &text);
    // The progress line: redrawn in place on a terminal, a JSON object otherwise.
    void progress(const QJsonObject &fields, const QString &text);
    void finishLine();

    bool json() const { return m_json; }

    static QString stateName(int state);
    static QString mediaMessageText(int message, const QVariant &info);
    static QString formatTime(qint64 ms);
    static QJsonValue jsonValue(const QVariant &value);
    static QString displayValue(const QVariant &value);

private:
    void writeJson(FILE *out, const QJsonObject &object);

    bool m_json;
    bool m_liveLine;
    bool m_lineOpen = false;
};

#endif // ORVICPLAY_EVENTPRINTER_H
