// Platform control singleton of the device (libsppfc.so).
#ifndef SPPLFCTRL_SPPLATFORMCONTROL_H
#define SPPLFCTRL_SPPLATFORMCONTROL_H

namespace spplfctrl {

class SPPlatformControl
{
public:
    static SPPlatformControl *GetInstance();
    static void ReleaseInstance(SPPlatformControl *instance);

    // Copies at most `length` bytes of vendor data item `item` into `buffer`.
    // 0 on success, an error code otherwise.
    virtual int Vendor_Data_Read_String(int item, int length, char *buffer) = 0;

protected:
    SPPlatformControl() {}
    virtual ~SPPlatformControl() {}
};

} // namespace spplfctrl

#endif // SPPLFCTRL_SPPLATFORMCONTROL_H
