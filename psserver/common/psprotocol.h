// Frames of the psserver socket (see pswire.h for the layout) as Qt values.
#ifndef PSSERVER_PSPROTOCOL_H
#define PSSERVER_PSPROTOCOL_H

#include "pswire.h"

#include <QtCore/QByteArray>
#include <QtCore/QVariant>
#include <QtCore/QVariantList>

class QIODevice;

namespace psprotocol {

struct Frame
{
    quint32 kind = 0;
    quint32 sequence = 0;
    quint32 code = 0;        // operation (calls) or event (events)
    QVariantList arguments;  // calls and events
    QVariant result;         // replies
    QByteArray output;       // replies: bytes of an out-parameter
};

QByteArray encode(const Frame &frame);

Frame ping(quint32 sequence);
Frame pong(quint32 sequence);
Frame call(quint32 sequence, pswire::Operation operation, const QVariantList &arguments);
Frame reply(quint32 sequence, const QVariant &result, const QByteArray &output = QByteArray());
Frame event(pswire::Event event, const QVariantList &arguments = QVariantList());

// Collects frames from a stream socket. read() takes what the device has and
// returns the complete frames; false in `ok` means the peer broke the framing
// and must be dropped. Values in frames are bool, integers, floating point,
// strings and byte arrays; any other type, or an element count beyond what
// the frame holds, breaks the framing.
class FrameReader
{
public:
    QList<Frame> read(QIODevice *device, bool *ok);
    // The same for bytes the caller read from the socket itself.
    QList<Frame> read(const QByteArray &bytes, bool *ok);

private:
    QByteArray m_buffer;
};

} // namespace psprotocol

#endif // PSSERVER_PSPROTOCOL_H
