// Provisions the Bluetooth controller's address. The controller's persistent store is a text file; its line 2 holds the
// address as key 0001.

#include <sys/stat.h>

#include <algorithm>
#include <string_view>

#include "KYRSystem.h"
#include "engineering/autotest/IdentityRecord.h"
#include "engineering/autotest/KYRAutoTest.h"
#include "engineering/base/Log.h"
#include "engineering/base/PersistentFile.h"

namespace {

constexpr const char* kNameFile = "/perm_data/data/bluetooth/btname";
constexpr const char* kStoreDirectory = "/perm_data/data/bluetooth/";
constexpr const char* kStoreFile = "/perm_data/data/bluetooth/PSConfig.psr";
constexpr const char* kDefaultStoreFile = "/kyr/etc/bluetooth/bin/PSConfig.psr";
constexpr int kAddressLine = 2;
constexpr int kAddressLength = 12;

bool IsControlCharacter(unsigned char c)
{
    return c < 0x20 || c == 0x7F;
}

/// @returns whether the path names something other than a file. A copy of the default onto a pipe would never end.
bool IsNotAFile(const std::string& strPath)
{
    struct stat status = {};
    return stat(strPath.c_str(), &status) == 0 && !S_ISREG(status.st_mode);
}

/// The stored device name belongs to the old address.
void RemoveStaleName()
{
    const std::string strPath = PersistentPath(kNameFile);
    if (!IsReadableFile(strPath))
        return;
    if (KYR_RemoveFile(strPath.c_str(), 1) == 0)
        KYR_LOG_ERROR("KYR_RemoveFile /perm_data/data/bluetooth/btname)\n");
    SyncPersistent(kSyncError);
}

void MakeSureOfStore(const std::string& strStore)
{
    if (IsReadableFile(strStore))
        return;
    KYR_LOG_INFO("[SaveBtMacAddress] open %s failed!", strStore.c_str());
    if (IsNotAFile(strStore)) {
        KYR_LOG_ERROR("[SaveBtMacAddress] %s is not a regular file, it is left as it is", strStore.c_str());
        return;
    }
    const std::string strCommand =
        "cp " + PersistentShellPath(kDefaultStoreFile) + " " + PersistentShellPath(kStoreDirectory);
    if (KYR_ExecSystemCmd(strCommand.c_str(), 1) == 0)
        KYR_LOG_ERROR("KYR_ExecSystemCmd(cp /kyr/etc/bluetooth/bin/PSConfig.psr /perm_data/data/bluetooth/) error\n");
    SyncPersistent(kSyncError);
}

/// The persistent-store line of an address of 12 characters, NAP (4), UAP (2), LAP (6): four words in the controller's
/// order.
std::string StoreLine(std::string_view address)
{
    const auto part = [address](std::size_t nFrom, std::size_t nCount) {
        return std::string(address.substr(nFrom, nCount));
    };
    return "&0001 = 00" + part(6, 2) + " " + part(8, 4) + " 00" + part(4, 2) + " " + part(0, 4);
}

}  // namespace

void KYRAutoTest::SaveBtMacAddress(const unsigned char* param, int param_len)
{
    if (param_len < kAddressLength) {
        KYR_LOG_ERROR("[SaveBtMacAddress] address: expected %d characters, got %d", kAddressLength, param_len);
        return;
    }
    // A line end would add a line to the store.
    if (std::any_of(param, param + kAddressLength, IsControlCharacter)) {
        KYR_LOG_ERROR("[SaveBtMacAddress] the address contains a control character, nothing is written");
        return;
    }
    RemoveStaleName();
    const std::string strStore = PersistentPath(kStoreFile);
    MakeSureOfStore(strStore);

    const std::string strAddress(param, param + param_len);
    KYR_LOG_INFO("[rkb][SaveBtMacAddress], str_MAC = %s ", strAddress.c_str());
    const std::string strLine = StoreLine(strAddress);
    KYR_LOG_INFO("[rkb][SaveBtMacAddress] write_contents = %s", strLine.c_str());
    ResetLineContents(strStore, kAddressLine, strLine);

    const std::string strQueryCopy = IdentityRecordPath(kBtMacAddressForQuery);
    if (!WriteWholeFile(strQueryCopy, strLine)) {
        KYR_LOG_ERROR("SaveBtMacAddress, creat or open %s failed!", strQueryCopy.c_str());
        return;
    }
    SyncPersistent(kSyncError);
}
