#include "qorvicavailabilitycontrol.h"

#include "qorvicsessionlink.h"

QOrvicAvailabilityControl::QOrvicAvailabilityControl(QOrvicSessionLink *link, QObject *parent)
    : QMediaAvailabilityControl(parent),
      m_link(link)
{
}

QMultimedia::AvailabilityStatus QOrvicAvailabilityControl::availability() const
{
    return m_link->serviceRunning() ? QMultimedia::Available : QMultimedia::ServiceMissing;
}
