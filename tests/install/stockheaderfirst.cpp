// A client whose include path finds the stock Qt Multimedia headers instead
// of the device's (or the PC overlay): the session header must say so first.
#include <qorvicplayersession.h>

int main()
{
    return 0;
}
