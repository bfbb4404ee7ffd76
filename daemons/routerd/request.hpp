// A client's request, what may be said against it, and the answers that the router itself gives.
#ifndef KESTRO_ROUTERD_REQUEST_HPP
#define KESTRO_ROUTERD_REQUEST_HPP

#include <jansson.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "core/owned.hpp"

namespace kestro::routerd {

// Where memory runs out, what makes an answer throws std::bad_alloc: no answer is ever half or somebody else's.
class Request {
 public:
  explicit Request(const std::string& text);

  // Why the request goes nowhere: a word for the counters; null when nothing is wrong.
  [[nodiscard]] const char* objection() const noexcept { return objection_; }
  // Without "id": nobody waits for an answer, and nothing is forwarded.
  [[nodiscard]] bool is_notification() const noexcept { return !id_; }
  [[nodiscard]] const std::string& method() const noexcept { return method_; }

  // Prepares the object for the bus: a transaction number of the router's own, and its reply channel as "id". Returns
  // the bytes that it will have there, without a channel; 0 when memory runs out.
  [[nodiscard]] size_t address(int32_t number) noexcept;
  // Borrowed. forget_object() releases what is no longer needed while the client waits.
  [[nodiscard]] json_t* object() const noexcept { return object_.get(); }
  void forget_object() noexcept { object_.reset(); }

  // The service's answer as this client is to get it: its own "transaction_id" is back.
  [[nodiscard]] std::string restore(std::string answer, bool strict_id) const;
  // The router's own answers.
  [[nodiscard]] std::string busy(bool strict_id) const;
  [[nodiscard]] std::string timed_out(bool strict_id) const;

 private:
  [[nodiscard]] const char* examine();
  [[nodiscard]] std::string id_text() const;
  [[nodiscard]] std::string finish(Json response, bool strict_id) const;

  Json object_;
  Json id_;
  Json transaction_id_;
  std::string method_;
  const char* objection_ = nullptr;
};

// What a response on the bus says of itself.
struct ResponseHead {
  bool sound = false;   // a JSON object
  int64_t number = -1;  // its "transaction_id", if that is an integer
  std::string method;   // its "id"
};
ResponseHead read_response_head(const char* text);

}  // namespace kestro::routerd

#endif
