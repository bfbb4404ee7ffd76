// A client's request, what may be said against it, and the answers that the router itself gives.
#ifndef KESTRO_ROUTERD_REQUEST_HPP
#define KESTRO_ROUTERD_REQUEST_HPP

#include <jansson.h>

#include <cstdint>
#include <optional>
#include <string>

#include "core/owned.hpp"
#include "routerd/memory.hpp"
#include "routerd/response.hpp"
#include "routerd/splice.hpp"

namespace kestro::routerd {

// Where memory runs out, what makes an answer throws std::bad_alloc: no answer is ever half or somebody else's.
class Request {
 public:
  explicit Request(std::string text);

  // Why the request goes nowhere: a word for the counters; null when nothing is wrong.
  [[nodiscard]] const char* objection() const noexcept { return objection_; }
  // Without "id": nobody waits for an answer, and nothing is forwarded.
  [[nodiscard]] bool is_notification() const noexcept { return id_.empty(); }
  [[nodiscard]] const std::string& method() const noexcept { return method_; }

  // The request as it goes onto the bus, with a transaction number of the router's own and its reply channel as "id".
  // Null when memory runs out.
  [[nodiscard]] Text addressed(int32_t number) const noexcept;
  // A notification's, borrowed; a request that travels as it came need not have one.
  [[nodiscard]] json_t* object() const noexcept { return object_.get(); }
  // Releases what is no longer needed while the client waits.
  void forget_object() noexcept {
    object_.reset();
    outline_.reset();
    release(text_);
  }

  // The service's answer as this client is to get it: its own "transaction_id" is back.
  [[nodiscard]] std::string restore(Response answer, bool strict_id) const;
  // The router's own answers.
  [[nodiscard]] std::string busy(bool strict_id) const;
  [[nodiscard]] std::string timed_out(bool strict_id) const;

 private:
  [[nodiscard]] bool read_plain();
  [[nodiscard]] const char* examine();
  [[nodiscard]] Text spliced(int32_t number) const noexcept;
  [[nodiscard]] std::string id_text() const;
  [[nodiscard]] std::string finish(Json response, bool strict_id) const;

  std::string text_;
  std::optional<Outline> outline_;  // of a text that travels as it is, but for its numbers
  Json object_;                     // of any other
  std::string id_;                  // as JSON texts, empty where there is none
  std::string transaction_id_;
  std::string method_;
  const char* objection_ = nullptr;
};

}  // namespace kestro::routerd

#endif
