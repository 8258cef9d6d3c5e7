// The only source that sees SOCI's headers, which take long to compile.
#include "station/results/connection.h"

#include <fmt/format.h>
#include <libpq-fe.h>
#include <soci/postgresql/soci-postgresql.h>
#include <soci/soci.h>
#include <soci/sqlite3/soci-sqlite3.h>
#include <sys/socket.h>

#include <condition_variable>
#include <deque>
#include <filesystem>
#include <mutex>
#include <thread>
#include <unordered_map>

#include "station/commands/bytes.h"
#include "station/commands/clean_text.h"
#include "station/commands/errors.h"
#include "station/results/database_file.h"

namespace station {

namespace {

// "?" becomes ":v0", ":v1", as SOCI wants its places named.
std::string WithNames(const std::string& statement) {
  std::string named;
  int count = 0;
  for (const char character : statement) {
    if (character == '?') {
      named += fmt::format(":v{}", count++);
    } else {
      named += character;
    }
  }
  return named;
}

// Appends parameters to a server's address: no attempt to connect may hang a line, and a server whose machine
// is gone is noticed.
std::string ServerParameters(const std::string& address) {
  const char* link = address.find('?') == std::string::npos ? "?" : "&";
  return address + link + "connect_timeout=5&tcp_user_timeout=10000&application_name=phonetest";
}

// A failure's text on one line, without the name of the library's function before it.
std::string OneLine(std::string text) {
  if (text.starts_with("sqlite3_")) text.erase(0, std::min(text.find(": ") + 2, text.size()));
  for (char& character : text) {
    if (character == '\n') character = ' ';
  }
  while (!text.empty() && (text.back() == ' ' || text.back() == '.')) text.pop_back();
  return text;
}

// Ends a connection whose server does not answer: libpq itself would wait for ever.
class Watch {
 public:
  explicit Watch(int socket)
      : socket_(socket), thread_([this](const std::stop_token& stop) { Look(stop); }) {}

  // The time until End.
  void Begin() {
    const std::lock_guard lock(mutex_);
    begun_ = std::chrono::steady_clock::now();
  }
  void End() {
    const std::lock_guard lock(mutex_);
    begun_.reset();
  }

 private:
  void Look(const std::stop_token& stop) {
    std::unique_lock lock(mutex_);
    while (!stop.stop_requested()) {
      due_.wait_for(lock, stop, std::chrono::seconds(1), [] { return false; });
      if (begun_ && std::chrono::steady_clock::now() - *begun_ > Connection::PATIENCE)
        shutdown(socket_, SHUT_RDWR);
    }
  }

  const int socket_;
  std::mutex mutex_;
  std::condition_variable_any due_;
  std::optional<std::chrono::steady_clock::time_point> begun_;
  std::jthread thread_;
};

// The library would print what the server says when it is stopped; the connection's failure is told anyway.
void BeQuiet(soci::session& session) {
  auto* backend = static_cast<soci::postgresql_session_backend*>(session.get_backend());
  PQsetNoticeProcessor(
      backend->conn_, [](void*, const char*) {}, nullptr);
}

// A statement with the places that its values are read from.
struct Prepared {
  Prepared(soci::session& session, const std::string& text, std::size_t count)
      : statement(session), values(count), present(count) {
    statement.alloc();
    for (std::size_t i = 0; i < count; ++i) statement.exchange(soci::use(values[i], present[i]));
    statement.prepare(WithNames(text));
  }

  void Fill(const std::vector<SqlValue>& given) {
    for (std::size_t i = 0; i < given.size(); ++i) {
      present[i] = given[i].Text() ? soci::i_ok : soci::i_null;
      values[i] = given[i].Text().value_or("");
    }
  }

  soci::statement statement;
  std::deque<std::string> values;
  std::deque<soci::indicator> present;
};

}  // namespace

SqlValue::SqlValue(const std::string& text) : text_(CleanText(text)) {}

SqlValue::SqlValue(double number) : text_(fmt::format("{}", number)) {}

struct Connection::Session {
  Session(const soci::backend_factory& kind, const std::string& parameters) : session(kind, parameters) {}
  // The server is told to forget the statements. The watch ends before the socket's number is used again.
  ~Session() {
    Begin();
    statements.clear();
    watch.reset();
  }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  void WatchServer() {
    auto* server = static_cast<soci::postgresql_session_backend*>(session.get_backend());
    watch = std::make_unique<Watch>(PQsocket(server->conn_));
  }

  void Begin() {
    if (watch) watch->Begin();
  }
  void End() {
    if (watch) watch->End();
  }

  soci::session session;
  std::unordered_map<std::string, std::unique_ptr<Prepared>> statements = {};
  std::unique_ptr<Watch> watch = nullptr;
};

// Does some work with the database; its failure becomes a sentence of ours.
template <typename Work>
auto Connection::Guarded(const Work& work) {
  struct Span {
    explicit Span(Session& one) : session(one) {
      session.Begin();
    }
    ~Span() {
      session.End();
    }
    Session& session;
  };
  try {
    const Span span(*session_);
    return work();
  } catch (const soci::soci_error& error) {
    throw ResultsError(fmt::format("the database {}: {}", address_.text, OneLine(error.get_error_message())));
  }
}

Connection::Connection(const ResultsAddress& address) : address_(address) {
  try {
    if (address.kind == ResultsAddress::Kind::Server) {
      session_ = std::make_unique<Session>(soci::postgresql, ServerParameters(address.text));
      session_->WatchServer();
      BeQuiet(session_->session);
      // A station that dies in the middle of drawing a number must not hold up the others.
      Guarded([this] {
        session_->session << "SET client_min_messages = warning; "
                             "SET idle_in_transaction_session_timeout = 30000; SET tcp_keepalives_idle = 30; "
                             // Every question has an index, and a day's rows lie together: otherwise the
                             // server goes through all measurements for a day's.
                             "SET enable_seqscan = off; SET random_page_cost = 1.1; SET jit = off";
      });
      return;
    }
    try {
      OpenFile();
    } catch (const soci::soci_error&) {
      if (!CanOnlyBeRead(address.text)) throw;
      OpenToRead();
    }
  } catch (const soci::soci_error& error) {
    throw ResultsError(fmt::format("the database {} cannot be opened: {}", address.text,
                                   OneLine(error.get_error_message())));
  }
}

void Connection::OpenFile() {
  MakeFolderOf(address_.text);
  session_ = std::make_unique<Session>(soci::sqlite3, QuotedFile(address_.text));
  // A run's longest texts fit into such a page, not into one of the usual size. Only a new file takes it.
  session_->session << "PRAGMA page_size = 8192";
  // Each commit is on the disk before it returns, and readers do not wait for writers.
  std::string mode;
  session_->session << "PRAGMA journal_mode = WAL", soci::into(mode);
  session_->session << "PRAGMA synchronous = FULL";
  session_->session << "PRAGMA foreign_keys = ON";
}

// A reader, too, shares a file beside the database with those who write, and cannot make it here. So the
// database is read as one that does not change.
void Connection::OpenToRead() {
  const std::string log = address_.text + "-wal";
  std::error_code error;
  if (std::filesystem::file_size(log, error) > 0 && !error) {
    throw ResultsError(fmt::format(
        "the database {} cannot be read here: this user may not write into its folder, and {} holds runs "
        "that are not in it yet. Copy both files into a folder of your own",
        address_.text, log));
  }
  session_ = std::make_unique<Session>(soci::sqlite3, QuotedFile(ReadOnlyName(address_.text)));
  read_only_ = true;
}

Connection::Connection(Connection&&) noexcept = default;
Connection::~Connection() = default;

void Connection::WaitForEver() {
  session_->watch.reset();
}

std::int64_t Connection::Run(const std::string& statement, const std::vector<SqlValue>& values) {
  try {
    return Guarded([&] {
      auto& prepared = session_->statements[statement];
      if (!prepared) {
        prepared = std::make_unique<Prepared>(session_->session, statement, values.size());
        prepared->statement.define_and_bind();
      }
      prepared->Fill(values);
      prepared->statement.execute(true);
      return static_cast<std::int64_t>(prepared->statement.get_affected_rows());
    });
  } catch (const ResultsError&) {
    session_->Begin();
    session_->statements.erase(statement);
    session_->End();
    throw;
  }
}

std::vector<SqlRow> Connection::Ask(const std::string& query, std::string_view columns,
                                    const std::vector<SqlValue>& values) {
  if (listener_) {
    const Listener listener = std::exchange(listener_, {});  // what it asks itself is not told
    listener(query, values);
    listener_ = listener;
  }
  return Guarded([&] {
    Prepared prepared(session_->session, query, values.size());
    prepared.Fill(values);
    SqlRow row(columns.size());
    std::vector<soci::indicator> found(columns.size());
    std::vector<long long> numbers(columns.size());
    for (std::size_t i = 0; i < columns.size(); ++i) {
      if (columns[i] == 'i') prepared.statement.exchange(soci::into(numbers[i], found[i]));
      if (columns[i] == 'd') prepared.statement.exchange(soci::into(row[i].real, found[i]));
      if (columns[i] == 't') prepared.statement.exchange(soci::into(row[i].text, found[i]));
    }
    prepared.statement.define_and_bind();
    std::vector<SqlRow> rows;
    for (prepared.statement.execute(); prepared.statement.fetch();) {
      for (std::size_t i = 0; i < columns.size(); ++i) {
        row[i].null = found[i] == soci::i_null;
        row[i].number = row[i].null ? 0 : numbers[i];
        if (row[i].null) row[i].text.clear();
      }
      rows.push_back(row);
    }
    return rows;
  });
}

std::vector<std::string> Connection::PlanOf(const std::string& query, const std::vector<SqlValue>& values) {
  const bool server = address_.kind == ResultsAddress::Kind::Server;
  std::vector<std::string> lines;
  for (const SqlRow& row :
       Ask((server ? "EXPLAIN " : "EXPLAIN QUERY PLAN ") + query, server ? "t" : "iiit", values))
    lines.push_back(row.back().text);
  return lines;
}

void Connection::StoreContent(const std::string& sha256, const std::string& content) {
  static constexpr char DIGITS[] = "0123456789abcdef";
  if (!Ask("SELECT size FROM contents WHERE sha256 = ?", "i", {sha256}).empty()) return;
  const std::string into = "INSERT INTO contents (sha256, size, content) VALUES (?, ?, ";
  const auto size = static_cast<std::int64_t>(content.size());
  if (address_.kind == ResultsAddress::Kind::Server) {
    std::string digits;
    digits.reserve(content.size() * 2);
    for (const char byte : content) {
      digits += DIGITS[static_cast<unsigned char>(byte) >> 4];
      digits += DIGITS[static_cast<unsigned char>(byte) & 0xF];
    }
    Run(into + "decode(?, 'hex')) ON CONFLICT DO NOTHING", {sha256, size, digits});
    return;
  }
  // The library takes an empty blob for no value.
  if (content.empty()) {
    Run(into + "x'') ON CONFLICT DO NOTHING", {sha256, size});
    return;
  }
  Guarded([&] {
    soci::blob blob(session_->session);
    blob.write(0, content.data(), content.size());
    const long long bytes = size;
    session_->session << into + ":v2) ON CONFLICT DO NOTHING", soci::use(sha256), soci::use(bytes),
        soci::use(blob);
  });
}

std::optional<std::string> Connection::Content(const std::string& sha256) {
  if (address_.kind == ResultsAddress::Kind::Server) {
    const auto rows = Ask("SELECT encode(content, 'hex') FROM contents WHERE sha256 = ?", "t", {sha256});
    if (rows.empty()) return std::nullopt;
    const Bytes bytes = BytesFromHex(rows[0][0].text);
    return std::string(bytes.begin(), bytes.end());
  }
  return Guarded([&]() -> std::optional<std::string> {
    soci::blob blob(session_->session);
    soci::indicator found = soci::i_null;
    session_->session << "SELECT content FROM contents WHERE sha256 = :v0", soci::into(blob, found),
        soci::use(sha256);
    if (!session_->session.got_data()) return std::nullopt;
    std::string content(blob.get_len(), '\0');
    if (!content.empty()) blob.read(0, content.data(), content.size());
    return content;
  });
}

const char* Connection::CountedKey() const {
  const bool server = address_.kind == ResultsAddress::Kind::Server;
  return server ? "BIGINT GENERATED BY DEFAULT AS IDENTITY PRIMARY KEY" : "INTEGER PRIMARY KEY";
}

const char* Connection::BytesType() const {
  return address_.kind == ResultsAddress::Kind::Server ? "BYTEA" : "BLOB";
}

const char* Connection::OrderedByKey() const {
  return address_.kind == ResultsAddress::Kind::Server ? "" : " WITHOUT ROWID";
}

const char* Connection::Now() const {
  const bool server = address_.kind == ResultsAddress::Kind::Server;
  return server ? "CAST(extract(epoch FROM clock_timestamp()) * 1000 AS BIGINT)"
                : "CAST((julianday('now') - 2440587.5) * 86400000 AS INTEGER)";
}

Transaction::Transaction(Connection& connection) : connection_(connection) {
  const bool server = connection.Address().kind == ResultsAddress::Kind::Server;
  connection_.Guarded([&] { connection_.session_->session << (server ? "BEGIN" : "BEGIN IMMEDIATE"); });
}

Transaction::~Transaction() {
  if (!open_) return;
  try {
    connection_.Guarded([&] { connection_.session_->session << "ROLLBACK"; });
  } catch (const std::exception&) {
    // The connection is gone, and the transaction with it.
  }
}

void Transaction::Commit() {
  connection_.Guarded([&] { connection_.session_->session << "COMMIT"; });
  open_ = false;
}

}  // namespace station
