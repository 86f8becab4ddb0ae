// Embedded cover picture: the engine's decoded pixels wrapped in a QImage.
#include "qorvicmetadatasession.h"
#include "qorviclogging_p.h"

#include <playback/spmetadata.h>

#include <cstring>

namespace {
const int kPictureIndex = 0;
const int kPictureSizeLimit = 512;
} // namespace

QImage QOrvicMetaDataSession::updateID3Pic()
{
    playback::SPMetaData::Picture picture;
    std::memset(&picture, 0, sizeof picture);
    if (mSPMetaData->getPicture(picture, kPictureIndex, kPictureSizeLimit) != -1) {
        // No copy: the image reads the engine's pixel memory. The read-only
        // form makes a client that paints on it detach instead of writing
        // into the engine's buffer.
        const QImage image(static_cast<const uchar *>(picture.data), picture.width, picture.height,
                           QImage::Format_RGB888);
        if (!image.isNull()) {
            OPMETA_LOG("D/OPMetaSession %s(%d):updateID3Pic %dx%d ok", picture.width, picture.height);
            OPMETA_LOG_STREAM() << image;
            return image;
        }
    }
    OPMETA_LOG("D/OPMetaSession %s(%d):updateID3Pic error, return null image.");
    return QImage();
}
