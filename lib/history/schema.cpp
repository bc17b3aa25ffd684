// The file's form, in versions. A version that was released is never changed: a new one is added.
#include "schema.h"

#include <array>

namespace history
{

namespace
{

constexpr int64_t application_id = 0x63674869; // "cgHi"; file(1) and we know our files by it

constexpr Migration first = R"(
CREATE TABLE decisions (
  id INTEGER PRIMARY KEY,
  devid INTEGER NOT NULL, slotid INTEGER NOT NULL, sslotid INTEGER NOT NULL,
  card_name TEXT NOT NULL, serial TEXT NOT NULL,
  node_type INTEGER NOT NULL, config_dev_type INTEGER NOT NULL,
  nodeid INTEGER NOT NULL, tipc_nodeid INTEGER NOT NULL, online INTEGER NOT NULL,
  outcome TEXT NOT NULL,
  admitted INTEGER,
  requested_at INTEGER,
  decided_at INTEGER NOT NULL,
  decider TEXT NOT NULL, reason TEXT NOT NULL,
  role INTEGER,
  complete INTEGER NOT NULL);
CREATE INDEX decisions_by_time ON decisions (decided_at);
CREATE INDEX decisions_by_position ON decisions (devid, slotid, sslotid, decided_at);

CREATE TABLE answers (
  decision_id INTEGER NOT NULL REFERENCES decisions ON DELETE CASCADE,
  number INTEGER NOT NULL,
  module TEXT NOT NULL, ret INTEGER NOT NULL, reason TEXT NOT NULL,
  at INTEGER NOT NULL, registered INTEGER NOT NULL, took_ms INTEGER,
  PRIMARY KEY (decision_id, number)) WITHOUT ROWID;
CREATE INDEX answers_by_module ON answers (module, at);

CREATE TABLE silent (
  decision_id INTEGER NOT NULL REFERENCES decisions ON DELETE CASCADE,
  number INTEGER NOT NULL,
  module TEXT NOT NULL,
  PRIMARY KEY (decision_id, number)) WITHOUT ROWID;

CREATE TABLE last_decisions (
  devid INTEGER NOT NULL, slotid INTEGER NOT NULL, sslotid INTEGER NOT NULL,
  decision_id INTEGER NOT NULL REFERENCES decisions ON DELETE CASCADE,
  PRIMARY KEY (devid, slotid, sslotid)) WITHOUT ROWID;
CREATE INDEX last_decisions_by_decision ON last_decisions (decision_id);

CREATE TABLE open_checks (
  id INTEGER PRIMARY KEY,
  devid INTEGER NOT NULL, slotid INTEGER NOT NULL, sslotid INTEGER NOT NULL,
  card_name TEXT NOT NULL, serial TEXT NOT NULL,
  node_type INTEGER NOT NULL, config_dev_type INTEGER NOT NULL,
  nodeid INTEGER NOT NULL, tipc_nodeid INTEGER NOT NULL, online INTEGER NOT NULL,
  requested_at INTEGER,
  UNIQUE (devid, slotid, sslotid));

CREATE TABLE open_answers (
  check_id INTEGER NOT NULL REFERENCES open_checks ON DELETE CASCADE,
  number INTEGER NOT NULL,
  module TEXT NOT NULL, ret INTEGER NOT NULL, reason TEXT NOT NULL,
  at INTEGER NOT NULL, registered INTEGER NOT NULL, took_ms INTEGER,
  PRIMARY KEY (check_id, number)) WITHOUT ROWID;

CREATE TABLE open_waiting (
  check_id INTEGER NOT NULL REFERENCES open_checks ON DELETE CASCADE,
  number INTEGER NOT NULL,
  module TEXT NOT NULL,
  PRIMARY KEY (check_id, number)) WITHOUT ROWID;

CREATE TABLE gaps (
  id INTEGER PRIMARY KEY,
  from_at INTEGER NOT NULL, until_at INTEGER, why TEXT NOT NULL);

CREATE TABLE daemon_life (
  id INTEGER PRIMARY KEY,
  at INTEGER NOT NULL, is_start INTEGER NOT NULL,
  pid INTEGER NOT NULL, code TEXT NOT NULL, status TEXT NOT NULL);

CREATE TABLE notes (name TEXT PRIMARY KEY, value TEXT NOT NULL) WITHOUT ROWID;
)";

// A check that continues after its card's time was up once waits for any module's PASS.
constexpr Migration second = "ALTER TABLE open_checks ADD COLUMN any_will_do INTEGER NOT NULL DEFAULT 0";

// Which write began a check, and which one ended it: so that each is known again, and not taken for another.
// Rows of before say nothing of it.
constexpr Migration third = R"(
ALTER TABLE decisions ADD COLUMN request TEXT NOT NULL DEFAULT '';
ALTER TABLE decisions ADD COLUMN result TEXT NOT NULL DEFAULT '';
ALTER TABLE open_checks ADD COLUMN request TEXT NOT NULL DEFAULT '';
)";

constexpr std::array all{first, second, third};

[[noreturn]] void refuse(const Database &database, const std::string &why)
{
    throw Error(database.path() + ' ' + why);
}

} // namespace

std::span<const Migration> migrations()
{
    return all;
}

void require_writable_version(const Database &database, std::span<const Migration> steps)
{
    const int64_t version = database.number("PRAGMA user_version");
    const int64_t owner = database.number("PRAGMA application_id");
    const bool is_new =
        version == 0 && owner == 0 && database.number("SELECT count(*) FROM sqlite_master") == 0;
    if (!is_new && owner != application_id) {
        refuse(database, "is a database, but not a history of cg_recorderd; left alone");
    }
    const auto newest = static_cast<int64_t>(steps.size());
    if (version > newest) {
        refuse(database, "has version " + std::to_string(version) + ", this program knows up to " +
                             std::to_string(newest) + "; use the newer cg_recorderd, or another file");
    }
}

void bring_up_to_date(const Database &database, std::span<const Migration> steps)
{
    require_writable_version(database, steps);
    const auto newest = static_cast<int64_t>(steps.size());
    for (int64_t step = database.number("PRAGMA user_version"); step < newest; ++step) {
        Transaction transaction(database);
        database.run(steps[static_cast<std::size_t>(step)]);
        database.run(("PRAGMA application_id = " + std::to_string(application_id)).c_str());
        database.run(("PRAGMA user_version = " + std::to_string(step + 1)).c_str());
        transaction.commit();
    }
}

void require_present_version(const Database &database)
{
    if (database.number("PRAGMA application_id") != application_id) {
        refuse(database, "is not a history of cg_recorderd");
    }
    const int64_t version = database.number("PRAGMA user_version");
    const auto newest = static_cast<int64_t>(all.size());
    if (version > newest) {
        refuse(database, "has version " + std::to_string(version) + ", this program knows up to " +
                             std::to_string(newest) + "; use the cgctl that came with the recorder");
    }
    if (version < newest) {
        refuse(database, "has version " + std::to_string(version) +
                             "; start the present cg_recorderd, which brings it to version " +
                             std::to_string(newest));
    }
}

} // namespace history
