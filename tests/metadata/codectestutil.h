// Shared by the text encoding tests: the platform's vendor text item that
// names the system codec, and the check that every platform singleton
// handed out went back.
#ifndef ORVICTEST_CODECTESTUTIL_H
#define ORVICTEST_CODECTESTUTIL_H

#include <QtTest/QtTest>

namespace orvictest {

const int kSystemCodecItem = 104;

} // namespace orvictest

// Every platform singleton handed out went back.
#define VERIFY_PAIRED(platform) QCOMPARE((platform).releaseCount(), (platform).getInstanceCount())

#endif // ORVICTEST_CODECTESTUTIL_H
