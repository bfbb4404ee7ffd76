// Methods of a service that do what a test tells them.
#ifndef KESTRO_TESTS_SCRIPTED_METHOD_HPP
#define KESTRO_TESTS_SCRIPTED_METHOD_HPP

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "core/owned.hpp"
#include "kestro_jrpc.h"
#include "support/json.hpp"

namespace kestro::test {

// What the method "ports.Get" of scripted_table() does while the object lives, and what it saw.
class ScriptedMethod {
 public:
  explicit ScriptedMethod(int32_t status = 0, const std::string& result = "", const std::string& err_data = "")
      : status_(status), result_(value_of(result)), err_data_(value_of(err_data)) {
    current() = this;
  }
  ScriptedMethod(const ScriptedMethod&) = delete;
  ScriptedMethod& operator=(const ScriptedMethod&) = delete;
  ~ScriptedMethod() { current() = nullptr; }

  // Done by the method before it returns.
  void meanwhile(std::function<void()> action) { action_ = std::move(action); }

  [[nodiscard]] int calls() const { return calls_; }
  // The params of the last call; "(null)" when it got none.
  [[nodiscard]] const std::string& params() const { return params_; }
  // Whether the params, the result and the error data that went through the method are the test's alone again.
  [[nodiscard]] bool all_released() const { return is_ours(result_) && is_ours(err_data_) && is_ours(kept_params_); }

  static int32_t handler(json_t* params, json_t** result, json_t** err_data) {
    return current()->run(params, result, err_data);
  }

 private:
  static ScriptedMethod*& current() {
    static ScriptedMethod* script = nullptr;
    return script;
  }
  static Json value_of(const std::string& text) { return text.empty() ? Json() : json_of(text); }
  static bool is_ours(const Json& value) { return !value || value->refcount == 1; }

  int32_t run(json_t* params, json_t** result, json_t** err_data) {
    ++calls_;
    params_ = params != nullptr ? text_of(params) : "(null)";
    kept_params_.reset(json_incref(params));
    EXPECT_EQ(*result, nullptr);
    EXPECT_EQ(*err_data, nullptr);
    *result = json_incref(result_.get());
    *err_data = json_incref(err_data_.get());
    if (action_) action_();
    return status_;
  }

  int32_t status_;
  Json result_;
  Json err_data_;
  Json kept_params_;
  std::function<void()> action_;
  std::string params_;
  int calls_ = 0;
};

// A method of the table that nobody should reach.
inline int32_t never_called(json_t*, json_t**, json_t**) {
  ADD_FAILURE() << "the wrong method was called";
  return 0;
}

// "ports.Get" is scripted and stands there twice, of which the first counts. The name of the row that ends it is no pointer.
inline kestro_jrpc_mapping_t* scripted_table() {
  static kestro_jrpc_mapping_t table[] = {
      {"ports.GetAll", never_called},
      {"ports.Get", ScriptedMethod::handler},
      {"ports.Get", never_called},
      {reinterpret_cast<const char*>(1), nullptr},
  };
  return table;
}

}  // namespace kestro::test

#endif
