#pragma once

#include <sqlite3.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "station/Interrupt.h"

namespace station::sqlite {

/// Bytes that are not a text.
struct Blob {
    std::string_view bytes;
};

/// A prepared statement. Lives no longer than its database. Throws StorageError.
class Statement
{
public:
    /// @returns whether there is a row; false at the end.
    bool step();

    /// Starts the statement again with these values.
    template <class... Values>
    void bindAll(const Values&... values)
    {
        reset();
        int index = 0;
        (bind(++index, values), ...);
    }
    void reset() { sqlite3_reset(statement_.get()); }

    std::string text(int column) const;
    /// Valid until the next step.
    std::string_view bytes(int column) const;
    std::int64_t number(int column) const { return sqlite3_column_int64(statement_.get(), column); }

private:
    friend class Database;
    Statement(class Database& database, std::string_view sql);
    void bind(int index, std::string_view value);
    void bind(int index, std::int64_t value);
    void bind(int index, Blob value);

    class Database& database_;
    std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt*)> statement_;
};

/// An SQLite database for one thread. Every error is a StorageError with the path. It waits for another process's lock
/// for a limited time; Interrupted ends the wait.
class Database
{
public:
    /// @param flags as sqlite3_open_v2 has them
    /// @param interrupt outlives this; may be nullptr
    /// @param busyPatience how long it waits: a station that was stopped must not block the others for ever
    Database(std::string path, int flags, const Interrupt* interrupt,
             std::chrono::milliseconds busyPatience = std::chrono::seconds(10));

    template <class... Values>
    Statement prepare(std::string_view sql, const Values&... values)
    {
        Statement statement(*this, sql);
        statement.bindAll(values...);
        return statement;
    }

    /// Runs one statement to its end.
    template <class... Values>
    void run(std::string_view sql, const Values&... values)
    {
        Statement statement = prepare(sql, values...);
        while (statement.step()) {
        }
    }

    /// Runs several statements.
    void runAll(const std::string& sql);

    std::int64_t lastRow() const { return sqlite3_last_insert_rowid(handle_.get()); }
    sqlite3* handle() const { return handle_.get(); }

    /// Turns SQLite's answer into an exception.
    [[noreturn]] void fail(int code) const;

private:
    friend class Statement;
    static int onBusy(void* self, int count);

    std::string path_;
    const Interrupt* interrupt_;
    const std::chrono::milliseconds busyPatience_;
    std::chrono::steady_clock::time_point giveUpAt_;
    std::unique_ptr<sqlite3, int (*)(sqlite3*)> handle_;
};

/// Changes while it lives are undone at its end unless they are committed. No other process writes meanwhile.
class Transaction
{
public:
    explicit Transaction(Database& database);
    ~Transaction();
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;

    /// The changes are on the disk when this returns.
    void commit();

private:
    Database* database_;
};

}  // namespace station::sqlite
