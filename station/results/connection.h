// A connection to a database of results, SQLite or PostgreSQL. Statements are written once for both: "?"
// stands for a value, and the few words that differ are asked of the connection.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "station/results/address.h"

namespace station {

// The database cannot be reached or refuses a statement. The text holds no password.
class ResultsError : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

// A value that is given to the database; nothing for NULL. Texts are made clean, since a server takes no
// bytes that are not UTF-8.
class SqlValue {
 public:
  SqlValue(std::nullopt_t) {}
  SqlValue(const char* text) : text_(text) {}
  SqlValue(const std::string& text);
  SqlValue(std::int64_t number) : text_(std::to_string(number)) {}
  SqlValue(int number) : text_(std::to_string(number)) {}
  SqlValue(double number);
  template <typename T>
  SqlValue(const std::optional<T>& value) {
    if (value) *this = SqlValue(*value);
  }

  const std::optional<std::string>& Text() const {
    return text_;
  }

 private:
  std::optional<std::string> text_;
};

// A value that the database returned. NULL is 0, or an empty text.
struct SqlResult {
  bool null = true;
  std::int64_t number = 0;
  double real = 0;
  std::string text = {};

  std::optional<double> Real() const {
    return null ? std::nullopt : std::optional(real);
  }
};
using SqlRow = std::vector<SqlResult>;

class Connection {
 public:
  // A server that is stopped keeps its connections and answers nothing.
  static constexpr std::chrono::seconds PATIENCE{20};

  // Connects, but looks at no table. A SQLite file that this user cannot write is opened to be read. Throws
  // ResultsError.
  explicit Connection(const ResultsAddress& address);
  Connection(Connection&&) noexcept;
  ~Connection();

  const ResultsAddress& Address() const {
    return address_;
  }

  // A file that this user may only read: nothing can be stored.
  bool IsReadOnly() const {
    return read_only_;
  }

  // From now on, a server may take any time for a query. Otherwise it is given up after PATIENCE.
  void WaitForEver();

  // Each throws ResultsError.

  // Returns how many rows were changed.
  std::int64_t Run(const std::string& statement, const std::vector<SqlValue>& values = {});

  // `columns` has a letter for each column of the answer: t text, i whole number, d real number.
  std::vector<SqlRow> Ask(const std::string& query, std::string_view columns,
                          const std::vector<SqlValue>& values = {});

  // How the database would answer a query: the lines of its plan, which name the tables and indexes that it
  // goes through.
  std::vector<std::string> PlanOf(const std::string& query, const std::vector<SqlValue>& values);

  // Called with each query before it is asked, so that its plan can be looked at.
  using Listener = std::function<void(const std::string& query, const std::vector<SqlValue>& values)>;
  void ListenToQueries(Listener listener) {
    listener_ = std::move(listener);
  }

  // Bytes of any size, by their SHA-256. Nothing if there are none.
  void StoreContent(const std::string& sha256, const std::string& content);
  std::optional<std::string> Content(const std::string& sha256);

  // What stands in a table's definition for a key that the database counts up, and for bytes.
  const char* CountedKey() const;
  const char* BytesType() const;
  // After a table's definition: its rows lie in the order of their key, where the database can do that.
  const char* OrderedByKey() const;
  // Milliseconds since 1970 by the database's clock.
  const char* Now() const;

 private:
  friend class Transaction;
  struct Session;
  template <typename Work>
  auto Guarded(const Work& work);

  void OpenFile();
  void OpenToRead();

  ResultsAddress address_;
  bool read_only_ = false;
  std::unique_ptr<Session> session_;
  Listener listener_;
};

// What is done in it is done whole, or not at all if it is not committed. In SQLite it has the right to write
// from its beginning, so it never has to give way to another writer in the middle.
class Transaction {
 public:
  explicit Transaction(Connection& connection);
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;
  ~Transaction();

  void Commit();

 private:
  Connection& connection_;
  bool open_ = true;
};

}  // namespace station
