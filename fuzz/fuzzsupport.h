// Shared pieces of the fuzz targets: a Qt application object, a message
// handler that keeps the library's (very chatty) log off the terminal, and a
// property check that stops the run like a sanitizer report does.
#ifndef ORVICFUZZ_FUZZSUPPORT_H
#define ORVICFUZZ_FUZZSUPPORT_H

#include <QtCore/QString>
#include <QtCore/QStringList>

#include <cstdio>
#include <cstdlib>

namespace orvicfuzz {

// Creates the QCoreApplication (once) and silences debug output; warnings and
// worse still reach stderr. Call from LLVMFuzzerInitialize.
void initQt(int *argc, char ***argv);

// Debug lines whose text contains `needle` are kept (in order, from any
// thread) until takeCapturedLines(); other debug lines are dropped.
void captureLinesContaining(const QString &needle);
QStringList takeCapturedLines();

[[noreturn]] void fail(const char *file, int line, const char *what);

} // namespace orvicfuzz

// A violated property ends the run with a report, so libFuzzer keeps the input.
#define FUZZ_CHECK(cond) \
    do { \
        if (!(cond)) \
            ::orvicfuzz::fail(__FILE__, __LINE__, #cond); \
    } while (0)

#endif // ORVICFUZZ_FUZZSUPPORT_H
