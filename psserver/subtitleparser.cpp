#include "subtitleparser.h"

#include <QtCore/QRegularExpression>
#include <QtCore/QStringList>

#include <algorithm>

namespace {

QStringList splitLines(const QString &text)
{
    // Line ends of any system: LF, CR LF, and CR alone (old Macs).
    if (!text.contains(QLatin1Char('\n')))
        return text.split(QLatin1Char('\r'));
    QStringList lines = text.split(QLatin1Char('\n'));
    for (QString &line : lines) {
        if (line.endsWith(QLatin1Char('\r')))
            line.chop(1);
    }
    return lines;
}

// SRT and WebVTT: a timing line "start --> end [settings]" and the text lines
// up to the next blank line.
QVector<SubtitleCue> parseTimedBlocks(const QString &text)
{
    static const QString arrow = QStringLiteral("-->");
    QVector<SubtitleCue> cues;
    const QStringList lines = splitLines(text);
    for (int i = 0; i < lines.size(); ++i) {
        const int at = lines[i].indexOf(arrow);
        if (at < 0)
            continue;
        const qint64 start = subtitleparser::parseClock(lines[i].left(at).trimmed());
        const qint64 end = subtitleparser::parseClock(lines[i].mid(at + arrow.size()).trimmed().section(QLatin1Char(' '), 0, 0));
        QStringList body;
        while (i + 1 < lines.size() && !lines[i + 1].trimmed().isEmpty() && !lines[i + 1].contains(arrow))
            body.append(lines[++i]);
        if (start < 0 || end < 0)
            continue; // invalid timestamps: the cue is dropped, the rest stays
        cues.append({start, end, subtitleparser::plainText(body.join(QLatin1Char('\n')))});
    }
    return cues;
}

QString assText(QString text)
{
    static const QRegularExpression overrides(QStringLiteral("\\{[^}]*\\}"));
    text.remove(overrides);
    text.replace(QStringLiteral("\\N"), QStringLiteral("\n"));
    text.replace(QStringLiteral("\\n"), QStringLiteral("\n"));
    text.replace(QStringLiteral("\\h"), QStringLiteral(" "));
    return subtitleparser::plainText(text);
}

QVector<SubtitleCue> parseAss(const QString &text)
{
    QVector<SubtitleCue> cues;
    bool inEvents = false;
    // Field positions of the default v4+ format.
    int startField = 1, endField = 2, textField = 9, fields = 10;
    for (const QString &raw : splitLines(text)) {
        const QString line = raw.trimmed();
        if (line.startsWith(QLatin1Char('['))) {
            inEvents = line.compare(QLatin1String("[Events]"), Qt::CaseInsensitive) == 0;
            continue;
        }
        if (!inEvents)
            continue;
        const int colon = line.indexOf(QLatin1Char(':'));
        if (colon < 0)
            continue;
        const QString key = line.left(colon).trimmed();
        const QString value = line.mid(colon + 1);
        if (key.compare(QLatin1String("Format"), Qt::CaseInsensitive) == 0) {
            const QStringList names = value.split(QLatin1Char(','));
            fields = names.size();
            for (int f = 0; f < names.size(); ++f) {
                const QString name = names[f].trimmed().toLower();
                if (name == QLatin1String("start"))
                    startField = f;
                else if (name == QLatin1String("end"))
                    endField = f;
                else if (name == QLatin1String("text"))
                    textField = f;
            }
        } else if (key.compare(QLatin1String("Dialogue"), Qt::CaseInsensitive) == 0) {
            // The text is the last field and may hold commas of its own.
            QStringList parts = value.split(QLatin1Char(','));
            if (parts.size() < fields || textField != fields - 1)
                continue;
            const QString body = parts.mid(textField).join(QLatin1Char(','));
            const qint64 start = subtitleparser::parseClock(parts[startField].trimmed());
            const qint64 end = subtitleparser::parseClock(parts[endField].trimmed());
            if (start >= 0 && end >= 0)
                cues.append({start, end, assText(body)});
        }
    }
    return cues;
}

QVector<SubtitleCue> parseMicroDvd(const QString &text, double framesPerSecond)
{
    static const QRegularExpression cueLine(QStringLiteral("^\\{(\\d+)\\}\\{(\\d*)\\}(.*)$"));
    static const QRegularExpression styles(QStringLiteral("\\{[^}]*\\}"));
    QVector<SubtitleCue> cues;
    double fps = framesPerSecond;
    bool first = true;
    for (const QString &raw : splitLines(text)) {
        const QRegularExpressionMatch match = cueLine.match(raw.trimmed());
        if (!match.hasMatch())
            continue;
        QString body = match.captured(3);
        if (first) {
            first = false;
            // "{1}{1}23.976": the file names its frame rate.
            bool isRate = false;
            const double rate = body.trimmed().toDouble(&isRate);
            if (isRate && match.captured(1) == QLatin1String("1") && rate > 0 && rate < 200) {
                if (framesPerSecond <= 0)
                    fps = rate;
                continue;
            }
        }
        if (fps <= 0)
            fps = subtitleparser::kDefaultFramesPerSecond;
        bool ok = false;
        const qint64 startFrame = match.captured(1).toLongLong(&ok);
        if (!ok)
            continue;
        const qint64 endFrame = match.captured(2).isEmpty() ? -1 : match.captured(2).toLongLong();
        body.remove(styles);
        QStringList lines = body.split(QLatin1Char('|'));
        for (QString &l : lines) {
            if (l.startsWith(QLatin1Char('/')))
                l.remove(0, 1); // italics
        }
        const qint64 start = qint64(startFrame * 1000.0 / fps + 0.5);
        const qint64 end = endFrame < 0 ? -1 : qint64(endFrame * 1000.0 / fps + 0.5);
        cues.append({start, end, subtitleparser::plainText(lines.join(QLatin1Char('\n')))});
    }
    return cues;
}

// SAMI: <SYNC Start=ms> blocks with <P Class=name> paragraphs; a class's text
// lasts until its next paragraph (an empty one, "&nbsp;", clears it).
QList<SubtitleTrack> parseSami(const QString &text)
{
    const auto ci = QRegularExpression::CaseInsensitiveOption;
    static const QRegularExpression styleBlock(QStringLiteral("<style[^>]*>(.*)</style>"),
                                               ci | QRegularExpression::DotMatchesEverythingOption);
    static const QRegularExpression classRule(QStringLiteral("\\.([A-Za-z0-9_-]+)\\s*\\{([^}]*)\\}"));
    static const QRegularExpression langProperty(QStringLiteral("lang\\s*:\\s*([A-Za-z_-]+)"), ci);
    static const QRegularExpression syncTag(QStringLiteral("<sync[^>]*start\\s*=\\s*\"?(-?\\d+)[^>]*>"), ci);
    static const QRegularExpression paragraphTag(QStringLiteral("<p(\\s[^>]*)?>"), ci);
    static const QRegularExpression classAttribute(QStringLiteral("class\\s*=\\s*\"?([A-Za-z0-9_-]+)"), ci);
    static const QRegularExpression bodyEnd(QStringLiteral("</body>"), ci);

    QStringList classes;
    QList<QByteArray> languages;
    const QRegularExpressionMatch style = styleBlock.match(text);
    if (style.hasMatch()) {
        auto rules = classRule.globalMatch(style.captured(1));
        while (rules.hasNext()) {
            const QRegularExpressionMatch rule = rules.next();
            const QRegularExpressionMatch lang = langProperty.match(rule.captured(2));
            if (!lang.hasMatch())
                continue; // a style of no language (a font, a colour)
            classes.append(rule.captured(1).toUpper());
            languages.append(subtitlefiles::languageCode(lang.captured(1)));
        }
    }

    struct Event
    {
        qint64 startMs;
        QString text;
    };
    QVector<QVector<Event>> events(classes.size());
    const int end = [&] {
        const QRegularExpressionMatch m = bodyEnd.match(text);
        return m.hasMatch() ? m.capturedStart() : text.size();
    }();
    QVector<QRegularExpressionMatch> syncs;
    auto it = syncTag.globalMatch(text);
    while (it.hasNext())
        syncs.append(it.next());
    for (int s = 0; s < syncs.size(); ++s) {
        const qint64 start = syncs[s].captured(1).toLongLong();
        const int from = syncs[s].capturedEnd();
        const int to = s + 1 < syncs.size() ? syncs[s + 1].capturedStart() : qMax(end, from);
        const QString block = text.mid(from, to - from);
        QVector<QRegularExpressionMatch> paragraphs;
        auto p = paragraphTag.globalMatch(block);
        while (p.hasNext())
            paragraphs.append(p.next());
        if (paragraphs.isEmpty()) {
            if (classes.isEmpty()) {
                classes.append(QString());
                languages.append(QByteArray());
                events.append(QVector<Event>());
            }
            events[0].append({start, subtitleparser::plainText(block)});
            continue;
        }
        for (int i = 0; i < paragraphs.size(); ++i) {
            const int pFrom = paragraphs[i].capturedEnd();
            const int pTo = i + 1 < paragraphs.size() ? paragraphs[i + 1].capturedStart() : block.size();
            const QString name = classAttribute.match(paragraphs[i].captured(1)).captured(1).toUpper();
            int index = classes.indexOf(name);
            if (index < 0) {
                classes.append(name);
                languages.append(QByteArray());
                events.append(QVector<Event>());
                index = classes.size() - 1;
            }
            events[index].append({start, subtitleparser::plainText(block.mid(pFrom, pTo - pFrom))});
        }
    }

    QList<SubtitleTrack> tracks;
    for (int c = 0; c < classes.size(); ++c) {
        QVector<Event> list = events[c];
        std::stable_sort(list.begin(), list.end(),
                         [](const Event &a, const Event &b) { return a.startMs < b.startMs; });
        SubtitleTrack track;
        track.language = languages[c];
        for (int i = 0; i < list.size(); ++i) {
            const qint64 next = i + 1 < list.size() ? list[i + 1].startMs : -1;
            track.cues.append({list[i].startMs, next, list[i].text});
        }
        tracks.append(track);
    }
    return tracks;
}

} // namespace

namespace subtitleparser {

qint64 parseClock(const QString &text)
{
    // [h:]mm:ss[,.]fff by hand: a file holds two of them per cue.
    qint64 fields[3] = {0, 0, 0};
    int count = 0;
    int digits = 0;
    int i = 0;
    const int size = text.size();
    for (; i < size; ++i) {
        const QChar c = text.at(i);
        if (c.isDigit() && c.unicode() < 128) {
            if (++digits > 3 || (count > 0 && digits > 2))
                return -1;
            fields[count] = fields[count] * 10 + (c.unicode() - '0');
        } else if (c == QLatin1Char(':') && digits > 0 && count < 2) {
            ++count;
            digits = 0;
        } else {
            break;
        }
    }
    if (count == 0 || digits == 0)
        return -1;
    qint64 fraction = 0;
    if (i < size) {
        const QChar c = text.at(i);
        if (c != QLatin1Char(',') && c != QLatin1Char('.'))
            return -1;
        int fractionDigits = 0;
        for (++i; i < size; ++i) {
            const QChar d = text.at(i);
            if (!d.isDigit() || d.unicode() >= 128 || ++fractionDigits > 3)
                return -1;
            fraction = fraction * 10 + (d.unicode() - '0');
        }
        if (fractionDigits == 0)
            return -1;
        for (; fractionDigits < 3; ++fractionDigits)
            fraction *= 10;
    }
    const qint64 hours = count == 2 ? fields[0] : 0;
    const qint64 minutes = fields[count - 1];
    const qint64 seconds = fields[count];
    if (minutes >= 60 || seconds >= 60)
        return -1;
    return ((hours * 60 + minutes) * 60 + seconds) * 1000 + fraction;
}

QString plainText(const QString &markup)
{
    static const QRegularExpression lineBreak(QStringLiteral("<br\\s*/?>"), QRegularExpression::CaseInsensitiveOption);
    static const QRegularExpression tag(QStringLiteral("<[^>]*>"));
    static const QRegularExpression overrides(QStringLiteral("\\{\\\\[^}]*\\}"));
    static const struct {
        const char *entity;
        const char *text;
    } entities[] = {{"&lt;", "<"}, {"&gt;", ">"}, {"&quot;", "\""}, {"&apos;", "'"}, {"&nbsp;", " "}, {"&amp;", "&"}};

    // A line of no markup, no break and no entity is taken as it is.
    bool plain = true;
    for (const QChar c : markup) {
        if (c == QLatin1Char('<') || c == QLatin1Char('{') || c == QLatin1Char('&') || c == QLatin1Char('\n')) {
            plain = false;
            break;
        }
    }
    if (plain)
        return markup.simplified();

    QString text = markup;
    // Most lines carry no markup at all: a file of tens of thousands of cues
    // is read without a pattern match per cue.
    if (text.contains(QLatin1Char('<'))) {
        // Where <br> breaks the lines (SAMI), a line end in the file is a
        // blank; SRT and WebVTT break where the file does.
        if (text.contains(lineBreak))
            text.replace(QLatin1Char('\n'), QLatin1Char(' ')).replace(lineBreak, QStringLiteral("\n"));
        text.remove(tag);
    }
    if (text.contains(QLatin1Char('{')))
        text.remove(overrides);
    if (text.contains(QLatin1Char('&'))) {
        for (const auto &e : entities)
            text.replace(QLatin1String(e.entity), QString::fromLatin1(e.text), Qt::CaseInsensitive);
    }
    QStringList lines;
    for (const QString &line : text.split(QLatin1Char('\n'))) {
        const QString simple = line.simplified();
        if (!simple.isEmpty())
            lines.append(simple);
    }
    return lines.join(QLatin1Char('\n'));
}

QVector<SubtitleCue> normalised(QVector<SubtitleCue> cues)
{
    QVector<SubtitleCue> valid;
    for (const SubtitleCue &cue : qAsConst(cues)) {
        if (cue.startMs < 0 || (cue.endMs >= 0 && cue.endMs <= cue.startMs) || cue.text.isEmpty())
            continue;
        valid.append(cue);
    }
    std::stable_sort(valid.begin(), valid.end(),
                     [](const SubtitleCue &a, const SubtitleCue &b) { return a.startMs < b.startMs; });
    QVector<SubtitleCue> result;
    for (const SubtitleCue &cue : qAsConst(valid)) {
        if (!result.isEmpty() && result.last().startMs == cue.startMs) {
            SubtitleCue &last = result.last();
            last.text += QLatin1Char('\n') + cue.text;
            last.endMs = (last.endMs < 0 || cue.endMs < 0) ? -1 : qMax(last.endMs, cue.endMs);
            continue;
        }
        if (!result.isEmpty() && (result.last().endMs < 0 || result.last().endMs > cue.startMs))
            result.last().endMs = cue.startMs;
        result.append(cue);
    }
    return result;
}

QList<SubtitleTrack> parse(SubtitleFormat format, const QString &text, double framesPerSecond)
{
    QList<SubtitleTrack> tracks;
    switch (format) {
    case SubtitleFormat::Srt:
    case SubtitleFormat::WebVtt:
        tracks.append({QByteArray(), parseTimedBlocks(text)});
        break;
    case SubtitleFormat::Ass:
        tracks.append({QByteArray(), parseAss(text)});
        break;
    case SubtitleFormat::MicroDvd:
        tracks.append({QByteArray(), parseMicroDvd(text, framesPerSecond)});
        break;
    case SubtitleFormat::Sami:
        tracks = parseSami(text);
        break;
    }
    QList<SubtitleTrack> kept;
    for (SubtitleTrack &track : tracks) {
        track.cues = normalised(track.cues);
        if (!track.cues.isEmpty())
            kept.append(track);
    }
    return kept;
}

} // namespace subtitleparser
