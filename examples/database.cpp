// Aliases of ports in the configuration database, which must be there already.
//
//   database PORT=ALIAS...
//
// Stores the aliases, all of them or none, and prints what the database then says of each port.

#include <kestro.h>

#include <cstdio>
#include <string>
#include <thread>
#include <vector>

namespace {

struct Assignment {
  std::string port;
  std::string alias;
};

// One connection for all threads of the daemon. Whoever needs it first opens it.
sqlite3* db = nullptr;

// A statement for all threads, too: prepared once, used by one at a time.
kestro_stmt alias_of_port = {nullptr, PTHREAD_MUTEX_INITIALIZER};

// Opens the database unless that has been done, and makes sure of the table.
int32_t open_database() {
  if (const int32_t status = kestro_db_ensure_open(&db); status != 0) return status;
  const char* const table = "CREATE TABLE IF NOT EXISTS port_alias (port TEXT PRIMARY KEY, alias TEXT NOT NULL)";
  return kestro_sqlite3_exec_sql(db, "%s", table) == SQLITE_OK ? 0 : -7;
}

// Texts that come from outside are escaped before they are formatted into SQL. These bounds keep the statement well
// below the length at which it would be cut.
int32_t store(const Assignment& assignment) {
  char port[64];
  char alias[256];
  if (const int32_t status = sqlite_escape_single_quotes(port, sizeof port, assignment.port.c_str()); status != 0) {
    return status;
  }
  if (const int32_t status = sqlite_escape_single_quotes(alias, sizeof alias, assignment.alias.c_str()); status != 0) {
    return status;
  }
  const int32_t code =
      kestro_sqlite3_exec_sql(db, "INSERT OR REPLACE INTO port_alias VALUES ('%s', '%s')", port, alias);
  return code == SQLITE_OK ? 0 : -7;
}

// All or none: whatever fails, a commit that finds the database busy included, takes the rest back.
int32_t store_all(const std::vector<Assignment>& assignments) {
  int32_t status = kestro_db_open_transaction(db);
  if (status != 0) return status;
  for (const auto& assignment : assignments) {
    status = store(assignment);
    if (status != 0) break;
  }
  if (status == 0) status = kestro_db_commit_transaction(db);
  if (status != 0) kestro_db_rollback_transaction(db);
  return status;
}

// Bound values need no escaping. The reset comes before the unlock: a statement that is left on its row would keep
// everyone from writing.
std::string look_up(const std::string& port) {
  char alias[128] = "";
  kestro_sqlite3_lock(&alias_of_port);
  sqlite3_bind_text(alias_of_port.stmt, 1, port.c_str(), -1, SQLITE_TRANSIENT);
  if (sqlite3_step(alias_of_port.stmt) == SQLITE_ROW) {
    kestro_sqlite3_copy_str(alias, sizeof alias, sqlite3_column_text(alias_of_port.stmt, 0));
  }
  sqlite3_reset(alias_of_port.stmt);
  kestro_sqlite3_unlock(&alias_of_port);
  return alias;
}

// Every port by a thread of its own.
int32_t print_all(const std::vector<Assignment>& assignments) {
  const char* const query = "SELECT alias FROM port_alias WHERE port = ?";
  const int32_t status = kestro_db_prepare_statement(db, KESTRO_CFGDB_FILE, &alias_of_port.stmt, query);
  if (status != 0) return status;

  std::vector<std::string> aliases(assignments.size());
  std::vector<std::thread> threads;
  for (size_t i = 0; i < assignments.size(); ++i) {
    threads.emplace_back([&, i] { aliases[i] = look_up(assignments[i].port); });
  }
  for (auto& thread : threads) thread.join();
  for (size_t i = 0; i < assignments.size(); ++i) printf("%s: %s\n", assignments[i].port.c_str(), aliases[i].c_str());

  kestro_sqlite3_finalize(&alias_of_port);
  return 0;
}

int32_t run(const std::vector<Assignment>& assignments) {
  // A process may not open the configuration database before it says that it is ready for it. A daemon that replaces
  // the file locks it again meanwhile: kestro_db_lock_cfgdb.
  kestro_db_unlock_cfgdb();
  int32_t status = open_database();
  if (status == 0) status = store_all(assignments);
  if (status == 0) status = print_all(assignments);
  // Fails with -12 if a statement was forgotten.
  if (db != nullptr && kestro_db_close(db) != 0) return -12;
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<Assignment> assignments;
  for (int i = 1; i < argc; ++i) {
    const std::string word = argv[i];
    const size_t equals = word.find('=');
    if (equals == std::string::npos) break;
    assignments.push_back({word.substr(0, equals), word.substr(equals + 1)});
  }
  if (assignments.empty() || assignments.size() + 1 != static_cast<size_t>(argc)) {
    fprintf(stderr, "usage: %s PORT=ALIAS...\n", argv[0]);
    return 2;
  }

  kestro_lsyslog_init("database");
  const int32_t status = run(assignments);
  if (status != 0) fprintf(stderr, "%s: %s\n", argv[0], kestro_error_decode(status));
  return status == 0 ? 0 : 1;
}
