#include "routerd/framing.hpp"

#include "routerd/plain_characters.hpp"

namespace kestro::routerd {

size_t RequestScanner::feed(std::string_view piece) noexcept {
  size_t taken = 0;
  const char* const end = piece.data() + piece.size();
  while (taken < piece.size() && !complete()) {
    if (state_ == State::String) {
      taken = static_cast<size_t>(end_of_plain_characters(piece.data() + taken, end) - piece.data());
      if (taken == piece.size()) break;
    }
    take(piece[taken++]);
  }
  return taken;
}

void RequestScanner::take(char c) noexcept {
  switch (state_) {
    case State::Before:
      if (c == '{') {
        state_ = State::Object;
        depth_ = 1;
      } else if (c != ' ' && c != '\t' && c != '\r' && c != '\n') {
        state_ = State::Line;
      }
      break;
    case State::Line:
      if (c == '\n') state_ = State::Complete;
      break;
    case State::Object:
      if (c == '"') state_ = State::String;
      if (c == '{' || c == '[') ++depth_;
      if ((c == '}' || c == ']') && --depth_ == 0) state_ = State::Complete;
      break;
    case State::String:
      if (c == '"') state_ = State::Object;
      if (c == '\\') state_ = State::Escape;
      if (c == '\n') state_ = State::Complete;
      break;
    case State::Escape:
      state_ = State::String;
      break;
    case State::Complete:
      break;
  }
}

}  // namespace kestro::routerd
