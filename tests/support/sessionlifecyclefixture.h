// What the session lifecycle tests share: the service's status key, the
// engine calls of bringing the engine up, and a fixture with the scripted
// engine and property service, the log capture and instant polls, which
// checks on teardown that Qt itself warned of nothing.
#ifndef ORVICTEST_SESSIONLIFECYCLEFIXTURE_H
#define ORVICTEST_SESSIONLIFECYCLEFIXTURE_H

#include "instantpolls.h"
#include "logcapture.h"
#include "scriptedplatform.h"

#include <QtCore/QByteArray>
#include <QtCore/QStringList>

#include <memory>

namespace orvictest {
namespace sessionlifecycle {

extern const QByteArray kStatusKey;

// The engine calls of init: the player, its volume, the metadata reader.
extern const QStringList kEngineUp;

// setUp() from the test's init(), tearDown() from its cleanup().
class SessionLifecycleFixture
{
protected:
    void setUp();
    void tearDown();

    std::unique_ptr<ScriptedEngine> m_engine;
    std::unique_ptr<ScriptedPropertyService> m_properties;
    std::unique_ptr<LogCapture> m_log;
    // The 5 ms pauses between two polls, recorded instead of waited for.
    std::unique_ptr<InstantPolls> m_polls;
};

} // namespace sessionlifecycle
} // namespace orvictest

#endif // ORVICTEST_SESSIONLIFECYCLEFIXTURE_H
