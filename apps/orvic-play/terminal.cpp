#include "terminal.h"

#include <QtCore/QSocketNotifier>

#include <csignal>
#include <unistd.h>

namespace {
// The settings to give back when the program ends from a signal.
termios g_savedForExit{};
volatile sig_atomic_t g_rawActive = 0;
} // namespace

Terminal::Terminal(QObject *parent)
    : QObject(parent)
{
}

Terminal::~Terminal()
{
    if (m_raw) {
        g_rawActive = 0;
        tcsetattr(STDIN_FILENO, TCSANOW, &m_saved);
    }
}

void Terminal::restoreNow()
{
    if (g_rawActive)
        tcsetattr(STDIN_FILENO, TCSANOW, &g_savedForExit);
}

bool Terminal::isInteractive()
{
    return isatty(STDIN_FILENO) && isatty(STDOUT_FILENO);
}

bool Terminal::enableRawInput()
{
    if (!isatty(STDIN_FILENO) || tcgetattr(STDIN_FILENO, &m_saved) != 0)
        return false;
    termios raw = m_saved;
    raw.c_lflag &= ~tcflag_t(ICANON | ECHO);
    raw.c_cc[VMIN] = 1;
    raw.c_cc[VTIME] = 0;
    g_savedForExit = m_saved;
    if (tcsetattr(STDIN_FILENO, TCSANOW, &raw) != 0)
        return false;
    g_rawActive = 1;
    m_raw = true;
    m_notifier = new QSocketNotifier(STDIN_FILENO, QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &Terminal::readInput);
    return true;
}

void Terminal::readInput()
{
    char chunk[64];
    const ssize_t n = ::read(STDIN_FILENO, chunk, sizeof chunk);
    if (n <= 0) {
        // End of input: nothing more will come, stop watching.
        m_notifier->setEnabled(false);
        return;
    }
    m_pending.append(chunk, int(n));
    for (Key key : decode(m_pending))
        Q_EMIT keyPressed(key);
}

QList<Terminal::Key> Terminal::decode(QByteArray &buffer)
{
    QList<Key> keys;
    int i = 0;
    while (i < buffer.size()) {
        const char c = buffer.at(i);
        if (c == '\x1b') {
            if (i + 2 >= buffer.size())
                break; // wait for the rest of the sequence
            if (buffer.at(i + 1) == '[') {
                switch (buffer.at(i + 2)) {
                case 'A': keys.append(KeyUp); break;
                case 'B': keys.append(KeyDown); break;
                case 'C': keys.append(KeyRight); break;
                case 'D': keys.append(KeyLeft); break;
                default: break;
                }
            }
            i += 3;
            continue;
        }
        switch (c) {
        case ' ': keys.append(KeySpace); break;
        case '[': keys.append(KeyRateDown); break;
        case ']': keys.append(KeyRateUp); break;
        case '+': case '=': keys.append(KeyVolumeUp); break;
        case '-': keys.append(KeyVolumeDown); break;
        case 'm': keys.append(KeyMute); break;
        case 'a': keys.append(KeyAudio); break;
        case 's': keys.append(KeySubtitle); break;
        case 't': keys.append(KeySubtitleToggle); break;
        case 'q': case 'Q': keys.append(KeyQuit); break;
        default: break;
        }
        ++i;
    }
    buffer.remove(0, i);
    return keys;
}
