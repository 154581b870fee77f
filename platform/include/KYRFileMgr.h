#pragma once

/// The file manager. Any thread.
class KYRFileMgr
{
public:
    virtual ~KYRFileMgr() = default;

    /// Deletes the data that the unit's user has stored.
    virtual void ClearUserData() = 0;
};

/// @returns the file manager, owned by the platform, or null if there is none.
KYRFileMgr* KYR_GetFileMgr();
