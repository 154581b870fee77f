#pragma once

#include <cstddef>
#include <string>

#include "engineering/base/PersistentFile.h"

inline constexpr const char* kIdentityDirectory = "/perm_data/data/engineering/";

/// One of the unit's identity records: a text file of one value, without line end. The table of records drives writers
/// and readers. Service engineers search the log for its tags.
struct IdentityRecord {
    const char* file;            // in kIdentityDirectory
    const char* saveTag;         // names the writer in the log
    const char* feedBackTag;     // names the reader
    const char* valueWord;       // names the value
    unsigned char feedBackCode;  // cmd_two of the value's reply
    unsigned char missingCode;   // cmd_two of the reply for an unreadable file
    bool bIsSeparated;  // stored with ':' between pairs of characters, which the station neither sends nor reads
};

/// @returns the path of the record's file, the platform's root included.
std::string IdentityRecordPath(const IdentityRecord& record);

extern const IdentityRecord kFactorySerialNum;
extern const IdentityRecord kProductionDate;
extern const IdentityRecord kPasswordNum;
extern const IdentityRecord kCarPlayMacAddress;
extern const IdentityRecord kHUSerialNum;
extern const IdentityRecord kDrawingCode;

/// Written by the Bluetooth address provisioning. The station asks only whether it exists.
extern const IdentityRecord kBtMacAddressForQuery;

/// The size of a record's file. A longer file, which this service has not written, is not read but logged as an error.
inline constexpr std::size_t kMaxRecordFile = 4096;

/// Reads a record.
/// @param strLine becomes the text after the file's last line end; the whole text without one
FileRead ReadRecord(const std::string& strPath, std::string& strLine);

/// Replaces a file's content.
/// @returns false if the file cannot be opened. Logs an error if the file cannot hold the whole text.
bool WriteWholeFile(const std::string& strPath, const std::string& strText);

/// Runs "sync"; logs `pFailureText` as an error if it fails.
void SyncPersistent(const char* pFailureText);

/// The log text of the identity records' writers for a failed sync.
inline constexpr const char* kSyncError = "sync error)\n";
