// Makes the adaptor's pauses between two polls of the service status return
// at once for its lifetime, and records the pause each poll asked for (5 ms
// on the device), so that tests of init, reset and the watchdog need not wait.
#ifndef ORVICTEST_INSTANTPOLLS_H
#define ORVICTEST_INSTANTPOLLS_H

#include <QtCore/QList>
#include <QtCore/QMutex>

namespace orvictest {

class InstantPolls
{
public:
    InstantPolls();   // installs itself; one at a time
    ~InstantPolls();  // restores the previous pause

    // The pauses asked for, in milliseconds, in order.
    QList<unsigned long> pauses() const;
    void clear();

private:
    static void pause(unsigned long ms);

    mutable QMutex m_mutex;
    QList<unsigned long> m_pauses;
    void (*m_previous)(unsigned long);
};

} // namespace orvictest

#endif // ORVICTEST_INSTANTPOLLS_H
