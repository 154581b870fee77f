#include "station/Sqlite.h"

#include <poll.h>

#include <utility>

#include "protocol/Errors.h"

namespace station::sqlite {

namespace {

constexpr int kBusyRetryMs = 5;

}  // namespace

Statement::Statement(Database& database, std::string_view sql)
    : database_(database), statement_(nullptr, sqlite3_finalize)
{
    sqlite3_stmt* statement = nullptr;
    const int code =
        sqlite3_prepare_v2(database.handle_.get(), sql.data(), static_cast<int>(sql.size()), &statement, nullptr);
    statement_.reset(statement);
    if (code != SQLITE_OK) {
        database.fail(code);
    }
}

void Statement::bind(int index, std::string_view value)
{
    // Without characters a text must not become NULL.
    sqlite3_bind_text(statement_.get(), index, value.empty() ? "" : value.data(), static_cast<int>(value.size()),
                      SQLITE_TRANSIENT);
}

void Statement::bind(int index, std::int64_t value)
{
    sqlite3_bind_int64(statement_.get(), index, value);
}

void Statement::bind(int index, Blob value)
{
    sqlite3_bind_blob64(statement_.get(), index, value.bytes.empty() ? "" : value.bytes.data(), value.bytes.size(),
                        SQLITE_TRANSIENT);
}

bool Statement::step()
{
    const int code = sqlite3_step(statement_.get());
    if (code != SQLITE_ROW && code != SQLITE_DONE) {
        database_.fail(code);
    }
    return code == SQLITE_ROW;
}

std::string Statement::text(int column) const
{
    const auto* characters = reinterpret_cast<const char*>(sqlite3_column_text(statement_.get(), column));
    return characters == nullptr
               ? std::string()
               : std::string(characters, static_cast<std::size_t>(sqlite3_column_bytes(statement_.get(), column)));
}

std::string_view Statement::bytes(int column) const
{
    const auto* first = static_cast<const char*>(sqlite3_column_blob(statement_.get(), column));
    return {first, first == nullptr ? 0 : static_cast<std::size_t>(sqlite3_column_bytes(statement_.get(), column))};
}

Database::Database(std::string path, int flags, const Interrupt* interrupt, std::chrono::milliseconds busyPatience)
    : path_(std::move(path)), interrupt_(interrupt), busyPatience_(busyPatience), handle_(nullptr, sqlite3_close)
{
    sqlite3* handle = nullptr;
    const int code = sqlite3_open_v2(path_.c_str(), &handle, flags | SQLITE_OPEN_NOMUTEX, nullptr);
    handle_.reset(handle);
    if (code != SQLITE_OK) {
        fail(code);
    }
    sqlite3_busy_handler(handle, onBusy, this);
}

void Database::runAll(const std::string& sql)
{
    const int code = sqlite3_exec(handle_.get(), sql.c_str(), nullptr, nullptr, nullptr);
    if (code != SQLITE_OK) {
        fail(code);
    }
}

void Database::fail(int code) const
{
    if (interrupt_ != nullptr && interrupt_->requested()) {
        throw Interrupted();
    }
    if ((code & 0xFF) == SQLITE_BUSY) {
        throw protocol::StorageError(path_ + ": another station keeps the registry locked: try again when it is done");
    }
    throw protocol::StorageError(path_ + ": the registry cannot be used: " +
                                 (handle_ == nullptr ? sqlite3_errstr(code) : sqlite3_errmsg(handle_.get())));
}

int Database::onBusy(void* self, int count)
{
    auto& database = *static_cast<Database*>(self);
    const auto now = std::chrono::steady_clock::now();
    if (count == 0) {
        database.giveUpAt_ = now + database.busyPatience_;
    }
    pollfd request{database.interrupt_ == nullptr ? -1 : database.interrupt_->descriptor(), POLLIN, 0};
    return now < database.giveUpAt_ && poll(&request, 1, kBusyRetryMs) == 0 ? 1 : 0;
}

Transaction::Transaction(Database& database) : database_(&database)
{
    database.run("BEGIN IMMEDIATE");
}

Transaction::~Transaction()
{
    if (database_ != nullptr) {
        // SQLite may have undone it by itself already.
        sqlite3_exec(database_->handle(), "ROLLBACK", nullptr, nullptr, nullptr);
    }
}

void Transaction::commit()
{
    database_->run("COMMIT");
    database_ = nullptr;
}

}  // namespace station::sqlite
