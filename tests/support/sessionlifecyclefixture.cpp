#include "sessionlifecyclefixture.h"

#include <QtTest/QtTest>

namespace orvictest {
namespace sessionlifecycle {

const QByteArray kStatusKey("init.svc.psserver");

const QStringList kEngineUp = {QStringLiteral("SPPlayer::create(Qspmediaplayer)"), QStringLiteral("getVolume()"),
                               QStringLiteral("SPMetaData::create(SpMetadata,default)")};

void SessionLifecycleFixture::setUp()
{
    m_engine.reset(new ScriptedEngine);
    m_properties.reset(new ScriptedPropertyService);
    m_log.reset(new LogCapture);
    m_polls.reset(new InstantPolls);
}

void SessionLifecycleFixture::tearDown()
{
    m_polls.reset();
    for (const LogEntry &e : m_log->entries())
        QVERIFY2(e.type == QtDebugMsg, qPrintable(e.text));
    m_log.reset();
    m_properties.reset();
    m_engine.reset();
}

} // namespace sessionlifecycle
} // namespace orvictest
