#include "errormap.h"

#include <gst/gst.h>

namespace errormap {

int errorNumber(GQuark domain, int code)
{
    if (domain == GST_RESOURCE_ERROR) {
        if (code == GST_RESOURCE_ERROR_SEEK)
            return kSeekFailed;
        if (code == GST_RESOURCE_ERROR_NO_SPACE_LEFT)
            return kLowMemory;
        return kResourceBase + code;
    }
    if (domain == GST_CORE_ERROR)
        return kCoreBase + code;
    if (domain == GST_LIBRARY_ERROR)
        return kLibraryBase + code;
    if (domain == GST_STREAM_ERROR)
        return kStreamBase + code;
    return kOtherError;
}

int warningNumber(GQuark domain, int)
{
    if (domain == GST_STREAM_ERROR)
        return kNoticeStream;
    if (domain == GST_RESOURCE_ERROR)
        return kNoticeResource;
    return kNoticeOther;
}

} // namespace errormap
