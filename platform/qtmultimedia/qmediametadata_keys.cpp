// Host-only definitions of the device's extra metadata keys. The device's own
// Qt Multimedia defines them; this library exists only for PC builds.
#include <QtMultimedia/qmediametadata.h>

#ifndef QT_MULTIMEDIA_DEVICE_METADATA_KEYS
#error "the device metadata key overlay must be first on the include path"
#endif

QT_BEGIN_NAMESPACE
namespace QMediaMetaData {
#define Q_DEFINE_DEVICE_METADATA(key) const QString key(QStringLiteral(#key))
Q_DEFINE_DEVICE_METADATA(SubtitleCount);
Q_DEFINE_DEVICE_METADATA(SubtitleId);
Q_DEFINE_DEVICE_METADATA(SubtitleLanguage);
Q_DEFINE_DEVICE_METADATA(SubtitleOnOff);
Q_DEFINE_DEVICE_METADATA(AudioStream);
Q_DEFINE_DEVICE_METADATA(AudioStreamCount);
#undef Q_DEFINE_DEVICE_METADATA
} // namespace QMediaMetaData
QT_END_NAMESPACE
