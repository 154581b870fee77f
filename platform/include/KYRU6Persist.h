#pragma once

#include "IKYRService.h"

namespace U6Persist {

enum E_ModuleName : int {};

}  // namespace U6Persist

/// All notifications arrive on the listener thread.
class IKYRU6PersistListener
{
public:
    virtual ~IKYRU6PersistListener() = default;

    virtual void OnU6PersistDataChange(U6Persist::E_ModuleName eModule, unsigned int nValue)
    {
        static_cast<void>(eModule);
        static_cast<void>(nValue);
    }

    /// The unit is being reset to its factory state, by its user or automatically.
    virtual void OnU6PersistFactoryResetMode() {}
    virtual void OnU6PersistAutoFactoryResetMode() {}
};

/// The persistence service.
class KYRU6Persist : public IKYRService<IKYRU6PersistListener>
{
};

/// @returns the service, owned by the platform, or null if there is none.
KYRU6Persist* KYR_GetU6PersistService();
