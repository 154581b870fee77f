#include "engineering/autotest/IdentityRecord.h"

#include "KYRSystem.h"
#include "engineering/base/Log.h"

// The password's reader logs under the factory serial's tag: service engineers search for it.
// WIRE: the reply for a missing CarPlay record has the password's code 0F.
const IdentityRecord kFactorySerialNum = {
    "factory_serial_num", "SaveFactorySerialNum", "FeedBackFactorySerialNum", "str_SN", 0x03, 0x03, false};
const IdentityRecord kProductionDate = {
    "production_date", "SaveProductionDate", "FeedBackProductionDate", "str_SN", 0x05, 0x05, false};
const IdentityRecord kPasswordNum = {
    "password_num", "SavePasswordNum", "FeedBackFactorySerialNum", "str_PN", 0x0F, 0x0F, false};
const IdentityRecord kCarPlayMacAddress = {
    "cp_mac_address", "SaveCarPlayMacAddress", "FeedBackCarPlayMacAddress", "str_PN", 0x12, 0x0F, true};
const IdentityRecord kHUSerialNum = {
    "hu_serial_num", "SaveHUSerialNum", "FeedBackHUSerialNum", "str_SN", 0x14, 0x14, false};
const IdentityRecord kDrawingCode = {"drawing_code", "SaveDrawingCode", "FeedBackDrawingCode", "str_SN", 0x16, 0x16,
                                     false};
const IdentityRecord kBtMacAddressForQuery = {
    "bt_mac_address_for_query", "SaveBtMacAddress", nullptr, nullptr, 0x1A, 0x1A, false};

std::string IdentityRecordPath(const IdentityRecord& record)
{
    return PersistentPath(std::string(kIdentityDirectory) + record.file);
}

FileRead ReadRecord(const std::string& strPath, std::string& strLine)
{
    const FileRead result = ReadPersistentFile(strPath, kMaxRecordFile, strLine);
    if (result == FileRead::kTooLong)
        KYR_LOG_ERROR("%s not read: it is longer than %zu bytes", strPath.c_str(), kMaxRecordFile);
    strLine.erase(0, strLine.rfind('\n') + 1);
    return result;
}

bool WriteWholeFile(const std::string& strPath, const std::string& strText)
{
    const FileWritten result = WritePersistentFile(strPath, strText);
    if (result == FileWritten::kIncomplete)
        KYR_LOG_ERROR("%s not written completely", strPath.c_str());
    return result != FileWritten::kNotOpened;
}

void SyncPersistent(const char* pFailureText)
{
    if (KYR_ExecSystemCmd("sync", 1) == 0)
        KYR_LOG_ERROR("%s", pFailureText);
}
