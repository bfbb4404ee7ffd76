// Copies of the configuration database, made and put in its place by SQLite's backup interface: readers and writers of
// the database meanwhile see it before or after, and no file is moved under an open connection.
#ifndef KESTRO_CONFIGD_BACKUP_HPP
#define KESTRO_CONFIGD_BACKUP_HPP

#include <cstdint>
#include <string>

#include "configd/database.hpp"

namespace kestro::configd {

// Writes a copy to `path`, replacing what was there, once it is complete and examined. Its size in bytes.
int64_t create_backup(const Database& database, const std::string& path);

// Puts the copy at `path` in the place of the configuration, with every switch pending. It is read once, examined, and
// what was examined is applied: the file may change meanwhile. Throws, with the database as it was, when it is no sound
// configuration of this version.
void apply_backup(const Database& database, const std::string& path);

}  // namespace kestro::configd

#endif
