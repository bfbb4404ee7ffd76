// How a program ends where it cannot go on and nobody is left to be told by a return value or an exception: with a word
// on standard error and status 1, so that the service manager starts it again, and without a core.
//
// `program` is the name in that word, and must outlive the process. Both are to be called before anything else.
#ifndef KESTRO_DAEMONS_LAST_RESORT_HPP
#define KESTRO_DAEMONS_LAST_RESORT_HPP

namespace kestro::daemons {

// From here on, where an exception comes to where none may pass: libraries declare that they throw nothing, and do when
// memory runs out.
void end_on_stray_exceptions(const char* program) noexcept;

// From here on, where the JSON library gets no memory. Left to itself, its scanner (2.14) goes on without the character
// that found no room: a text is read as another one, which would be stored or obeyed.
void end_without_json_memory(const char* program) noexcept;

}  // namespace kestro::daemons

#endif
