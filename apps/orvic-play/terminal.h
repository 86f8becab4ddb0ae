// Raw keyboard input from a terminal, restored on destruction.
#ifndef ORVICPLAY_TERMINAL_H
#define ORVICPLAY_TERMINAL_H

#include <QtCore/QByteArray>
#include <QtCore/QObject>

#include <termios.h>

class QSocketNotifier;

class Terminal : public QObject
{
    Q_OBJECT

public:
    enum Key {
        KeyNone,
        KeySpace,
        KeyLeft,
        KeyRight,
        KeyUp,
        KeyDown,
        KeyRateDown,
        KeyRateUp,
        KeyVolumeUp,
        KeyVolumeDown,
        KeyMute,
        KeyAudio,
        KeySubtitle,
        KeySubtitleToggle,
        KeyQuit
    };
    Q_ENUM(Key)

    explicit Terminal(QObject *parent = nullptr);
    ~Terminal() override;

    // True when standard input and output are a terminal.
    static bool isInteractive();
    bool enableRawInput();
    // Gives the terminal its settings back at once; async-signal-safe, for a
    // program that ends from a signal without running destructors.
    static void restoreNow();

    // Decodes as many keys as `buffer` holds; leaves an incomplete escape
    // sequence in it for the next read.
    static QList<Key> decode(QByteArray &buffer);

Q_SIGNALS:
    void keyPressed(Terminal::Key key);

private:
    void readInput();

    termios m_saved{};
    bool m_raw = false;
    QSocketNotifier *m_notifier = nullptr;
    QByteArray m_pending;
};

#endif // ORVICPLAY_TERMINAL_H
