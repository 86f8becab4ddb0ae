// Shared by the scripted doubles' source files; not for tests.
#ifndef ORVICTEST_SCRIPTEDPLATFORM_P_H
#define ORVICTEST_SCRIPTEDPLATFORM_P_H

#include <QtCore/QString>

namespace orvictest {

// A C string as the call records show it: "(null)" for a null pointer.
QString nameText(const char *s);

} // namespace orvictest

#endif
