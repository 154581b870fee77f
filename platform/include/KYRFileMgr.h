#pragma once

/// The file manager. Any thread.
class KYRFileMgr
{
public:
    virtual ~KYRFileMgr() = default;

    /// Deletes what the unit's user has stored.
    virtual void ClearUserData() = 0;
};

/// @returns the file manager, owned by the platform, or null when there is none.
KYRFileMgr* KYR_GetFileMgr();
