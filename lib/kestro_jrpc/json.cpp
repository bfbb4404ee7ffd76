#include "kestro_jrpc/json.hpp"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "kestro_jrpc/error_codes.hpp"

namespace kestro {

namespace {

constexpr auto here = site_of("kestro_jrpc");

// A text that grows while it is written. It remembers that it could not: the writer does not always look, and a text
// without a member's name must not leave.
class Encoding {
 public:
  static int take(const char* piece, size_t length, void* self) noexcept {
    return static_cast<Encoding*>(self)->append(piece, length) ? 0 : -1;
  }
  Text finish() noexcept { return append("", 1) ? std::move(text_) : nullptr; }

 private:
  bool append(const char* piece, size_t length) noexcept {
    if (failed_ || !make_room(length)) return false;
    memcpy(text_.get() + used_, piece, length);
    used_ += length;
    return true;
  }
  bool make_room(size_t length) noexcept {
    if (length <= size_ - used_) return true;
    const size_t wanted = std::max({size_ * 2, used_ + length, size_t{256}});
    auto* const grown = static_cast<char*>(realloc(text_.get(), wanted));
    if (grown == nullptr) {
      failed_ = true;
      return false;
    }
    static_cast<void>(text_.release());
    text_.reset(grown);
    size_ = wanted;
    return true;
  }

  Text text_;
  size_t used_ = 0;
  size_t size_ = 0;
  bool failed_ = false;
};

}  // namespace

Text encode_json(const json_t* value, size_t flags) noexcept {
  Encoding encoding;
  if (json_dump_callback(value, Encoding::take, &encoding, flags) != 0) return nullptr;
  return encoding.finish();
}

Json parse_received(const char* text) noexcept {
  json_error_t error;
  Json root = parse_json(text, &error);
  if (!root) {
    here().log(Error, "kestro_jrpc_eval_request: Cannot parse JSON data\n");
    here().log(Error, "error: on line %d: %s\n", error.line, error.text);
  }
  return root;
}

bool show_received(Site site, const json_t* value) noexcept {
  if (!log_admits(Verbose)) return true;
  const Text text = encode_json(value, JSON_INDENT(4) | JSON_ENCODE_ANY);
  if (!text) return false;
  site.log(Verbose, "Valid JSON received, of length %d\n", length_of(text.get()));
  site.log(Verbose, "JSON Data:\n%s\n", text.get());
  return true;
}

Json make_error(int32_t code, json_t* data) noexcept {
  const char* const message = kestro_jrpc_error_decode(code);
  if (data != nullptr) {
    return Json(json_pack("{s:i,s:s,s:O}", "code", code, "message", message, "data", data));
  }
  return Json(json_pack("{s:i,s:s,s:o}", "code", code, "message", message, "data", json_null()));
}

bool add_transaction_id(json_t* response, json_t* transaction_id) noexcept {
  if (transaction_id == nullptr || json_object_set(response, "transaction_id", transaction_id) == 0) return true;
  here().log(Error, "kestro_jrpc_eval_request: Failed to add Transaction ID to response\n");
  return false;
}

}  // namespace kestro
