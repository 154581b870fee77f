#pragma once

#include <cstdint>

#include "IKYRService.h"

/// One report of the satellites in view. nCount may be any number; the arrays hold 20 satellites.
struct _GpsSatelliteData {
    std::int32_t nReserved;
    std::int32_t nCount;
    std::int32_t nNumber[20];
    std::int32_t nSignal[20];
};

struct _LocationData {
    std::int32_t nReserved[2];
    std::int32_t nLatitude;   // in the location service's unit
    std::int32_t nLongitude;  // in the location service's unit
};

/// All notifications arrive on the listener thread.
class IKYRLocationListener
{
public:
    virtual ~IKYRLocationListener() = default;

    virtual void OnAASatinfoChange(const _GpsSatelliteData& data) { static_cast<void>(data); }
    virtual void OnAALocationChange(const _LocationData& data) { static_cast<void>(data); }
};

/// The location service.
class KYRLocation : public IKYRService<IKYRLocationListener>
{
public:
    /// @returns 1 if the service is up, else 0.
    virtual int InitInstance() = 0;
};

/// @returns the service, owned by the platform, or null if there is none.
KYRLocation* KYR_GetLocationService();
