#include "station/identity/RegistryFile.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/sysmacros.h>

#include <fcntl.h>

#include <bitset>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "station/Interrupt.h"
#include "station/identity/SharedFile.h"
#include "tests/support/TempDir.h"

namespace station::identity {
namespace {

using protocol::StorageError;
using testing::HasSubstr;
using testing::MatchesRegex;
using Access = Registry::Access;

class RegistryFileTest : public testing::Test
{
protected:
    std::int64_t number(const char* sql) const
    {
        sqlite::Database database(path, SQLITE_OPEN_READWRITE, nullptr);
        auto statement = database.prepare(sql);
        return statement.step() ? statement.number(0) : -1;
    }

    void run(const char* sql) const
    {
        sqlite::Database(path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr).runAll(sql);
    }

    /// @returns why the registry gives nothing; empty if it gives.
    std::string refusal() const
    {
        try {
            RegistryFile(path, Access::kGive, nullptr).refuseCopy();
        } catch (const StorageError& error) {
            return error.what();
        }
        return "";
    }

    /// Changes the mark, "INODE" or "INODE BIRTH".
    void mark(const std::string& text) const { run(("UPDATE registry SET mark = '" + text + "'").c_str()); }

    std::string mark() const
    {
        sqlite::Database database(path, SQLITE_OPEN_READWRITE, nullptr);
        auto statement = database.prepare("SELECT mark FROM registry");
        statement.step();
        return statement.text(0);
    }

    tests::TempDir directory;
    std::string path = directory.path() / "registry.sqlite";
};

TEST_F(RegistryFileTest, HasItsSchemaAndItsApplication)
{
    RegistryFile file(path, Access::kGive, nullptr);

    EXPECT_EQ(number("PRAGMA user_version"), 1);
    EXPECT_EQ(number("PRAGMA application_id"), 0x454E4752);  // ENGR
    EXPECT_EQ(file.path(), path);
}

TEST_F(RegistryFileTest, TransactionsLastWhenTheyEnd)
{
    run("PRAGMA journal_mode = WAL");
    RegistryFile file(path, Access::kGive, nullptr);

    auto synchronous = file.database().prepare("PRAGMA synchronous");
    ASSERT_TRUE(synchronous.step());
    EXPECT_EQ(synchronous.number(0), 3);  // EXTRA
    auto mode = file.database().prepare("PRAGMA journal_mode");
    ASSERT_TRUE(mode.step());
    EXPECT_EQ(mode.text(0), "delete");
}

TEST_F(RegistryFileTest, UuidIsRandomButForItsVersionAndVariant)
{
    std::bitset<128> everSet;
    std::bitset<128> alwaysSet;
    alwaysSet.set();
    for (int i = 0; i < 64; ++i) {
        const std::string uuid = RegistryFile(path, Access::kLook, nullptr).uuid();
        ASSERT_THAT(uuid, MatchesRegex("[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}"));
        std::string digits = uuid;
        std::erase(digits, '-');
        std::bitset<128> bits;
        for (const char digit : digits) {
            bits = bits << 4 | std::bitset<128>(std::stoul(std::string(1, digit), nullptr, 16));
        }
        everSet |= bits;
        alwaysSet &= bits;
    }
    EXPECT_EQ(alwaysSet.count(), 2U);  // 4 and 8
    EXPECT_EQ((~everSet).count(), 3U + 1U);
}

TEST_F(RegistryFileTest, AnotherDatabaseIsNeitherARegistryNorMadeOne)
{
    run("CREATE TABLE other(id)");

    EXPECT_THAT(refusal(), HasSubstr("registry.sqlite: expected a registry of schema 1"));
    EXPECT_EQ(number("SELECT count(*) FROM sqlite_schema"), 1);
    EXPECT_EQ(number("PRAGMA user_version"), 0);
}

TEST_F(RegistryFileTest, RegistryOfAnotherSchemaIsRefused)
{
    RegistryFile(path, Access::kGive, nullptr);
    run("PRAGMA user_version = 2");
    EXPECT_THAT(refusal(), HasSubstr("expected a registry of schema 1"));

    run("PRAGMA user_version = 1; PRAGMA application_id = 1");
    EXPECT_THAT(refusal(), HasSubstr("expected a registry of schema 1"));
}

TEST_F(RegistryFileTest, RegistryWithoutUuidIsRefused)
{
    RegistryFile(path, Access::kGive, nullptr);
    run("DELETE FROM registry");

    EXPECT_THAT(refusal(), HasSubstr("registry.sqlite: expected a registry with a UUID, got one without"));
}

TEST_F(RegistryFileTest, FolderThatCannotBeMadeIsNamed)
{
    path = "/proc/none/registry.sqlite";

    EXPECT_THAT(refusal(), HasSubstr("/proc/none/registry.sqlite: cannot be written: its folder cannot be made"));
}

TEST_F(RegistryFileTest, FileThatIsADirectoryIsNamed)
{
    std::filesystem::create_directory(path);

    EXPECT_THAT(refusal(), HasSubstr("registry.sqlite: the registry cannot be used: unable to open"));
}

TEST_F(RegistryFileTest, KeepsItsUuid)
{
    const std::string uuid = RegistryFile(path, Access::kGive, nullptr).uuid();

    EXPECT_EQ(RegistryFile(path, Access::kGive, nullptr).uuid(), uuid);
    EXPECT_EQ(RegistryFile(path, Access::kLook, nullptr).uuid(), uuid);
}

TEST_F(RegistryFileTest, CopyIsKnownByInodeAndTimeOfBirth)
{
    RegistryFile(path, Access::kGive, nullptr);
    const std::string own = mark();
    const std::string inode = own.substr(0, own.find(' '));
    EXPECT_THAT(own, MatchesRegex("[0-9]+( [0-9]+[.][0-9]+)?"));

    for (const std::string& same : {own, inode}) {
        mark(same);
        EXPECT_EQ(refusal(), "") << same;
    }
    for (const std::string& other : {inode + " 1.1", inode + "1", std::string("1 1.1"), std::string()}) {
        mark(other);
        EXPECT_EQ(refusal().empty(), other == inode + " 1.1" && own == inode) << other;
    }
}

TEST_F(RegistryFileTest, AdoptedCopyGivesValuesAndTheReasonIsNoted)
{
    RegistryFile(path, Access::kGive, nullptr);
    const std::string own = mark();
    mark("1");
    RegistryFile file(path, Access::kGive, nullptr);
    std::string reason;

    EXPECT_THROW(file.refuseCopy(), StorageError);
    file.adopt([&](const std::string& why) { reason = why; });

    EXPECT_THAT(reason, HasSubstr("this is a copy of registry " + file.uuid()));
    file.refuseCopy();
    EXPECT_EQ(mark(), own);
}

TEST_F(RegistryFileTest, UnitIsLockedForOneStationUntilItsEnd)
{
    RegistryFile other(path, Access::kGive, nullptr);
    {
        const RegistryFile one(path, Access::kGive, nullptr);
        EXPECT_TRUE(one.lockUnit(7));
        EXPECT_TRUE(one.lockUnit(7));
        EXPECT_FALSE(other.lockUnit(7));
        EXPECT_TRUE(other.lockUnit(8));
        EXPECT_FALSE(one.lockUnit(8));
    }
    EXPECT_TRUE(other.lockUnit(7));
    EXPECT_TRUE(RegistryFile(path, Access::kLook, nullptr).lockUnit(7));
}

TEST_F(RegistryFileTest, TransactionThatIsNotCommittedLeavesNothing)
{
    RegistryFile file(path, Access::kGive, nullptr);
    {
        sqlite::Transaction transaction(file.database());
        file.database().run("INSERT INTO unit(label) VALUES(?)", "U1");
    }
    EXPECT_EQ(number("SELECT count(*) FROM unit"), 0);

    sqlite::Transaction transaction(file.database());
    file.database().run("INSERT INTO unit(label) VALUES(?)", "U1");
    file.commit(transaction);
    EXPECT_EQ(number("SELECT count(*) FROM unit"), 1);
}

TEST(LockRefusedByMount, IsTheOptionOfTheDevicesMount)
{
    struct Row {
        const char* options;
        const char* refused;
    };
    const Row rows[] = {
        {"rw,nolock,addr=1", "nolock"},
        {"rw,local_lock=none", ""},
        {"nobrl", "nobrl"},
        {"rw,local_lock=all", "local_lock=all"},
        {"local_lock=posix,rw", "local_lock=posix"},
        {"rw,nolocks", ""},
        {"rw,xnolock", ""},
        {"rw", ""},
    };
    for (const auto& [options, refused] : rows) {
        std::istringstream mounts(
            "21 1 0:21 / /srv rw,nolock - nfs server:/ rw,nolock\n"
            "22 1 0:22 / /mnt rw,nolock - nfs server:/ " +
            std::string(options) + "\n23 1 8:1 / / rw - ext4 /dev/sda1 rw,nobrl\n");
        EXPECT_EQ(lockRefusedByMount(mounts, makedev(0, 22)), refused) << options;
    }
    std::istringstream none("21 1 0:21 / /srv rw - nfs server:/ rw,nolock\n");
    EXPECT_EQ(lockRefusedByMount(none, makedev(21, 0)), "");
}

using SqliteTest = RegistryFileTest;

TEST_F(SqliteTest, ValuesComeBackAsTheyWereBound)
{
    sqlite::Database database(path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
    auto row = database.prepare("SELECT ?, ?, ?, typeof(?), NULL", "a", "", 5'000'000'000, std::string_view());

    ASSERT_TRUE(row.step());
    EXPECT_EQ(row.text(0), "a");
    EXPECT_EQ(row.text(1), "");
    EXPECT_EQ(row.number(2), 5'000'000'000);
    EXPECT_EQ(row.text(3), "text");
    EXPECT_EQ(row.text(4), "");
    EXPECT_FALSE(row.step());
    row.bindAll("b");
    ASSERT_TRUE(row.step());
    EXPECT_EQ(row.text(0), "b");
}

TEST_F(SqliteTest, ErrorsNameTheFile)
{
    for (const char* wrong : {"SELEC", "SELECT 1; SELECT * FROM none"}) {
        try {
            sqlite::Database database(path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
            database.runAll(wrong);
            ADD_FAILURE() << wrong << " ran";
        } catch (const StorageError& error) {
            EXPECT_THAT(error.what(), HasSubstr("registry.sqlite: the registry cannot be used: ")) << wrong;
        }
    }
    sqlite::Database database(path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
    EXPECT_THROW(database.run("SELEC"), StorageError);
    database.runAll("CREATE TABLE one(id INTEGER PRIMARY KEY)");
    database.run("INSERT INTO one VALUES(1)");
    EXPECT_THROW(database.run("INSERT INTO one VALUES(1)"), StorageError);
    EXPECT_EQ(database.lastRow(), 1);
}

TEST(SharedFileTest, LockHoldsForOneByteUntilItIsReleased)
{
    const tests::TempDir directory;
    const std::string path = directory.path() / "ledger";
    const SharedFile one(path, O_RDWR | O_CREAT, 0600);
    const SharedFile other(path, O_RDWR | O_CREAT, 0600);

    EXPECT_EQ(one.lockByte(1), 0);
    EXPECT_EQ(other.lockByte(0), 0);
    EXPECT_EQ(other.lockByte(2), 0);
    EXPECT_EQ(other.lockByte(1), EAGAIN);
    EXPECT_EQ(one.lockByte(1, F_UNLCK), 0);
    EXPECT_EQ(other.lockByte(1), 0);
}

TEST_F(SqliteTest, LockOfAnotherStationIsNamed)
{
    sqlite::Database one(path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
    sqlite::Database other(path, SQLITE_OPEN_READWRITE, nullptr);
    sqlite3_busy_timeout(other.handle(), 0);  // in place of the patience
    const sqlite::Transaction transaction(one);

    try {
        sqlite::Transaction second(other);
        FAIL() << "two wrote at once";
    } catch (const StorageError& error) {
        EXPECT_THAT(error.what(), HasSubstr("registry.sqlite: another station keeps the registry locked"));
    }
}

TEST_F(SqliteTest, InterruptEndsTheWaitForALock)
{
    Interrupt interrupt;
    sqlite::Database one(path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
    sqlite::Database other(path, SQLITE_OPEN_READWRITE, &interrupt);
    const sqlite::Transaction transaction(one);
    interrupt.request();

    EXPECT_THROW(sqlite::Transaction{other}, Interrupted);
}

}  // namespace
}  // namespace station::identity
