#pragma once

#include <sys/types.h>

#include <istream>
#include <optional>
#include <string>

#include "station/Sqlite.h"
#include "station/identity/Registry.h"

namespace station::identity {

class LockFile;

/// The registry's database and the lock file beside it: makes, opens and checks them, and knows whether the registry
/// may give values. Throws StorageError and Interrupted.
class RegistryFile
{
public:
    RegistryFile(const std::string& path, Registry::Access access, const Interrupt* interrupt);
    ~RegistryFile();

    sqlite::Database& database() { return *database_; }
    const std::string& path() const { return path_; }
    const std::string& uuid() const { return uuid_; }

    /// Throws if the database is a copy, or older than what the registry has given.
    void refuseCopy() const;

    /// Commits, and notes outside of the database how far the registry has come.
    void commit(sqlite::Transaction& transaction);

    /// Lets a copy give values.
    /// @param note is called in the transaction with the reason why it gave none
    void adopt(const std::function<void(const std::string&)>& note);

    /// Locks a unit against other stations until this object's end.
    /// @returns false if another station has locked it
    bool lockUnit(UnitId unit) const;

private:
    void create();
    void check();

    const std::string path_;
    std::unique_ptr<LockFile> locks_;  // nullptr if it only looks
    std::optional<sqlite::Database> database_;
    std::string uuid_;
    std::string trouble_;  // why it gives nothing
};

/// @param mounts as /proc/self/mountinfo has them
/// @returns the mount option that keeps locks from other users of the device's file system; empty for none.
std::string lockRefusedByMount(std::istream& mounts, dev_t device);

}  // namespace station::identity
