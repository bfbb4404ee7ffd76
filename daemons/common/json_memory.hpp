// What becomes of a program that has no memory for JSON.
#ifndef KESTRO_DAEMONS_JSON_MEMORY_HPP
#define KESTRO_DAEMONS_JSON_MEMORY_HPP

namespace kestro::daemons {

// From here on the process ends, with a word and status 1, where the JSON library gets no memory. Left to itself, its
// scanner (2.14) goes on without the character that found no room: a text is read as another one, which would be stored
// or obeyed. `program` is the name in the word, and must outlive the process. To be called before anything else is done
// with JSON.
void end_without_json_memory(const char* program) noexcept;

}  // namespace kestro::daemons

#endif
