#ifndef QORVICAVAILABILITYCONTROL_H
#define QORVICAVAILABILITYCONTROL_H

#include <QtMultimedia/QMediaAvailabilityControl>

class QOrvicSessionLink;

// ServiceMissing when the playback service did not come up for the
// player's session (its status property is not "running" after the start).
class QOrvicAvailabilityControl : public QMediaAvailabilityControl
{
    Q_OBJECT
public:
    explicit QOrvicAvailabilityControl(QOrvicSessionLink *link, QObject *parent = nullptr);
    QMultimedia::AvailabilityStatus availability() const override;

private:
    QOrvicSessionLink *m_link;
};

#endif // QORVICAVAILABILITYCONTROL_H
