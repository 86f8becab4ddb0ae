#include "psprotocol.h"

#include <QtCore/QDataStream>
#include <QtCore/QIODevice>
#include <QtCore/QtEndian>

namespace psprotocol {

namespace {
const QDataStream::Version kStreamVersion = QDataStream::Qt_5_15;
}

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
    *ok = true;
    m_buffer.append(device->readAll());
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
        if (f.kind == pswire::FrameCall || f.kind == pswire::FrameEvent)
            in >> f.code >> f.arguments;
        else if (f.kind == pswire::FrameReply)
            in >> f.result >> f.output;
        if (in.status() != QDataStream::Ok) {
            *ok = false;
            break;
        }
        frames.append(f);
    }
    m_buffer.remove(0, offset);
    return frames;
}

} // namespace psprotocol
