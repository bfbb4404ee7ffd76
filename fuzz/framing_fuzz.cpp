// Where a request ends does not depend on how the network cut it; and a sound one ends where its parser says.
#include "routerd/framing.hpp"

#include <jansson.h>

#include <algorithm>

#include "support/fuzz.hpp"

using namespace kestro;
using namespace kestro::fuzz;
using routerd::RequestScanner;

namespace {

struct End {
  size_t taken = 0;
  bool complete = false;
  bool operator==(const End&) const = default;
};

// Feeds pieces of the given sizes, over and over, as a connection does: no more once the request is complete.
End scan(std::string_view text, std::string_view sizes) {
  RequestScanner scanner;
  End end;
  for (size_t i = 0; !text.empty() && !scanner.complete(); ++i) {
    const size_t size = sizes.empty() ? text.size() : static_cast<unsigned char>(sizes[i % sizes.size()]) + size_t{1};
    const auto piece = text.substr(0, size);
    const size_t taken = scanner.feed(piece);
    require(taken <= piece.size() && (taken == piece.size() || scanner.complete()), "all is taken up to the end");
    end.taken += taken;
    text.remove_prefix(piece.size());
  }
  end.complete = scanner.complete();
  return end;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  const auto cuts = input.line();
  const auto text = input.rest();

  const End whole = scan(text, {});
  require(scan(text, cuts) == whole, "cut anywhere, it ends at the same place");
  require(scan(text, std::string_view("\0", 1)) == whole, "byte by byte, it ends at the same place");
  if (whole.complete) {
    require(!scan(text.substr(0, whole.taken - 1), {}).complete, "it does not end before its last byte");
    require(scan(text.substr(0, whole.taken), {}) == whole, "what follows does not matter");
  } else {
    require(whole.taken == text.size(), "what has no end is taken whole");
  }

  // The daemon parses a C text. Of a counted one this parser loses a zero byte behind a number, and counts wrong.
  json_error_t error;
  const Json object(json_loads(exact(text).get(), JSON_DISABLE_EOF_CHECK, &error));
  if (json_is_object(object.get())) {
    require(whole == End{static_cast<size_t>(error.position), true}, "a sound object ends with its brace");
  }
  return 0;
}
