// The text of schema.sql, which travels in the program.
#ifndef KESTRO_CONFIGD_SCHEMA_HPP
#define KESTRO_CONFIGD_SCHEMA_HPP

namespace kestro::configd {

extern const char* const schema_sql;

}  // namespace kestro::configd

#endif
