// What the volume, stream and subtitle tests of the adaptor share: a harness
// per test, a medium opened on an engine that reports volume 50, and the text
// of a metadata map announcement.
#ifndef ORVICTEST_STREAMFIXTURE_H
#define ORVICTEST_STREAMFIXTURE_H

#include "adaptorharness.h"

#include <QtCore/QString>
#include <QtCore/QStringList>

#include <memory>

namespace orvictest {

// The recorded text of a metadataChanged(QVariantMap) carrying `keys`.
QString mapSignal(const QStringList &keys);

// setUp() from the test's init(), tearDown() from its cleanup().
class StreamFixture
{
protected:
    void setUp();
    void tearDown();

    // Opens `medium` on a session whose engine reports volume 50.
    void openMedium(Medium medium, const QString &url = QStringLiteral("/media/movie.mkv"));

    std::unique_ptr<AdaptorHarness> h;
};

} // namespace orvictest

#endif // ORVICTEST_STREAMFIXTURE_H
