#pragma once

#include <cstddef>
#include <string>

#include "engineering/base/PersistentFile.h"

inline constexpr const char* kIdentityDirectory = "/perm_data/data/engineering/";

/// One of the unit's identity records: a text file of one value, without line end. The table of them drives writers and
/// readers; the tags are those of the log, which service engineers search for.
struct IdentityRecord {
    const char* file;            // in kIdentityDirectory
    const char* saveTag;         // names the writer in the log
    const char* feedBackTag;     // names the reader
    const char* valueWord;       // names the value
    unsigned char feedBackCode;  // cmd_two of the value's reply
    unsigned char missingCode;   // cmd_two of the reply when the file cannot be read
    bool bIsSeparated;  // stored with ':' between pairs of characters, which the station neither sends nor reads
};

/// @returns where the record's file really is.
std::string IdentityRecordPath(const IdentityRecord& record);

extern const IdentityRecord kFactorySerialNum;
extern const IdentityRecord kProductionDate;
extern const IdentityRecord kPasswordNum;
extern const IdentityRecord kCarPlayMacAddress;
extern const IdentityRecord kHUSerialNum;
extern const IdentityRecord kDrawingCode;

/// Written by the Bluetooth address provisioning; the station asks only whether it is there.
extern const IdentityRecord kBtMacAddressForQuery;

/// What a record's file may hold. A longer one, which no writer here has made, is not read, with an error line.
inline constexpr std::size_t kMaxRecordFile = 4096;

/// Reads a record.
/// @param strLine becomes the text behind the file's last line end: all of it when there is none
FileRead ReadRecord(const std::string& strPath, std::string& strLine);

/// Replaces a file's content.
/// @returns false when the file cannot be opened. One that opens but cannot take all of the text leaves an error line.
bool WriteWholeFile(const std::string& strPath, const std::string& strText);

/// Has the file system write out what has been written; a failure leaves `pFailureText` in the log, at error level.
void SyncPersistent(const char* pFailureText);

/// What the identity records' writers log when the sync fails.
inline constexpr const char* kSyncError = "sync error)\n";
