// Metadata reader of the PC build of libplayback.so: reads a local media file
// in the calling process (no playback service needed).
#ifndef HOSTPLATFORM_FILEMETADATA_H
#define HOSTPLATFORM_FILEMETADATA_H

#include <playback/spmetadata.h>

namespace hostplatform {
playback::SPMetaData *createFileMetaData(const char *name, const char *config);
void destroyFileMetaData(playback::SPMetaData *metaData);
} // namespace hostplatform

#endif // HOSTPLATFORM_FILEMETADATA_H
