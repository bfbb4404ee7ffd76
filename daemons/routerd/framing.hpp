// Where a request ends in the bytes of a connection.
#ifndef KESTRO_ROUTERD_FRAMING_HPP
#define KESTRO_ROUTERD_FRAMING_HPP

#include <cstddef>
#include <string_view>

namespace kestro::routerd {

// Fed with a request piece by piece, however it was cut, until it says that the request is complete: at the brace that
// closes the object, at a line feed inside one of its strings (which no sound object contains), or at the end of the
// line when something else than an object began. White space before all that, blank lines too, is passed over. The end
// of input is the caller's to see. Judges no more of the text than it needs for that.
class RequestScanner {
 public:
  // Takes the next piece. Returns how many of its bytes belong to the request; complete() tells whether it is over.
  size_t feed(std::string_view piece) noexcept;
  [[nodiscard]] bool complete() const noexcept { return state_ == State::Complete; }

 private:
  enum class State { Before, Line, Object, String, Escape, Complete };
  void take(char c) noexcept;

  State state_ = State::Before;
  size_t depth_ = 0;
};

}  // namespace kestro::routerd

#endif
