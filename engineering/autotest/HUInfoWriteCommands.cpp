#include <unistd.h>

#include <algorithm>
#include <array>

#include "engineering/autotest/IdentityRecord.h"
#include "engineering/autotest/KYRAutoTest.h"
#include "engineering/base/Log.h"
#include "engineering/base/PersistentFile.h"

namespace {

constexpr char kSeparator = ':';

}  // namespace

void KYRAutoTest::SaveRecord(const IdentityRecord& record, const unsigned char* param, int param_len)
{
    std::string strValue;
    for (int i = 0; i < param_len; ++i) {
        strValue += static_cast<char>(param[i]);
        if (record.bIsSeparated && i % 2 == 1 && i != param_len - 1)
            strValue += kSeparator;
    }
    KYR_LOG_DEBUG("[%s] %s = %s", record.saveTag, record.valueWord, strValue.c_str());

    const std::string strPath = IdentityRecordPath(record);
    if (!WriteWholeFile(strPath, strValue)) {
        KYR_LOG_INFO("[%s] open %s failed!", record.saveTag, strPath.c_str());
        return;
    }
    SyncPersistent(kSyncError);
}

void KYRAutoTest::FeedBackRecord(const IdentityRecord& record)
{
    const std::string strPath = IdentityRecordPath(record);
    std::string strValue;
    switch (ReadRecord(strPath, strValue)) {
        case FileRead::kFailed:
            KYR_LOG_INFO("[%s] open %s failed!", record.feedBackTag, strPath.c_str());
            Reply(kHuInfoWrite, record.missingCode, {});
            return;
        case FileRead::kTooLong:
            return;  // WIRE: no reply, as for a value that does not fit a frame
        case FileRead::kComplete:
            break;
    }
    KYR_LOG_DEBUG("[%s] %s = %s", record.feedBackTag, record.valueWord, strValue.c_str());
    if (record.bIsSeparated)
        std::erase(strValue, kSeparator);
    ReplyText(kHuInfoWrite, record.feedBackCode, strValue);
}

void KYRAutoTest::ReplyPresence(unsigned char cmd_two, const IdentityRecord& record)
{
    const bool bIsThere = access(IdentityRecordPath(record).c_str(), F_OK) == 0;
    Reply(kHuInfoWrite, cmd_two, {static_cast<unsigned char>(bIsThere ? 1 : 0)});
}

std::span<const Command> KYRAutoTest::HUInfoWriteCommands()
{
    // A writer sends no reply; the station reads the record back.
    static constexpr auto kCommands = std::to_array<Command>({
        // cmd_two, least number of parameters, name, action
        {0x02, 0, "write factory serial",
         [](KYRAutoTest& engine, Params params) {
             engine.SaveFactorySerialNum(params.data(), static_cast<int>(params.size()));
         }},
        {0x03, 0, "read factory serial", [](KYRAutoTest& engine, Params) { engine.FeedBackFactorySerialNum(); }},
        {0x04, 0, "write production date",
         [](KYRAutoTest& engine, Params params) {
             engine.SaveProductionDate(params.data(), static_cast<int>(params.size()));
         }},
        {0x05, 0, "read production date", [](KYRAutoTest& engine, Params) { engine.FeedBackProductionDate(); }},
        {0x0E, 0, "write password number",
         [](KYRAutoTest& engine, Params params) {
             engine.SavePasswordNum(params.data(), static_cast<int>(params.size()));
         }},
        {0x0F, 0, "read password number", [](KYRAutoTest& engine, Params) { engine.FeedBackPasswordNum(); }},
        {0x10, 0, "write Bluetooth address",
         [](KYRAutoTest& engine, Params params) {
             engine.SaveBtMacAddress(params.data(), static_cast<int>(params.size()));
         }},
        {0x11, 0, "write CarPlay MAC",
         [](KYRAutoTest& engine, Params params) {
             engine.SaveCarPlayMacAddress(params.data(), static_cast<int>(params.size()));
         }},
        {0x12, 0, "read CarPlay MAC", [](KYRAutoTest& engine, Params) { engine.FeedBackCarPlayMacAddress(); }},
        {0x13, 0, "write head-unit serial",
         [](KYRAutoTest& engine, Params params) {
             engine.SaveHUSerialNum(params.data(), static_cast<int>(params.size()));
         }},
        {0x14, 0, "read head-unit serial", [](KYRAutoTest& engine, Params) { engine.FeedBackHUSerialNum(); }},
        {0x15, 0, "write drawing code",
         [](KYRAutoTest& engine, Params params) {
             engine.SaveDrawingCode(params.data(), static_cast<int>(params.size()));
         }},
        {0x16, 0, "read drawing code", [](KYRAutoTest& engine, Params) { engine.FeedBackDrawingCode(); }},
        {0x1A, 0, "Bluetooth address presence",
         [](KYRAutoTest& engine, Params) { engine.ReplyPresence(0x1A, kBtMacAddressForQuery); }},
        {0x1B, 0, "CarPlay MAC presence",
         [](KYRAutoTest& engine, Params) { engine.ReplyPresence(0x1B, kCarPlayMacAddress); }},
    });
    static_assert(CodesAscend(kCommands));
    return kCommands;
}

void KYRAutoTest::HandleHUInfoWrite(unsigned char cmd_two, unsigned char* param, int param_len)
{
    Run(HUInfoWriteCommands(), cmd_two, param, param_len);
}

void KYRAutoTest::SaveFactorySerialNum(const unsigned char* param, int len)
{
    SaveRecord(kFactorySerialNum, param, len);
}
void KYRAutoTest::SavePasswordNum(const unsigned char* param, int len)
{
    SaveRecord(kPasswordNum, param, len);
}
void KYRAutoTest::SaveCarPlayMacAddress(const unsigned char* param, int len)
{
    SaveRecord(kCarPlayMacAddress, param, len);
}
void KYRAutoTest::SaveHUSerialNum(const unsigned char* param, int len)
{
    SaveRecord(kHUSerialNum, param, len);
}
void KYRAutoTest::SaveDrawingCode(const unsigned char* param, int len)
{
    SaveRecord(kDrawingCode, param, len);
}
void KYRAutoTest::SaveProductionDate(const unsigned char* param, int len)
{
    SaveRecord(kProductionDate, param, len);
}

void KYRAutoTest::FeedBackFactorySerialNum()
{
    FeedBackRecord(kFactorySerialNum);
}
void KYRAutoTest::FeedBackPasswordNum()
{
    FeedBackRecord(kPasswordNum);
}
void KYRAutoTest::FeedBackCarPlayMacAddress()
{
    FeedBackRecord(kCarPlayMacAddress);
}
void KYRAutoTest::FeedBackHUSerialNum()
{
    FeedBackRecord(kHUSerialNum);
}
void KYRAutoTest::FeedBackDrawingCode()
{
    FeedBackRecord(kDrawingCode);
}
void KYRAutoTest::FeedBackProductionDate()
{
    FeedBackRecord(kProductionDate);
}
