// The metadata reader of the host libplayback.so on real files. It works in
// the client process and needs no service.
#ifndef HOSTPLAYBACK_FILEMETADATA_H
#define HOSTPLAYBACK_FILEMETADATA_H

#include <playback/spmetadata.h>

namespace hostplatform {

playback::SPMetaData *createFileMetaData(const char *name, const char *config);
void destroyFileMetaData(playback::SPMetaData *metaData);

} // namespace hostplatform

#endif // HOSTPLAYBACK_FILEMETADATA_H
