#pragma once

#include <KYRFileMgr.h>
#include <KYRLocation.h>
#include <KYRMediaPlayer.h>
#include <KYRSystemInfo.h>
#include <KYRSystemUpdate.h>
#include <KYRU6Persist.h>

#include "platform/bench/FakeContext.h"

namespace bench {

/// The file manager.
class FakeFileManager : public KYRFileMgr
{
public:
    explicit FakeFileManager(const FakeContext& context) : context_(context) {}

    void ClearUserData() override;

private:
    const FakeContext context_;
};

/// The proxy of the system-update service.
class FakeSystemUpdate : public KYRSystemUpdate
{
public:
    explicit FakeSystemUpdate(const FakeContext& context) : context_(context) {}

    void Request(int code) override;

private:
    const FakeContext context_;
};

/// The proxy of the system-information service.
class FakeSystemInfo : public KYRSystemInfo
{
public:
    explicit FakeSystemInfo(const FakeContext& context) : context_(context) {}

    int GetVersionInfo(SystemInfo::VersionInfo& info) override;

private:
    const FakeContext context_;
};

/// The location service: nothing but its events.
class FakeLocation : public KYRLocation
{
public:
    int InitInstance() override;
};

/// The media player, which needs no start.
class FakeMediaPlayer : public KYRMediaPlayer
{
};

/// The persistence service: nothing but its events.
class FakeU6Persist : public KYRU6Persist
{
};

}  // namespace bench
