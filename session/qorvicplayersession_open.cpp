// placeholder: filled in by the adaptor work
#include "qorvicplayersession_p.h"
