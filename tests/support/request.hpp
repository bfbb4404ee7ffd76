// The parameters of a request, and the explanation that reading them leaves.
#ifndef KESTRO_TESTS_REQUEST_HPP
#define KESTRO_TESTS_REQUEST_HPP

#include <gtest/gtest.h>
#include <jansson.h>

#include <string>
#include <utility>

#include "core/owned.hpp"
#include "kestro_jrpc_utils.h"
#include "support/json.hpp"

namespace kestro::test {

class Request {
 public:
  explicit Request(const std::string& params) : Request(json_of(params)) {}
  explicit Request(Json params) : params_(std::move(params)) {}
  Request(const Request&) = delete;
  Request& operator=(const Request&) = delete;
  ~Request() {
    json_decref(err_data_);
    EXPECT_TRUE(earlier_ == nullptr || earlier_->refcount == 1) << "the earlier explanation was not released";
  }

  // With one member, "value".
  static Request of(Json value) {
    Json params(json_object());
    json_object_set_new(params.get(), "value", value.release());
    return Request(std::move(params));
  }
  static Request of(const std::string& text) { return of(Json(json_string(text.c_str()))); }
  static Request of(const char* text) { return of(std::string(text)); }
  static Request of(json_int_t number) { return of(Json(json_integer(number))); }

  // An explanation that stands before anything is read.
  Request& explain(const char* message) {
    earlier_.reset(kestro_jrpc_utils_simple_error_obj(message));
    err_data_ = json_incref(earlier_.get());
    return *this;
  }

  [[nodiscard]] const json_t* params() const { return params_.get(); }
  [[nodiscard]] json_t** err_data() { return &err_data_; }

  // Empty when there is none. Anything else than an object with the one member "message" is shown as it is.
  [[nodiscard]] std::string explanation() const {
    if (err_data_ == nullptr) return "";
    const json_t* const message = json_object_get(err_data_, "message");
    if (json_object_size(err_data_) != 1 || !json_is_string(message)) return text_of(err_data_);
    return json_string_value(message);
  }

 private:
  Json params_;
  Json earlier_;
  json_t* err_data_ = nullptr;
};

}  // namespace kestro::test

#endif
