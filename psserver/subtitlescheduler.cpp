#include "subtitlescheduler.h"

#include <QtCore/QtGlobal>

#include <limits>

namespace {
// A cue near the end of the time line (a subtitle file may state any start
// and duration) lasts to the end of it instead of wrapping around.
qint64 cueEnd(qint64 startMs, qint64 durationMs)
{
    const qint64 latest = std::numeric_limits<qint64>::max();
    return durationMs > latest - startMs ? latest : startMs + durationMs;
}
} // namespace

void SubtitleScheduler::add(qint64 startMs, qint64 durationMs, const QByteArray &text)
{
    if (startMs < 0 || m_cues.contains(startMs))
        return;
    m_cues.insert(startMs, Cue{durationMs, text});
}

void SubtitleScheduler::clear()
{
    m_cues.clear();
}

void SubtitleScheduler::resetShown()
{
    m_shown.clear();
}

QByteArray SubtitleScheduler::textAt(qint64 positionMs) const
{
    auto it = m_cues.upperBound(positionMs);
    if (it == m_cues.constBegin())
        return QByteArray();
    auto next = it;
    --it;
    qint64 end;
    if (it->durationMs >= 0) {
        end = cueEnd(it.key(), it->durationMs);
    } else {
        end = cueEnd(it.key(), kOpenEndedMs);
        if (next != m_cues.constEnd())
            end = qMin(end, next.key());
    }
    return positionMs < end ? it->text : QByteArray();
}

bool SubtitleScheduler::update(qint64 positionMs, QByteArray *text)
{
    const QByteArray visible = textAt(positionMs);
    if (visible == m_shown)
        return false;
    m_shown = visible;
    *text = visible;
    return true;
}

QByteArray SubtitleScheduler::plainTextFromMarkup(const QByteArray &markup)
{
    static const struct {
        const char *entity;
        char character;
    } entities[] = {{"&lt;", '<'}, {"&gt;", '>'}, {"&amp;", '&'}, {"&quot;", '"'}, {"&apos;", '\''}};

    QByteArray text;
    text.reserve(markup.size());
    bool inTag = false;
    for (int i = 0; i < markup.size(); ++i) {
        const char c = markup.at(i);
        if (inTag) {
            inTag = c != '>';
            continue;
        }
        if (c == '<') {
            inTag = true;
            continue;
        }
        if (c == '&') {
            bool resolved = false;
            for (const auto &e : entities) {
                const int length = int(qstrlen(e.entity));
                if (markup.mid(i, length) == e.entity) {
                    text.append(e.character);
                    i += length - 1;
                    resolved = true;
                    break;
                }
            }
            if (resolved)
                continue;
        }
        text.append(c);
    }
    return text;
}
