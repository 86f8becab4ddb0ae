#include "psprotocol.h"

#include <QtCore/QDataStream>
#include <QtCore/QIODevice>
#include <QtCore/QtEndian>

namespace psprotocol {

namespace {
const QDataStream::Version kStreamVersion = QDataStream::Qt_5_15;

// The values frames carry: what the engine operations and events take and
// give. Anything else (lists, maps, GUI or user types) is a violation: the
// generic reader would build whatever a peer names, sized as the peer says.
bool isWireType(quint32 type)
{
    switch (type) {
    case QMetaType::UnknownType:
    case QMetaType::Bool:
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Double:
    case QMetaType::Float:
    case QMetaType::QString:
    case QMetaType::QByteArray:
        return true;
    default:
        return false;
    }
}

// Smallest encoding of one value: its type and its null flag.
const qint64 kMinValueBytes = 5;

bool readValue(QDataStream &in, QVariant *value)
{
    QIODevice *device = in.device();
    const qint64 start = device->pos();
    quint32 type = 0;
    in >> type;
    if (in.status() != QDataStream::Ok || !isWireType(type) || !device->seek(start))
        return false;
    in >> *value;
    return in.status() == QDataStream::Ok;
}

bool readValues(QDataStream &in, QVariantList *values)
{
    quint32 count = 0;
    in >> count;
    // A count the rest of the frame cannot hold is a lie, not a size to
    // allocate for.
    if (in.status() != QDataStream::Ok || count > quint64(in.device()->bytesAvailable()) / kMinValueBytes)
        return false;
    values->reserve(int(count));
    for (quint32 i = 0; i < count; ++i) {
        QVariant value;
        if (!readValue(in, &value))
            return false;
        values->append(value);
    }
    return true;
}
} // namespace

QByteArray encode(const Frame &frame)
{
    QByteArray payload;
    {
        QDataStream out(&payload, QIODevice::WriteOnly);
        out.setVersion(kStreamVersion);
        out << frame.kind << frame.sequence;
        switch (frame.kind) {
        case pswire::FrameCall:
        case pswire::FrameEvent:
            out << frame.code << frame.arguments;
            break;
        case pswire::FrameReply:
            out << frame.result << frame.output;
            break;
        default:
            break;
        }
    }
    QByteArray bytes;
    QDataStream framed(&bytes, QIODevice::WriteOnly);
    framed.setVersion(kStreamVersion);
    framed << payload;
    return bytes;
}

Frame ping(quint32 sequence)
{
    Frame f;
    f.kind = pswire::FramePing;
    f.sequence = sequence;
    return f;
}

Frame pong(quint32 sequence)
{
    Frame f;
    f.kind = pswire::FramePong;
    f.sequence = sequence;
    return f;
}

Frame call(quint32 sequence, pswire::Operation operation, const QVariantList &arguments)
{
    Frame f;
    f.kind = pswire::FrameCall;
    f.sequence = sequence;
    f.code = operation;
    f.arguments = arguments;
    return f;
}

Frame reply(quint32 sequence, const QVariant &result, const QByteArray &output)
{
    Frame f;
    f.kind = pswire::FrameReply;
    f.sequence = sequence;
    f.result = result;
    f.output = output;
    return f;
}

Frame event(pswire::Event event, const QVariantList &arguments)
{
    Frame f;
    f.kind = pswire::FrameEvent;
    f.code = event;
    f.arguments = arguments;
    return f;
}

QList<Frame> FrameReader::read(QIODevice *device, bool *ok)
{
    return read(device->readAll(), ok);
}

QList<Frame> FrameReader::read(const QByteArray &bytes, bool *ok)
{
    *ok = true;
    m_buffer.append(bytes);
    QList<Frame> frames;
    int offset = 0;
    while (m_buffer.size() - offset >= 4) {
        const quint32 size = qFromBigEndian<quint32>(m_buffer.constData() + offset);
        if (size > pswire::kMaxFrameSize || size < 8) {
            *ok = false;
            break;
        }
        if (quint32(m_buffer.size() - offset - 4) < size)
            break;
        const QByteArray payload = m_buffer.mid(offset + 4, int(size));
        offset += 4 + int(size);

        QDataStream in(payload);
        in.setVersion(kStreamVersion);
        Frame f;
        in >> f.kind >> f.sequence;
        bool fieldsOk = true;
        if (f.kind == pswire::FrameCall || f.kind == pswire::FrameEvent) {
            in >> f.code;
            fieldsOk = readValues(in, &f.arguments);
        } else if (f.kind == pswire::FrameReply) {
            fieldsOk = readValue(in, &f.result);
            in >> f.output;
        }
        if (!fieldsOk || in.status() != QDataStream::Ok) {
            *ok = false;
            break;
        }
        frames.append(f);
    }
    m_buffer.remove(0, offset);
    return frames;
}

} // namespace psprotocol
